// NumberFormatException: thrown by AInteger::parseInt for text that is not a
// whole base-10 number fitting an int. Any thread.
#pragma once

#include "Exception.h"

class NumberFormatException : public Exception {
public:
    explicit NumberFormatException(const std::string& message) : Exception(message) {}
};
