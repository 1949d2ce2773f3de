// Cutting requests into tokens, decoding escaped colons, leading numbers.
#include "RequestTokenizer.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

// "T[text]" per TEXT token, "D[c]" per DELIM token.
std::string describe(const std::vector<RequestToken>& tokens)
{
    std::string out;
    for (const auto& t : tokens) {
        if (t.getType() == RequestToken::TEXT) {
            out += "T[" + t.getString() + "]";
        } else {
            out += "D[" + std::string(1, t.getDelim()) + "]";
        }
    }
    return out;
}

std::string tokenize(const std::string& request)
{
    RequestTokenizer tokenizer("(),=&:?");
    std::vector<RequestToken> tokens;
    tokenizer.tokenize(request, tokens);
    return describe(tokens);
}

TEST(RequestTokenizer, Tokenize)
{
    const struct {
        std::string request;
        std::string expected;
    } cases[] = {
        {"", ""},
        {"set=sshPort:22,sshTimeout:300", "T[set]D[=]T[sshPort]D[:]T[22]D[,]T[sshTimeout]D[:]T[300]"},
        {"get=a(1)&b?", "T[get]D[=]T[a]D[(]T[1]D[)]D[&]T[b]D[?]"},
        {"a,,b", "T[a]D[,]D[,]T[b]"},
        {"a,", "T[a]D[,]"},
        {",", "D[,]"},
        {" a = b ", "T[ a ]D[=]T[ b ]"},
        // Escapes: the next character is literal, the backslash dropped.
        {"\\,", "T[,]"},
        {"v:\\(x\\)", "T[v]D[:]T[(x)]"},
        {"a\\\\,b", "T[a\\]D[,]T[b]"},
        {"\\\"a,b", "T[\"a]D[,]T[b]"},
        {"ab\\", "T[ab\\]"},
        {"a,\\", "T[a]D[,]T[\\]"},
        // Quotes: kept, delimiters and backslashes inside are plain text.
        {"v:\"a,b\",c", "T[v]D[:]T[\"a,b\"]D[,]T[c]"},
        {"a\"x,y\"b,c", "T[a\"x,y\"b]D[,]T[c]"},
        {"\"a\\\"b,c", "T[\"a\\\"b]D[,]T[c]"},
        {"\"\"", "T[\"\"]"},
        {"x\"a,b", "T[x\"a,b]"},
        {"x\"", "T[x\"]"},
        // NUL is never a delimiter.
        {std::string("a\0b,c", 5), std::string("T[a\0b]D[,]T[c]", 14)},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.expected, tokenize(c.request)) << "request \"" << c.request << "\"";
    }
}

TEST(RequestTokenizer, AppendsAndUsesItsOwnDelimiterSet)
{
    std::vector<RequestToken> tokens{RequestToken(RequestToken::TEXT, std::string("old"))};
    RequestTokenizer("/").tokenize("a,b/c", tokens);
    EXPECT_EQ("T[old]T[a,b]D[/]T[c]", describe(tokens));

    tokens.clear();
    RequestTokenizer(nullptr).tokenize("a,b", tokens);
    EXPECT_EQ("T[a,b]", describe(tokens));
}

TEST(RequestTokenizer, DecodeRequest)
{
    const struct {
        std::string request;
        std::string decoded;
        std::string printed;
    } cases[] = {
        {"a\\:b\\:c", "a:b:c", " Request URL: a\\:b\\:c\n  Modified URL: a:\n  Modified URL: a:b:\n"},
        {"abc", "abc", " Request URL: abc\n"},
        {"\\:", ":", " Request URL: \\:\n  Modified URL: :\n"},
        {"x\\\\:y", "x\\:y", " Request URL: x\\\\:y\n  Modified URL: x\\:\n"},
        {"a\\", "a\\", " Request URL: a\\\n"},
        {"%s\\:%n", "%s:%n", " Request URL: %s\\:%n\n  Modified URL: %s:\n"},
    };
    for (const auto& c : cases) {
        std::string request = c.request;
        testing::internal::CaptureStdout();
        RequestTokenizer::decodeRequest(request);
        std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_EQ(c.decoded, request) << c.request;
        EXPECT_EQ(c.printed, printed) << c.request;
    }
}

TEST(RequestTokenizer, GetFirstByte)
{
    TokenMap map;
    auto text = [](const char* s) { return RequestToken(RequestToken::TEXT, std::string(s)); };
    map["trailing"] = {text("12abc"), text("99")};
    map["letter"] = {text("x1")};
    map["blank"] = {text(" 7")};
    map["negative"] = {text("-3")};
    map["huge"] = {text("99999999999")};
    map["sign"] = {text("-")};
    map["delim"] = {RequestToken(RequestToken::DELIM, ':')};
    map["none"] = {};

    const struct {
        const char* name;
        int expected;
    } cases[] = {
        {"trailing", 12}, {"letter", -1}, {"blank", 7}, {"negative", -3}, {"huge", INT_MAX},
        {"sign", -1},     {"delim", -1},  {"none", -1}, {"absent", -1},   {nullptr, -1},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.expected, RequestTokenizer::getFirstByte(map, c.name)) << (c.name ? c.name : "(null)");
    }
}

}  // namespace
