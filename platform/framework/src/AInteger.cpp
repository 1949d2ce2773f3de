#include "AInteger.h"

#include <cerrno>
#include <cstdlib>
#include <string>

#include "NumberFormatException.h"

int AInteger::parseInt(const char* text)
{
    if (text == nullptr) {
        throw NumberFormatException("null is not a number");
    }
    errno = 0;
    char* end = nullptr;
    long v = strtol(text, &end, 10);
    // Trailing white space (a line end kept from a file) is allowed.
    while (end != text && (*end == ' ' || *end == '\t' || *end == '\n' || *end == '\r')) {
        ++end;
    }
    if (end == text || *end != '\0') {
        throw NumberFormatException(std::string("not a number: \"") + text + "\"");
    }
    if (errno == ERANGE || v > 2147483647L || v < -2147483647L - 1) {
        throw NumberFormatException(std::string("number out of range: \"") + text + "\"");
    }
    return static_cast<int>(v);
}

std::string AInteger::toString(int value)
{
    return std::to_string(value);
}
