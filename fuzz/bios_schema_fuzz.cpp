// Feeds arbitrary bytes, as a memory stream, to the BIOS schema reader in the
// order the token store calls it. No input may crash, hang, overrun a buffer
// or leak; every identifier and text kept must fit the reader's buffers.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "BIOSToken.h"
#include "bios_schema.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static bool quiet = (freopen("/dev/null", "w", stdout) != nullptr);
    (void)quiet;
    // An exact-size heap copy, so the sanitizer sees any read past the end.
    char* bytes = static_cast<char*>(malloc(size == 0 ? 1 : size));
    if (size > 0) {
        memcpy(bytes, data, size);
    }
    FILE* file = fmemopen(bytes, size, "r");
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
    for (int type = 0; type < 3; ++type) {
        for (const auto& token : store->getTokenMap(static_cast<BIOSTokenType>(type))) {
            if (token.first.size() >= static_cast<size_t>(kBiosXmlBufferSize) ||
                token.second->settingName.size() >= static_cast<size_t>(kBiosXmlBufferSize)) {
                abort();
            }
            for (const auto& option : token.second->options) {
                if (option.first.size() >= static_cast<size_t>(kBiosXmlBufferSize) ||
                    (option.second.isDefault != 0 && option.second.isDefault != 1)) {
                    abort();
                }
            }
        }
    }
    store->clearTokenMaps();
    free(bytes);
    return 0;
}
