#include "RequestFormatException.h"

RequestFormatException::RequestFormatException(const std::string& message) : m_message(message) {}

RequestFormatException::RequestFormatException(const char* message) : m_message(message ? message : "") {}

RequestFormatException::~RequestFormatException() = default;
