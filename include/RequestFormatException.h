// RequestFormatException: thrown when a request does not follow the request
// grammar (also by RequestToken::getString on a delimiter token). Any thread;
// each object owns its copy of the message. The reply never shows the message.
#pragma once

#include <string>

class RequestFormatException {
public:
    explicit RequestFormatException(const std::string& message);
    // A null message is kept as the empty text.
    explicit RequestFormatException(const char* message);
    RequestFormatException(const RequestFormatException& other) = default;
    RequestFormatException& operator=(const RequestFormatException& other) = default;
    virtual ~RequestFormatException();

    const std::string& getMessage() const { return m_message; }

private:
    std::string m_message;
};
