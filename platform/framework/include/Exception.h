// Exception: base of the framework's exceptions; carries a message text.
// Any thread; each object owns a copy of its message.
#pragma once

#include <string>

class Exception {
public:
    explicit Exception(const std::string& message = "") : m_message(message) {}
    virtual ~Exception() = default;
    const char* getMessage() const { return m_message.c_str(); }

private:
    std::string m_message;
};
