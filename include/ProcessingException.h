// ProcessingException: a request-time failure, such as a value that cannot be converted;
// request processing puts its message into the error reply. Any thread; each
// object owns a heap copy of its message, duplicated on copy, freed on destruction.
#pragma once

class ProcessingException {
public:
    // Keeps `code` and a copy of `message` (null is kept as the empty text).
    ProcessingException(int code, const char* message);
    // Code 0; the message is formatted printf-style into a 1024-byte buffer, so
    // only the first 1023 characters of a longer message are kept. Also prints
    // " ProcessingException: <message>" on standard output.
    explicit ProcessingException(const char* format, ...) __attribute__((format(printf, 2, 3)));
    ProcessingException(const ProcessingException& other);
    ProcessingException& operator=(const ProcessingException& other);
    virtual ~ProcessingException();

    const char* getMessage() const { return m_message; }
    int getCode() const { return m_code; }

private:
    static constexpr int kFormatBufferSize = 1024;

    char* m_message;
    int m_code;
};
