// ProcessingException and SecurityException: formatting, the 1024-byte cut,
// the standard-output line, ownership of the message across copies.
#include <gtest/gtest.h>

#include "ProcessingException.h"
#include "SecurityException.h"

namespace {

template <typename E>
class OwnedMessageException : public testing::Test {
};

using ExceptionTypes = testing::Types<ProcessingException, SecurityException>;
TYPED_TEST_SUITE(OwnedMessageException, ExceptionTypes);

std::string prefixOf(const ProcessingException*)
{
    return " ProcessingException: ";
}
std::string prefixOf(const SecurityException*)
{
    return " SecurityException: ";
}

TYPED_TEST(OwnedMessageException, FormatsPrintsAndCutsAt1023)
{
    const std::string prefix = prefixOf(static_cast<TypeParam*>(nullptr));
    const std::string longText(3000, 'x');
    const struct {
        std::string argument;
        std::string expected;
    } cases[] = {
        {"value 5", "value 5"},
        {"", ""},
        {std::string(1023, 'y'), std::string(1023, 'y')},
        {longText, longText.substr(0, 1023)},
    };
    for (const auto& c : cases) {
        testing::internal::CaptureStdout();
        TypeParam e("%s", c.argument.c_str());
        std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_EQ(c.expected, e.getMessage());
        EXPECT_EQ(0, e.getCode());
        EXPECT_EQ(prefix + c.expected + "\n", printed);
    }
}

TYPED_TEST(OwnedMessageException, CopiesOwnTheirMessage)
{
    std::string text = "denied";
    TypeParam original(7, text.c_str());
    text[0] = 'X';  // the exception keeps its own copy
    TypeParam copy(original);
    TypeParam assigned(1, nullptr);
    EXPECT_STREQ("", assigned.getMessage());
    assigned = copy;
    assigned = assigned;
    EXPECT_NE(original.getMessage(), copy.getMessage());
    EXPECT_STREQ("denied", copy.getMessage());
    EXPECT_STREQ("denied", assigned.getMessage());
    EXPECT_EQ(7, assigned.getCode());

    try {
        throw TypeParam("code %d", 42);
    } catch (const TypeParam& e) {
        EXPECT_STREQ("code 42", e.getMessage());
    }
}

}  // namespace
