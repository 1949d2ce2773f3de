// Default property values written at start-up: the file format, the four
// types, and existing values left alone.
#include <gtest/gtest.h>

#include <cstdlib>

#include "AIMClient.h"
#include "DataAgent.h"
#include "GUIDataServer.h"
#include "TestRoot.h"

namespace {

struct Defaults {
    std::string out;
};

// Writes `file` as the defaults file and runs setDefaultProperties() on a
// fresh server; returns what was printed.
std::string applyDefaults(TestRoot& root, const std::string& file)
{
    std::string path = root.writeFile("/usr/local/etc/appweb/default.properties", file);
    unsetenv("MORVANE_DEF_PROP_FILE");
    GUIDataServer server;
    testing::internal::CaptureStdout();
    server.setDefaultProperties();
    return testing::internal::GetCapturedStdout();
}

std::string readText(AIMClient& aim, const char* name)
{
    char buf[AIMClient::kMaxValue + 1] = "";
    return aim.getProperty(name, buf) ? buf : "<unset>";
}

TEST(DefaultProperties, FileLinesBecomeProperties)
{
    TestRoot root;
    std::string file =
        "# comment, with, commas, here\n"
        "\n"
        "ip,net.ip,str,10.0.0.1\n"
        "a, b,str,x\n"
        "n,count,int,12\n"
        "bad,badint,int,12abc\n"
        "empty,emptyint,int,\n"
        "f,flag,bool,untrue\n"
        "g,flag2,bool,false\n"
        "y,badbool,bool,yes\n"
        "d,motd,str,a,b,c\n"
        "two,commas,only\n"
        "   \n"
        "o,other,float,1.5\n"
        "p,secret,crypt,s3cret\n"
        "last,lastline,str,no line end";
    std::string out = applyDefaults(root, file);
    AIMClient aim("test", 1);
    ASSERT_TRUE(aim.initialize());

    struct Expect {
        const char* name;
        const char* text;
    };
    for (const Expect& e : std::vector<Expect>{{"net.ip", "10.0.0.1"},
                                               {" b", "x"},
                                               {"count", "12"},
                                               {"badint", "<unset>"},
                                               {"emptyint", "0"},
                                               {"badbool", "<unset>"},
                                               {"motd", "a,b,c"},
                                               {"other", "<unset>"},
                                               {"lastline", "no line end"}}) {
        EXPECT_EQ(e.text, readText(aim, e.name)) << e.name;
    }
    bool flag = false;
    EXPECT_TRUE(aim.getProperty("flag", flag));
    EXPECT_TRUE(flag);
    EXPECT_TRUE(aim.getProperty("flag2", flag));
    EXPECT_FALSE(flag);
    char secret[AIMClient::kMaxValue + 1] = "";
    EXPECT_TRUE(aim.getPropertyCrypt("secret", secret));
    EXPECT_STREQ("s3cret", secret);

    // Bad lines are reported with their numbers; the blank line fails too.
    EXPECT_EQ(std::string::npos, root.readFile("/var/log/tlog").find("s3cret")) << "crypt values are never logged";
    std::string tlog = root.readFile("/var/log/tlog");
    EXPECT_NE(std::string::npos, tlog.find("Failed to load property definition from line number 12: two,commas,only"));
    EXPECT_NE(std::string::npos, tlog.find("Failed to load property definition from line number 13:"));
    EXPECT_NE(std::string::npos, tlog.find("Failed to parse default int value from 12abc for property: badint"));
    EXPECT_NE(std::string::npos, tlog.find("Failed to parse default bool value from yes for property: badbool"));
    EXPECT_NE(std::string::npos, out.find(" Adding property definition: d, motd, str, a,b,c\n"));
}

TEST(DefaultProperties, ExistingValuesAreKept)
{
    TestRoot root;
    {
        AIMClient aim("test", 1);
        ASSERT_TRUE(aim.initialize());
        aim.setProperty("sshPort", 2222, true);
        aim.setProperty("hostname", "kept", true);
    }
    applyDefaults(root, "ssh,sshPort,int,22\nh,hostname,str,fresh\nnew,newprop,str,v\n");
    AIMClient aim("test", 1);
    ASSERT_TRUE(aim.initialize());
    int port = 0;
    EXPECT_TRUE(aim.getProperty("sshPort", port));
    EXPECT_EQ(2222, port);
    EXPECT_EQ("kept", readText(aim, "hostname"));
    EXPECT_EQ("v", readText(aim, "newprop"));
}

TEST(DefaultProperties, EnvironmentNamesTheFile)
{
    TestRoot root;
    std::string other = root.writeFile("/elsewhere/defaults", "x,fromenv,str,yes\n");
    setenv("MORVANE_DEF_PROP_FILE", other.c_str(), 1);
    GUIDataServer server;
    testing::internal::CaptureStdout();
    server.setDefaultProperties();
    testing::internal::GetCapturedStdout();
    unsetenv("MORVANE_DEF_PROP_FILE");
    AIMClient aim("test", 1);
    ASSERT_TRUE(aim.initialize());
    EXPECT_EQ("yes", readText(aim, "fromenv"));
}

}  // namespace
