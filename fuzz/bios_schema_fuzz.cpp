// Feeds arbitrary bytes, as a memory stream, to the BIOS schema reader in the
// order the token store calls it. No input may crash, hang, overrun a buffer
// or leak; every identifier and text kept must fit the reader's buffers.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "BIOSToken.h"
#include "bios_schema.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static bool quiet = (freopen("/dev/null", "w", stdout) != nullptr);
    (void)quiet;
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
    return 0;
}
