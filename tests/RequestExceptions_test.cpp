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

TYPED_TEST(OwnedMessageException, FormatsPrintsAndCutsAt1023)
{
    const std::string prefix =
        std::is_same_v<TypeParam, ProcessingException> ? " ProcessingException: " : " SecurityException: ";
    const std::string longText(3000, 'x');
    for (const std::string& argument : {std::string("%d 5"), std::string(1023, 'y'), longText}) {
        const std::string expected = argument.substr(0, 1023);
        testing::internal::CaptureStdout();
        TypeParam e("%s", argument.c_str());
        EXPECT_EQ(prefix + expected + "\n", testing::internal::GetCapturedStdout());
        EXPECT_EQ(expected, e.getMessage());
        EXPECT_EQ(0, e.getCode());
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
