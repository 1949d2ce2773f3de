// Feeds arbitrary bytes, as a memory stream, to both BIOS readers the way the
// token store calls them: the schema reader and the reader of the BIOS's
// token document. No input may crash, hang, overrun a buffer or leak.
#include <cstdint>
#include <cstdio>

#include "BIOSToken.h"
#include "bios_schema.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static bool quiet = (freopen("/dev/null", "w", stdout) != nullptr);
    (void)quiet;
    FILE* file = fmemopen(const_cast<uint8_t*>(data), size, "r");
    BIOSToken::getBIOSTokenInstance()->clearTokenMaps();
    char guid[kBiosXmlBufferSize];
    getGuidValue(file, guid);
    getBiosParamsHeader(file);
    while (getGroup(file)) {
    }
    if (file != nullptr) {
        fclose(file);
    }
    BIOSToken::getBIOSTokenInstance()->clearTokenMaps();
    file = fmemopen(const_cast<uint8_t*>(data), size, "r");
    char name[kBiosXmlBufferSize], value[kBiosXmlBufferSize];
    for (int count = getFirstToken(file, name, value);
         count < BIOSToken::kMaxTokenValues && getNextToken(file, name, value); ++count) {
    }
    if (file != nullptr) {
        fclose(file);
    }
    return 0;
}
