// Typed readers of request tokens: number conversion, saturation, failures.
#include "RequestToken.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <vector>

namespace {
using namespace std::string_literals;

RequestToken text(const std::string& s)
{
    return RequestToken(RequestToken::TEXT, s);
}

// For each {text, expected}: what `read` gives for a TEXT token of that text,
// printed, or "throws" for a ProcessingException.
using Cases = std::vector<std::pair<std::string, std::string>>;
template <typename R>
void expectReads(R read, const Cases& cases)
{
    for (const auto& [in, expected] : cases) {
        std::ostringstream got;
        try {
            got << std::boolalpha << std::setprecision(10) << read(text(in));
        } catch (const ProcessingException&) {
            got << "throws";
        }
        EXPECT_EQ(expected, got.str()) << "text \"" << in << "\"";
    }
}

// What `read` throws, and its message.
template <typename F>
std::string thrown(F read)
{
    try {
        read();
    } catch (const ProcessingException& e) {
        return "processing: "s + e.getMessage();
    } catch (const RequestFormatException& e) {
        return "format: " + e.getMessage();
    } catch (const char* e) {
        return "C string: "s + e;
    }
    return "(no exception)";
}

TEST(RequestToken, NumberReadersReadTheWholeTextAndSaturate)
{
    const Cases ints = {{"", "0"},
                        {"\t-5", "-5"},
                        {"+7", "7"},
                        {"12 ", "throws"},
                        {"0x10", "throws"},
                        {"-", "throws"},
                        {"1\0"s, "throws"},
                        {"2147483648", "2147483647"},
                        {"-2147483649", "-2147483648"},
                        {"9999999999999999999999", "2147483647"}};
    expectReads([](const RequestToken& t) { return t.getInt(); }, ints);
    // Saturates as a signed 32-bit long, then reinterprets the bits.
    const Cases hex = {{"", "0"},
                       {"0x10", "16"},
                       {" 0X1f", "31"},
                       {"80000000", "2147483647"},
                       {"-1", "4294967295"},
                       {"-FFFFFFFFFF", "2147483648"},
                       {"ff ", "throws"},
                       {"0x", "throws"}};
    expectReads([](const RequestToken& t) { return t.getHexInt(); }, hex);
    // Truncated toward zero to a 32-bit integer.
    const Cases floats = {{"", "0"},     {"2.75", "2"},          {"-2.9", "-2"},           {" 1e3", "1000"},
                          {"-0.5", "0"}, {"1e20", "2147483648"}, {"-1e20", "-2147483648"}, {"inf", "2147483648"},
                          {"nan", "0"},  {"1.5 ", "throws"},     {"1.5x", "throws"}};
    expectReads([](const RequestToken& t) { return t.getFloat(); }, floats);
    const Cases booleans = {{"true", "true"}, {"TRUE", "true"},   {"7", "true"},       {"0", "false"},
                            {"-3", "false"},  {"True", "throws"}, {"false", "throws"}, {" true", "throws"}};
    expectReads([](const RequestToken& t) { return t.getBoolean(); }, booleans);
}

TEST(RequestToken, FailuresNameTheText)
{
    EXPECT_EQ("processing: Cannot parse int from \"1 2\"", thrown([] { text("1 2").getInt(); }));
    EXPECT_EQ("processing: Cannot parse int from hex string \"zz\"", thrown([] { text("zz").getHexInt(); }));
    EXPECT_EQ("processing: Cannot parse int from \"abc\"", thrown([] { text("abc").getFloat(); }));
    // A text containing a conversion directive must not be used as a format.
    EXPECT_EQ("processing: Cannot parse int from \"%s%n\"", thrown([] { text("%s%n").getInt(); }));

    RequestToken delim(RequestToken::DELIM, ':'), bad(static_cast<RequestToken::TokenType>(2), "x"s);
    EXPECT_EQ("format: Token is not of type TEXT.", thrown([&] { delim.getString(); }));
    EXPECT_EQ(":", delim.toString());
    EXPECT_EQ(0, delim.getInt());  // the empty text
    EXPECT_EQ("format: Token is not of type TEXT.", thrown([&] { bad.getString(); }));
    EXPECT_EQ("C string: BadTokenType", thrown([&] { bad.toString(); }));
}

TEST(RequestToken, SetTextTakesASliceAndMakesText)
{
    const char buffer[] = "hello\0world";
    RequestToken token(RequestToken::DELIM, ',');
    token.setText(buffer, 6, 5);
    EXPECT_EQ(RequestToken::TEXT, token.getType());
    EXPECT_EQ("world", token.getString());
    token.setText(buffer, 4, 3);
    EXPECT_EQ("o\0w"s, token.getString());
    token.setText(nullptr, 0, 4);
    EXPECT_EQ("", token.getString());
    EXPECT_EQ(RequestToken::TEXT, RequestToken().getType());
}

}  // namespace
