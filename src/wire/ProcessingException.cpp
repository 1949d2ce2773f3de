#include "ProcessingException.h"

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

ProcessingException::ProcessingException(int code, const char* message) : m_message(duplicate(message)), m_code(code) {}

ProcessingException::ProcessingException(const char* format, ...) : m_message(nullptr), m_code(0)
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
    std::printf(" ProcessingException: %s\n", buffer);
    m_message = duplicate(buffer);
}

ProcessingException::ProcessingException(const ProcessingException& other)
    : m_message(duplicate(other.m_message)), m_code(other.m_code)
{
}

ProcessingException& ProcessingException::operator=(const ProcessingException& other)
{
    if (this != &other) {
        char* copy = duplicate(other.m_message);
        delete[] m_message;
        m_message = copy;
        m_code = other.m_code;
    }
    return *this;
}

ProcessingException::~ProcessingException()
{
    delete[] m_message;
}
