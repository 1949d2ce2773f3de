// Feeds arbitrary bytes, as a memory stream, to the reader of the BIOS's
// token document the way the token store reads it (at most 150 tokens).
// No input may crash, hang or overrun a buffer.
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
    return 0;
}
