// AInteger: the framework's integer text conversions. Stateless, any thread.
#pragma once

#include <string>

class AInteger {
public:
    // Parses the whole text as a base-10 int: optional leading blanks, an
    // optional sign, at least one digit and nothing after but white space
    // (so "4\n" read from a file line is 4). Throws
    // NumberFormatException for anything else, out-of-range values included.
    static int parseInt(const char* text);
    static int parseInt(const std::string& text) { return parseInt(text.c_str()); }

    static std::string toString(int value);
};
