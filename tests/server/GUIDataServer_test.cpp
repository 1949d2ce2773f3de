// Start-up of the server object: port precedence and the platform property.
#include "GUIDataServer.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <tuple>

#include "DataAgent.h"
#include "TestRoot.h"

namespace {

// Runs initialize() with `args` on a root holding an empty configuration;
// returns the legacy port chosen.
int initializeWith(TestRoot& root, std::vector<std::string> args)
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
    testing::internal::GetCapturedStdout();
    return server.getPort();
}

TEST(GUIDataServer, PortPrecedenceAndPlatform)
{
    // what, arguments, DATA_SERVER_PORT (or null), the legacy port chosen
    const std::tuple<const char*, std::vector<std::string>, const char*, int> cases[] = {
        {"default", {}, nullptr, 8195},
        {"option wins over environment", {"-port", "9003"}, "9004", 9003},
        {"environment", {}, "9002", 9002},
        {"bad option keeps default and ignores environment", {"-port", "12x"}, "9005", 8195},
        // outside 1-65535 is not a port (bind would wrap it)
        {"negative option", {"-port", "-5"}, nullptr, 8195},
        {"option above 65535", {"-port", "70000"}, nullptr, 8195},
        {"zero in the environment", {}, "0", 8195},
        {"highest port", {"-port", "65535"}, nullptr, 65535},
    };
    DataAgent::resetPlatformCache();
    unsetenv("MORVANE_DEF_PROP_FILE");
    for (const auto& [what, args, env, port] : cases) {
        TestRoot root;
        root.writeFile("/etc/product", "kestin\n");
        if (env != nullptr) {
            setenv("DATA_SERVER_PORT", env, 1);
        }
        EXPECT_EQ(port, initializeWith(root, args)) << what;
        unsetenv("DATA_SERVER_PORT");
        // The platform is published without a defaults file.
        AIMClient aim("test", 1);
        int platform = -1;
        EXPECT_TRUE(aim.initialize() && aim.getProperty("sysPlatform", platform));
        EXPECT_EQ(PLATFORM_KESTIN, platform);
    }
}

}  // namespace
