#include "SecurityException.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

char* duplicate(const char* text)
{
    if (text == nullptr) {
        text = "";
    }
    size_t length = std::strlen(text);
    char* copy = new char[length + 1];
    std::memcpy(copy, text, length + 1);
    return copy;
}

}  // namespace

SecurityException::SecurityException(int code, const char* message) : m_message(duplicate(message)), m_code(code) {}

SecurityException::SecurityException(const char* format, ...) : m_message(nullptr), m_code(0)
{
    // vsnprintf keeps the first kFormatBufferSize - 1 characters and always
    // terminates the buffer.
    char buffer[kFormatBufferSize];
    buffer[0] = '\0';
    if (format != nullptr) {
        va_list args;
        va_start(args, format);
        std::vsnprintf(buffer, sizeof(buffer), format, args);
        va_end(args);
    }
    std::printf(" SecurityException: %s\n", buffer);
    m_message = duplicate(buffer);
}

SecurityException::SecurityException(const SecurityException& other)
    : m_message(duplicate(other.m_message)), m_code(other.m_code)
{
}

SecurityException& SecurityException::operator=(const SecurityException& other)
{
    if (this != &other) {
        char* copy = duplicate(other.m_message);
        delete[] m_message;
        m_message = copy;
        m_code = other.m_code;
    }
    return *this;
}

SecurityException::~SecurityException()
{
    delete[] m_message;
}
