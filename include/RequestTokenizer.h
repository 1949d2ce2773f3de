// RequestTokenizer: cuts a request into TEXT and DELIM tokens for a fixed set
// of delimiter characters. One per connection, used by that connection's
// thread only; keeps no state between calls and owns only its delimiter set.
#pragma once

#include <string>
#include <vector>

#include "RequestToken.h"
#include "TokenMap.h"

class RequestTokenizer {
public:
    // Every character of `delimiters` is a delimiter (null: none).
    explicit RequestTokenizer(const char* delimiters);

    // Appends the tokens of `request` to `tokens` (which is not cleared).
    // A backslash takes the next character literally (a trailing backslash is
    // plain text); a double quote runs to the next double quote, quotes kept,
    // or to the end of the request. No TEXT token is empty and no two TEXT
    // tokens are adjacent.
    void tokenize(const std::string& request, std::vector<RequestToken>& tokens) const;

    // Replaces every backslash-colon in `request` by a colon, echoing the
    // request and each step to standard output.
    static void decodeRequest(std::string& request);

    // The base-10 number at the start of the first argument of `name` (text
    // after it is ignored); -1 when `name` has no arguments or the argument
    // does not start with a number.
    static int getFirstByte(TokenMap& map, const char* name);

private:
    std::string m_delimiters;
};
