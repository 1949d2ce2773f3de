// SecurityException: a request refused because the requester lacks the rights for it;
// request processing puts its message into the error reply. Any thread; each
// object owns a heap copy of its message, duplicated on copy, freed on destruction.
#pragma once

class SecurityException {
public:
    // Keeps `code` and a copy of `message` (null is kept as the empty text).
    SecurityException(int code, const char* message);
    // Code 0; the message is formatted printf-style into a 1024-byte buffer, so
    // only the first 1023 characters of a longer message are kept. Also prints
    // " SecurityException: <message>" on standard output.
    explicit SecurityException(const char* format, ...) __attribute__((format(printf, 2, 3)));
    SecurityException(const SecurityException& other);
    SecurityException& operator=(const SecurityException& other);
    virtual ~SecurityException();

    const char* getMessage() const { return m_message; }
    int getCode() const { return m_code; }

private:
    static constexpr int kFormatBufferSize = 1024;

    char* m_message;
    int m_code;
};
