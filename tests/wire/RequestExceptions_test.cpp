// ProcessingException and SecurityException: formatting, the 1024-byte cut,
// ownership of the message across copies.
#include <gtest/gtest.h>

#include "ProcessingException.h"
#include "SecurityException.h"

namespace {

template <typename E>
class OwnedMessageException : public testing::Test {
};

using ExceptionTypes = testing::Types<ProcessingException, SecurityException>;
TYPED_TEST_SUITE(OwnedMessageException, ExceptionTypes);

TYPED_TEST(OwnedMessageException, CutsAt1023AndCopiesOwnTheirMessage)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(std::string(1023, 'x'), TypeParam("%s", std::string(3000, 'x').c_str()).getMessage());
    std::string text = "denied";
    TypeParam original(7, text.c_str());
    text[0] = 'X';  // the exception keeps its own copy
    TypeParam assigned(1, nullptr);
    TypeParam copy(original);
    assigned = copy;
    assigned = assigned;
    testing::internal::GetCapturedStdout();
    EXPECT_NE(original.getMessage(), assigned.getMessage());
    EXPECT_STREQ("denied", assigned.getMessage());
    EXPECT_EQ(7, assigned.getCode());
}

}  // namespace
