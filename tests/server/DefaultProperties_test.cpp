// Default property values written at start-up: the file format, the four
// types, and existing values left alone.
#include <gtest/gtest.h>

#include <cstdlib>

#include "AIMClient.h"
#include "GUIDataServer.h"
#include "TestRoot.h"

namespace {

// The defaults file, named by the environment, is applied at start-up.
TEST(DefaultProperties, FileLinesBecomeProperties)
{
    TestRoot root;
    AIMClient aim("test", 1);
    ASSERT_TRUE(aim.initialize());
    aim.setProperty("hostname", "kept", true);
    std::string file = root.writeFile("/elsewhere/defaults",
                                      "# comment, with, commas, here\nn,count,int,12\nbad,badint,int,12abc\n"
                                      "empty,emptyint,int,\ny,badbool,bool,yes\nd,motd,str,a,b,c\n"
                                      "two,commas,only\no,other,float,1.5\np,secret,crypt,s3cret\n"
                                      "h,hostname,str,fresh\nlast,lastline,str,no line end");
    setenv("MORVANE_DEF_PROP_FILE", file.c_str(), 1);
    GUIDataServer server;
    testing::internal::CaptureStdout();
    server.setDefaultProperties();
    testing::internal::GetCapturedStdout();
    unsetenv("MORVANE_DEF_PROP_FILE");
    const std::pair<const char*, const char*> texts[] = {
        {"count", "12"},        {"badint", "<unset>"}, {"emptyint", "0"},
        {"badbool", "<unset>"}, {"motd", "a,b,c"},     {"other", "<unset>"},
        {"commas", "<unset>"},  {"hostname", "kept"},  {"lastline", "no line end"}};
    for (const auto& [name, text] : texts) {
        char buf[AIMClient::kMaxValue + 1] = "";
        EXPECT_EQ(text, std::string(aim.getProperty(name, buf) ? buf : "<unset>")) << name;
    }
    char secret[AIMClient::kMaxValue + 1] = "";
    EXPECT_TRUE(aim.getPropertyCrypt("secret", secret));
    EXPECT_STREQ("s3cret", secret);
    std::string tlog = root.readFile("/var/log/tlog");
    EXPECT_EQ(std::string::npos, tlog.find("s3cret")) << "crypt values are never logged";
    EXPECT_NE(std::string::npos, tlog.find("Failed to load property definition from line number 7: two,commas,only"));
}

}  // namespace
