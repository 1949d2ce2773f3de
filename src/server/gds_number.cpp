#include "gds_number.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>

int32_t gds_strtol32(const char* text, char** end, int base)
{
    if (text == nullptr) {
        if (end != nullptr) {
            *end = nullptr;
        }
        return 0;
    }
    // long long holds every value a 32-bit long could, and saturates itself
    // for longer texts; clamping then gives the 32-bit result.
    long long v = strtoll(text, end, base);
    if (v > INT32_MAX) {
        return INT32_MAX;
    }
    if (v < INT32_MIN) {
        return INT32_MIN;
    }
    return static_cast<int32_t>(v);
}

uint32_t gds_strtoul32(const char* text, char** end, int base)
{
    if (text == nullptr) {
        if (end != nullptr) {
            *end = nullptr;
        }
        return 0;
    }
    const char* p = text;
    while (isspace(static_cast<unsigned char>(*p))) {
        ++p;
    }
    bool negative = *p == '-';
    int savedErrno = errno;
    errno = 0;
    unsigned long long v = strtoull(text, end, base);  // negates modulo 2^64 after a minus
    bool overflow = errno == ERANGE;
    errno = overflow ? ERANGE : savedErrno;
    unsigned long long magnitude = negative ? 0ULL - v : v;
    if (overflow || magnitude > UINT32_MAX) {
        return UINT32_MAX;
    }
    return negative ? static_cast<uint32_t>(0U - static_cast<uint32_t>(magnitude)) : static_cast<uint32_t>(magnitude);
}
