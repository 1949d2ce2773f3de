// Fuzzes the 32-bit number readers against the C library's 64-bit ones:
// the same characters are read, and the value is the 64-bit one saturated
// to 32 bits (strtoul: negated modulo 2^32 after a minus sign).
#include <cerrno>
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
    const char* s = text.c_str();
    char* end32 = nullptr;
    char* end64 = nullptr;
    long long wide = strtoll(s, &end64, base);
    int32_t narrow = gds_strtol32(s, &end32, base);
    int32_t expected = wide > INT32_MAX ? INT32_MAX : wide < INT32_MIN ? INT32_MIN : static_cast<int32_t>(wide);
    if (end32 != end64 || narrow != expected) {
        abort();
    }
    errno = 0;
    unsigned long long uwide = strtoull(s, &end64, base);
    bool overflow = errno == ERANGE;
    uint32_t unarrow = gds_strtoul32(s, &end32, base);
    if (end32 != end64) {
        abort();
    }
    const char* p = s;
    while (*p == ' ' || (*p >= '\t' && *p <= '\r')) {
        ++p;
    }
    unsigned long long magnitude = *p == '-' ? 0ULL - uwide : uwide;
    if (!overflow && magnitude <= UINT32_MAX && unarrow != static_cast<uint32_t>(uwide)) {
        abort();
    }
    if ((overflow || magnitude > UINT32_MAX) && unarrow != UINT32_MAX) {
        abort();
    }
    return 0;
}
