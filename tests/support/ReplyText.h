// ReplyText: small helpers the tests share for building expected replies and
// looking into actual ones (occurrence counts, golden files, packed
// little-endian fields). Free functions without state; any thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

#include "TestRoot.h"

// The reply of a request that failed for any reason the server does not name.
const std::string kGeneralError =
    "<status>error</status>\n<errorMsg>The current operation failed. BRESK may be running any critical "
    "operation or in error state. Retry after sometime or reboot BRESK if necessary </errorMsg>\n</root>\n";

inline std::string okReply(const std::string& body)
{
    return "<root>" + body + "<status>ok</status>\n</root>\n";
}

inline std::string errorReply(const std::string& message)
{
    return "<root><status>error</status><errorMsg>" + message + "</errorMsg></root>";
}

// How often `part` occurs in `text` (overlapping occurrences count).
inline size_t occurrences(const std::string& text, const std::string& part)
{
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++n;
    }
    return n;
}

inline bool endsWith(const std::string& text, const std::string& tail)
{
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// `s` without the line ends the element writer adds, for short expectations.
inline std::string flat(std::string s)
{
    s.erase(std::remove(s.begin(), s.end(), '\n'), s.end());
    return s;
}

// The file tests/golden/<name>.
inline std::string golden(const std::string& name)
{
    std::ifstream in(TestRoot::simRoot() + "/../../tests/golden/" + name, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

inline std::string le16(unsigned v)
{
    return std::string{static_cast<char>(v & 0xff), static_cast<char>((v >> 8) & 0xff)};
}

inline std::string le32(int32_t v)
{
    uint32_t u = static_cast<uint32_t>(v);
    return std::string{static_cast<char>(u), static_cast<char>(u >> 8), static_cast<char>(u >> 16),
                       static_cast<char>(u >> 24)};
}
