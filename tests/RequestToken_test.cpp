// Typed readers of request tokens: number conversion, saturation, failures.
#include "RequestToken.h"

#include <gtest/gtest.h>

#include <climits>
#include <optional>

namespace {

RequestToken text(const std::string& s)
{
    return RequestToken(RequestToken::TEXT, s);
}

struct IntCase {
    std::string text;
    std::optional<long long> expected;  // nullopt: the read must fail
};

TEST(RequestToken, GetIntReadsWholeTextAndSaturates)
{
    const IntCase cases[] = {
        {"", 0},
        {"12", 12},
        {" 12", 12},
        {"\t-5", -5},
        {"+7", 7},
        {"12 ", std::nullopt},
        {"0x10", std::nullopt},
        {"1.5", std::nullopt},
        {"abc", std::nullopt},
        {" ", std::nullopt},
        {"-", std::nullopt},
        {std::string("1\0", 2), std::nullopt},
        {"2147483647", INT_MAX},
        {"2147483648", INT_MAX},
        {"-2147483648", INT_MIN},
        {"-2147483649", INT_MIN},
        {"99999999999999999999999", INT_MAX},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("text \"" + c.text + "\"");
        if (c.expected) {
            EXPECT_EQ(*c.expected, text(c.text).getInt());
        } else {
            EXPECT_THROW(text(c.text).getInt(), ProcessingException);
        }
    }
}

TEST(RequestToken, GetHexIntSaturatesAsSignedThenReinterprets)
{
    const IntCase cases[] = {
        {"", 0u},
        {"0x10", 16u},
        {"10", 16u},
        {"0X1f", 31u},
        {" ff", 255u},
        {"7fffffff", 0x7fffffffu},
        {"80000000", 0x7fffffffu},
        {"FFFFFFFF", 0x7fffffffu},
        {"-1", 0xffffffffu},
        {"-80000000", 0x80000000u},
        {"-FFFFFFFFFF", 0x80000000u},
        {"ff ", std::nullopt},
        {"0x", std::nullopt},
        {"g", std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("text \"" + c.text + "\"");
        if (c.expected) {
            EXPECT_EQ(static_cast<unsigned int>(*c.expected), text(c.text).getHexInt());
        } else {
            EXPECT_THROW(text(c.text).getHexInt(), ProcessingException);
        }
    }
}

struct FloatCase {
    std::string text;
    std::optional<float> expected;
};

TEST(RequestToken, GetFloatTruncatesTowardZero)
{
    const FloatCase cases[] = {
        {"", 0.0f},
        {"2.75", 2.0f},
        {"-2.9", -2.0f},
        {"1e3", 1000.0f},
        {"  3.99", 3.0f},
        {"-0.5", 0.0f},
        {"1e20", 2147483647.0f},
        {"-1e20", -2147483648.0f},
        {"inf", 2147483647.0f},
        {"nan", 0.0f},
        {"abc", std::nullopt},
        {"1.5 ", std::nullopt},
        {"1.5x", std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("text \"" + c.text + "\"");
        if (c.expected) {
            EXPECT_EQ(*c.expected, text(c.text).getFloat());
        } else {
            EXPECT_THROW(text(c.text).getFloat(), ProcessingException);
        }
    }
}

TEST(RequestToken, ConversionFailuresNameTheText)
{
    auto messageOf = [](auto read) -> std::string {
        try {
            read();
        } catch (const ProcessingException& e) {
            return e.getMessage();
        }
        return "(no exception)";
    };
    EXPECT_EQ("Cannot parse int from \"1 2\"", messageOf([] { text("1 2").getInt(); }));
    EXPECT_EQ("Cannot parse int from hex string \"zz\"", messageOf([] { text("zz").getHexInt(); }));
    EXPECT_EQ("Cannot parse int from \"abc\"", messageOf([] { text("abc").getFloat(); }));
    // A text containing a conversion directive must not be used as a format.
    EXPECT_EQ("Cannot parse int from \"%s%n\"", messageOf([] { text("%s%n").getInt(); }));
}

TEST(RequestToken, GetBoolean)
{
    for (const char* t : {"true", "TRUE", "1", "7"}) {
        EXPECT_TRUE(text(t).getBoolean()) << t;
    }
    for (const char* t : {"0", "", "-3"}) {
        EXPECT_FALSE(text(t).getBoolean()) << t;
    }
    for (const char* t : {"false", "True", "yes", " true"}) {
        EXPECT_THROW(text(t).getBoolean(), ProcessingException) << t;
    }
}

TEST(RequestToken, TypeChecksOfTextAccess)
{
    RequestToken delim(RequestToken::DELIM, ':');
    try {
        delim.getString();
        FAIL() << "no exception";
    } catch (const RequestFormatException& e) {
        EXPECT_EQ("Token is not of type TEXT.", e.getMessage());
    }
    EXPECT_EQ(":", delim.toString());
    EXPECT_EQ(0, delim.getInt());  // the empty text

    RequestToken bad(static_cast<RequestToken::TokenType>(2), std::string("x"));
    EXPECT_THROW(bad.getString(), RequestFormatException);
    try {
        bad.toString();
        FAIL() << "no exception";
    } catch (const char* e) {
        EXPECT_STREQ("BadTokenType", e);
    }

    RequestToken empty;
    EXPECT_EQ(RequestToken::TEXT, empty.getType());
    EXPECT_EQ("", empty.getString());
    EXPECT_EQ(0, empty.getDelim());
}

TEST(RequestToken, SetTextTakesASliceAndMakesText)
{
    const char buffer[] = "hello\0world";
    RequestToken token(RequestToken::DELIM, ',');
    token.setText(buffer, 6, 5);
    EXPECT_EQ(RequestToken::TEXT, token.getType());
    EXPECT_EQ("world", token.getString());
    token.setText(buffer, 4, 3);
    EXPECT_EQ(std::string("o\0w", 3), token.getString());
    token.setText(buffer, 2, 0);
    EXPECT_EQ("", token.getString());
    token.setText(nullptr, 0, 4);
    EXPECT_EQ("", token.getString());
}

}  // namespace
