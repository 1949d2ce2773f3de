// RequestToken: one token of a request, either a run of text or a single
// delimiter character, with typed readers for argument values. A plain
// copyable value; any thread, no shared state.
#pragma once

#include <cstdint>
#include <string>

// Thrown by the readers below; agents that read tokens catch them.
#include "NumberFormatException.h"
#include "ProcessingException.h"
#include "RequestFormatException.h"

class RequestToken {
public:
    enum TokenType : int32_t {
        TEXT = 1,   // a run of text between delimiters
        DELIM = 4,  // one delimiter character
    };

    // A TEXT token with empty text.
    RequestToken();
    RequestToken(TokenType type, const std::string& text);
    // Empty text and the delimiter character `delim`.
    RequestToken(TokenType type, char delim);

    TokenType getType() const { return m_type; }
    char getDelim() const { return m_delim; }

    // The text of a TEXT token; throws RequestFormatException for any other type.
    std::string& getString();
    const std::string& getString() const;
    // TEXT: the text; DELIM: the delimiter as a one-character string; any
    // other type throws the C string "BadTokenType".
    std::string toString() const;

    // Number readers. The whole text is read as strtol/strtod do (leading
    // white space, a sign, and for base 16 a 0x prefix are accepted); the read
    // fails with ProcessingException only when characters are left over, so
    // the empty text reads as 0. Results saturate at the limits of a 32-bit
    // long, as on the controller: getHexInt("FFFFFFFF") is 0x7fffffff while
    // getHexInt("-1") is 0xffffffff.
    int getInt() const;
    unsigned int getHexInt() const;
    // A decimal floating-point text, truncated toward zero to a 32-bit integer
    // (saturating; NaN gives 0) and returned as a float: "2.75" gives 2.0.
    float getFloat() const;
    // True for exactly "true" or "TRUE"; otherwise getInt() > 0.
    bool getBoolean() const;

    // Text becomes the `length` characters of `buffer` from offset `start`;
    // the token becomes a TEXT token. A null buffer or a negative length
    // gives the empty text.
    void setText(const char* buffer, int start, int length);

private:
    TokenType m_type;
    std::string m_text;
    char m_delim;
};
