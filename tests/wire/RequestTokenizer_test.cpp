// Cutting requests into tokens: delimiters, escapes, quotes.
#include "RequestTokenizer.h"

#include <gtest/gtest.h>

namespace {
using namespace std::string_literals;

// "T[text]" per TEXT token, "D[c]" per DELIM token.
std::string describe(const std::vector<RequestToken>& tokens)
{
    std::string out;
    for (const auto& t : tokens) {
        out += t.getType() == RequestToken::TEXT ? "T[" + t.getString() + "]" : "D[" + t.toString() + "]";
    }
    return out;
}

TEST(RequestTokenizer, Tokenize)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"get=a(1)&b?", "T[get]D[=]T[a]D[(]T[1]D[)]D[&]T[b]D[?]"},
        {"a,, b ", "T[a]D[,]D[,]T[ b ]"},
        // Escapes: the next character is literal, the backslash dropped.
        {"a\\\\,b\\,", "T[a\\]D[,]T[b,]"},
        {"ab\\", "T[ab\\]"},
        // Quotes: kept, delimiters and backslashes inside are plain text.
        {"a\"x,y\"b,c", "T[a\"x,y\"b]D[,]T[c]"},
        {"\"a\\\"b,c", "T[\"a\\\"b]D[,]T[c]"},
        {"x\"a,b", "T[x\"a,b]"},
        // NUL is never a delimiter.
        {"a\0b,c"s, "T[a\0b]D[,]T[c]"s},
    };
    RequestTokenizer tokenizer("(),=&:?");
    for (const auto& [request, expected] : cases) {
        std::vector<RequestToken> tokens;
        tokenizer.tokenize(request, tokens);
        EXPECT_EQ(expected, describe(tokens)) << "request \"" << request << "\"";
    }
    // Tokens are appended; each tokenizer has its own delimiters.
    std::vector<RequestToken> tokens{RequestToken(RequestToken::TEXT, "old"s)};
    RequestTokenizer("/").tokenize("a,b/c", tokens);
    EXPECT_EQ("T[old]T[a,b]D[/]T[c]", describe(tokens));
}

}  // namespace
