// Fuzzes the 32-bit number readers against the C library's 64-bit ones: the
// same characters are read, and the signed value is the 64-bit one saturated
// to 32 bits.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "gds_number.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1 || size > 256) {
        return 0;
    }
    static const int kBases[] = {0, 10, 16, 8};
    int base = kBases[data[0] % 4];
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    char* end32 = nullptr;
    char* end64 = nullptr;
    long long wide = strtoll(text.c_str(), &end64, base);
    int32_t narrow = gds_strtol32(text.c_str(), &end32, base);
    if (end32 != end64 || narrow != (wide > INT32_MAX ? INT32_MAX : wide < INT32_MIN ? INT32_MIN : wide)) {
        abort();
    }
    strtoull(text.c_str(), &end64, base);
    gds_strtoul32(text.c_str(), &end32, base);
    if (end32 != end64) {
        abort();
    }
    return 0;
}
