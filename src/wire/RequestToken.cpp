#include "RequestToken.h"

#include <climits>
#include <cmath>
#include <cstdlib>

namespace {

// The controller's long is 32 bits wide; strtol saturates there.
long clampToInt32(long value)
{
    if (value > INT32_MAX) {
        return INT32_MAX;
    }
    if (value < INT32_MIN) {
        return INT32_MIN;
    }
    return value;
}

// Reads the whole of `text` with strtol in `base`. False when characters are
// left over after the number (an embedded NUL counts as a left-over character).
bool readLong(const std::string& text, int base, long& value)
{
    const char* start = text.c_str();
    char* end = nullptr;
    value = clampToInt32(std::strtol(start, &end, base));
    return end == start + text.size();
}

}  // namespace

RequestToken::RequestToken() : m_type(TEXT), m_delim(0) {}

RequestToken::RequestToken(TokenType type, const std::string& text) : m_type(type), m_text(text), m_delim(0) {}

RequestToken::RequestToken(TokenType type, char delim) : m_type(type), m_delim(delim) {}

std::string& RequestToken::getString()
{
    if (m_type != TEXT) {
        throw RequestFormatException("Token is not of type TEXT.");
    }
    return m_text;
}

const std::string& RequestToken::getString() const
{
    if (m_type != TEXT) {
        throw RequestFormatException("Token is not of type TEXT.");
    }
    return m_text;
}

std::string RequestToken::toString() const
{
    switch (m_type) {
        case TEXT:
            return m_text;
        case DELIM:
            return std::string(1, m_delim);
    }
    throw "BadTokenType";
}

int RequestToken::getInt() const
{
    long value = 0;
    if (!readLong(m_text, 10, value)) {
        throw ProcessingException("Cannot parse int from \"%s\"", m_text.c_str());
    }
    return static_cast<int>(value);
}

unsigned int RequestToken::getHexInt() const
{
    long value = 0;
    if (!readLong(m_text, 16, value)) {
        throw ProcessingException("Cannot parse int from hex string \"%s\"", m_text.c_str());
    }
    return static_cast<unsigned int>(static_cast<int>(value));
}

float RequestToken::getFloat() const
{
    const char* start = m_text.c_str();
    char* end = nullptr;
    double value = std::strtod(start, &end);
    if (end != start + m_text.size()) {
        throw ProcessingException("Cannot parse int from \"%s\"", m_text.c_str());
    }
    // Truncate as the controller's float-to-integer conversion does: toward
    // zero, saturating at the 32-bit limits, NaN as 0.
    int truncated;
    if (std::isnan(value)) {
        truncated = 0;
    } else if (value >= 2147483647.0) {
        truncated = INT32_MAX;
    } else if (value <= -2147483648.0) {
        truncated = INT32_MIN;
    } else {
        truncated = static_cast<int>(value);
    }
    return static_cast<float>(truncated);
}

bool RequestToken::getBoolean() const
{
    if (m_text == "true" || m_text == "TRUE") {
        return true;
    }
    return getInt() > 0;
}

void RequestToken::setText(const char* buffer, int start, int length)
{
    if (buffer == nullptr || length <= 0) {
        m_text.clear();
    } else {
        m_text.assign(buffer + start, static_cast<size_t>(length));
    }
    m_type = TEXT;
    m_delim = 0;
}
