// Cutting requests into tokens, decoding escaped colons, leading numbers.
#include "RequestTokenizer.h"

#include <gtest/gtest.h>

#include <climits>

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
        {"set=sshPort:22,sshTimeout:300", "T[set]D[=]T[sshPort]D[:]T[22]D[,]T[sshTimeout]D[:]T[300]"},
        {"get=a(1)&b?", "T[get]D[=]T[a]D[(]T[1]D[)]D[&]T[b]D[?]"},
        {"a,,b", "T[a]D[,]D[,]T[b]"},
        {" a = b ", "T[ a ]D[=]T[ b ]"},
        // Escapes: the next character is literal, the backslash dropped.
        {"\\,", "T[,]"},
        {"a\\\\,b", "T[a\\]D[,]T[b]"},
        {"\\\"a,b", "T[\"a]D[,]T[b]"},
        {"ab\\", "T[ab\\]"},
        // Quotes: kept, delimiters and backslashes inside are plain text.
        {"v:\"a,b\",c", "T[v]D[:]T[\"a,b\"]D[,]T[c]"},
        {"a\"x,y\"b,c", "T[a\"x,y\"b]D[,]T[c]"},
        {"\"a\\\"b,c", "T[\"a\\\"b]D[,]T[c]"},
        {"\"\"", "T[\"\"]"},
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
    tokens.clear();
    RequestTokenizer(nullptr).tokenize("a,b", tokens);
    EXPECT_EQ("T[a,b]", describe(tokens));
}

TEST(RequestTokenizer, DecodeRequest)
{
    const struct {
        std::string request, decoded, printed;
    } cases[] = {
        {"a\\:b\\:c", "a:b:c", " Request URL: a\\:b\\:c\n  Modified URL: a:\n  Modified URL: a:b:\n"},
        {"abc", "abc", " Request URL: abc\n"},
        {"x\\\\:y", "x\\:y", " Request URL: x\\\\:y\n  Modified URL: x\\:\n"},
        {"a\\", "a\\", " Request URL: a\\\n"},
        {"%s\\:%n", "%s:%n", " Request URL: %s\\:%n\n  Modified URL: %s:\n"},
    };
    for (const auto& c : cases) {
        std::string request = c.request;
        testing::internal::CaptureStdout();
        RequestTokenizer::decodeRequest(request);
        EXPECT_EQ(c.printed, testing::internal::GetCapturedStdout()) << c.request;
        EXPECT_EQ(c.decoded, request) << c.request;
    }
}

TEST(RequestTokenizer, GetFirstByte)
{
    const struct {
        const char *name, *argument;
        int expected;
    } cases[] = {{"trailing", "12abc", 12},        {"letter", "x1", -1}, {"blank", " 7", 7}, {"negative", "-3", -3},
                 {"huge", "99999999999", INT_MAX}, {"sign", "-", -1}};
    TokenMap map;
    for (const auto& c : cases) {
        // Only the first argument counts.
        map[c.name] = {RequestToken(RequestToken::TEXT, c.argument), RequestToken(RequestToken::TEXT, "99"s)};
    }
    map["delim"] = {RequestToken(RequestToken::DELIM, ':')};
    map["none"] = {};
    for (const auto& c : cases) {
        EXPECT_EQ(c.expected, RequestTokenizer::getFirstByte(map, c.name)) << c.name;
    }
    for (const char* name : {"delim", "none", "absent", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(-1, RequestTokenizer::getFirstByte(map, name)) << (name ? name : "(null)");
    }
}

}  // namespace
