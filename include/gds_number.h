// gds_number: number reading as the controller's C library does it, whose
// long is 32 bits wide: out-of-range texts saturate instead of wrapping.
// Free functions, any thread; nothing is owned.
#pragma once

#include <cstdint>

// strtol of a 32-bit controller: the value is clamped to INT32_MIN..INT32_MAX.
// `end` (may be null) is set as strtol sets it.
int32_t gds_strtol32(const char* text, char** end, int base);
// strtoul of a 32-bit controller: a magnitude above UINT32_MAX gives
// UINT32_MAX; a leading minus sign negates the value modulo 2^32.
uint32_t gds_strtoul32(const char* text, char** end, int base);
