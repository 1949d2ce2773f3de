// Start-up of the server object: option and environment precedence and the
// platform property.
#include "GUIDataServer.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "DataAgent.h"
#include "TestRoot.h"

namespace {

// Runs initialize() with `args` on a root holding an empty configuration.
struct Started {
    int port;
    std::string out;
};

Started initializeWith(TestRoot& root, std::vector<std::string> args)
{
    std::string conf = root.writeFile("/etc/dataserver.conf", "");
    args.insert(args.begin(), {"gds", "-configfile", conf});
    std::vector<char*> argv;
    for (std::string& a : args) {
        argv.push_back(&a[0]);
    }
    argv.push_back(nullptr);
    GUIDataServer server;
    testing::internal::CaptureStdout();
    server.initialize(static_cast<int>(args.size()), argv.data());
    return {server.getPort(), testing::internal::GetCapturedStdout()};
}

struct PortCase {
    const char* what;
    std::vector<std::string> args;
    const char* env;  // DATA_SERVER_PORT, or null
    int port;
};

void PrintTo(const PortCase& c, std::ostream* os)
{
    *os << c.what;
}

class PortPrecedence : public testing::TestWithParam<PortCase> {};

TEST_P(PortPrecedence, ChoosesLegacyPort)
{
    const PortCase& c = GetParam();
    TestRoot root;
    if (c.env != nullptr) {
        setenv("DATA_SERVER_PORT", c.env, 1);
    } else {
        unsetenv("DATA_SERVER_PORT");
    }
    Started s = initializeWith(root, c.args);
    unsetenv("DATA_SERVER_PORT");
    EXPECT_EQ(c.port, s.port) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PortPrecedence,
    testing::Values(PortCase{"default", {}, nullptr, 8195}, PortCase{"option", {"-port", "9001"}, nullptr, 9001},
                    PortCase{"environment", {}, "9002", 9002},
                    PortCase{"option wins over environment", {"-port", "9003"}, "9004", 9003},
                    PortCase{"bad option keeps default and ignores environment", {"-port", "12x"}, "9005", 8195},
                    PortCase{"bad environment keeps default", {}, "abc", 8195},
                    PortCase{"empty environment keeps default", {}, "", 8195}),
    [](const testing::TestParamInfo<PortCase>& info) { return TestRoot::caseName(info.param.what); });

TEST(GUIDataServer, LogOptionWinsAndTruncatesItsFile)
{
    TestRoot root;
    std::string optionLog = root.writeFile("/var/log/option.log", "old contents\n");
    std::string envLog = root.path("/var/log/env.log");
    setenv("MORVANE_DATASERVER_DEBUG", envLog.c_str(), 1);
    Started s = initializeWith(root, {"-log", optionLog});
    unsetenv("MORVANE_DATASERVER_DEBUG");
    EXPECT_NE(std::string::npos, s.out.find(" Writing to log file: " + optionLog + "\n"));
    EXPECT_EQ(std::string::npos, root.readFile("/var/log/option.log").find("old contents"));
    EXPECT_FALSE(root.exists("/var/log/env.log"));
}

TEST(GUIDataServer, PlatformIsPublishedWithoutDefaultsFile)
{
    TestRoot root;
    root.writeFile("/etc/product", "kestin\n");
    DataAgent::resetPlatformCache();
    unsetenv("MORVANE_DEF_PROP_FILE");
    initializeWith(root, {});
    AIMClient aim("test", 1);
    ASSERT_TRUE(aim.initialize());
    int platform = -1;
    EXPECT_TRUE(aim.getProperty("sysPlatform", platform));
    EXPECT_EQ(PLATFORM_KESTIN, platform);
}

}  // namespace
