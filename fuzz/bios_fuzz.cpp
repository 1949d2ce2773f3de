// Feeds arbitrary bytes, as a memory stream, to both BIOS readers the way the
// token store calls them: the schema reader (every identifier and text kept
// must fit the reader's buffers) and the reader of the BIOS's token document
// (at most 150 tokens, each name and value within its buffer). No input may
// crash, hang, overrun a buffer or leak.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "BIOSToken.h"
#include "bios_schema.h"

namespace {

void readSchema(const uint8_t* data, size_t size)
{
    FILE* file = fmemopen(const_cast<uint8_t*>(data), size, "r");
    BIOSToken* store = BIOSToken::getBIOSTokenInstance();
    store->clearTokenMaps();
    char guid[kBiosXmlBufferSize];
    getGuidValue(file, guid);
    getBiosParamsHeader(file);
    while (getGroup(file)) {
    }
    if (file != nullptr) {
        fclose(file);
    }
    const size_t limit = kBiosXmlBufferSize;
    for (int type = 0; type < 3; ++type) {
        for (const auto& [id, token] : store->getTokenMap(static_cast<BIOSTokenType>(type))) {
            if (id.size() >= limit || token->settingName.size() >= limit) {
                abort();
            }
            for (const auto& [name, option] : token->options) {
                if (name.size() >= limit || (option.isDefault != 0 && option.isDefault != 1)) {
                    abort();
                }
            }
        }
    }
    store->clearTokenMaps();
}

void readTokenDocument(const uint8_t* data, size_t size)
{
    FILE* file = fmemopen(const_cast<uint8_t*>(data), size, "r");
    char name[kBiosXmlBufferSize], value[kBiosXmlBufferSize];
    int count = getFirstToken(file, name, value);
    while (count < BIOSToken::kMaxTokenValues && getNextToken(file, name, value)) {
        if (strlen(name) >= sizeof name || strlen(value) >= sizeof value) {
            abort();
        }
        ++count;
    }
    if (file != nullptr) {
        fclose(file);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static bool quiet = (freopen("/dev/null", "w", stdout) != nullptr);
    (void)quiet;
    readSchema(data, size);
    readTokenDocument(data, size);
    return 0;
}
