// Typed readers of request tokens: number conversion, saturation, failures.
#include "RequestToken.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <vector>

namespace {
using namespace std::string_literals;

TEST(RequestToken, NumberReadersReadTheWholeTextAndSaturate)
{
    // reader (int, hex: saturates as a signed 32-bit long then reinterprets the bits, float: truncated toward
    // zero to 32 bits, boolean), text -> the value printed, or "throws" for a ProcessingException
    using Cases = std::vector<std::pair<std::string, std::string>>;
    const std::pair<char, Cases> tables[] = {
        {'i', {{"", "0"}, {"\t-5", "-5"}, {"12 ", "throws"}, {"1\0"s, "throws"}, {"2147483648", "2147483647"}}},
        {'h', {{"0x10", "16"}, {"80000000", "2147483647"}, {"-1", "4294967295"}, {"ff ", "throws"}}},
        {'f', {{"-2.9", "-2"}, {"1e20", "2147483648"}, {"-1e20", "-2147483648"}, {"nan", "0"}, {"1.5x", "throws"}}},
        {'b', {{"TRUE", "true"}, {"7", "true"}, {"-3", "false"}, {"false", "throws"}}},
    };
    for (const auto& [reader, cases] : tables) {
        for (const auto& [text, expected] : cases) {
            RequestToken t(RequestToken::TEXT, text);
            std::ostringstream got;
            got << std::boolalpha;
            try {
                reader == 'i'   ? got << t.getInt()
                : reader == 'h' ? got << t.getHexInt()
                : reader == 'f' ? got << std::setprecision(10) << t.getFloat()
                                : got << t.getBoolean();
            } catch (const ProcessingException&) {
                got << "throws";
            }
            EXPECT_EQ(expected, got.str()) << reader << " \"" << text << "\"";
        }
    }
}

TEST(RequestToken, FailuresAndSlices)
{
    try {  // the text must not be used as a format
        RequestToken(RequestToken::TEXT, "%s%n").getInt();
        ADD_FAILURE();
    } catch (const ProcessingException& e) {
        EXPECT_EQ("Cannot parse int from \"%s%n\"", std::string(e.getMessage()));
    }
    RequestToken token(RequestToken::DELIM, ':');
    EXPECT_THROW(token.getString(), RequestFormatException);
    const char buffer[] = "hello\0world";
    token.setText(buffer, 4, 3);  // a slice, made text
    EXPECT_EQ("o\0w"s, token.getString());
}

}  // namespace
