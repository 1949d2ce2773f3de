// The real gds binary starting up: sockets, handler libraries and every
// start-up failure with its message and exit status.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "GdsProcess.h"
#include "TestRoot.h"

namespace {

bool canConnect(const char* address, int port)
{
    int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, address, &addr.sin_addr);
    bool ok = connect(s, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    close(s);
    return ok;
}

std::string handlerConfig(const std::string& lib, const std::string& entry)
{
    return "addHandler=test\n[test]\nlibFile=" + lib + "\nentryPoint=" + entry + "\n";
}

TEST(Startup, ListensOnLoopbackAddressOnly)
{
    TestRoot root(true);
    GdsProcess gds(root);
    ASSERT_TRUE(gds.start()) << gds.output();
    EXPECT_TRUE(canConnect("127.0.0.1", gds.legacyPort()));
    EXPECT_TRUE(canConnect("127.0.0.1", gds.nxtGenPort()));
    // Another loopback address reaches the machine but not the server.
    EXPECT_FALSE(canConnect("127.0.0.2", gds.legacyPort()));
    EXPECT_FALSE(canConnect("127.0.0.2", gds.nxtGenPort()));
}

TEST(Startup, LoadsHandlerLibrary)
{
    TestRoot root(true);
    GdsProcess gds(root);
    std::string lib = TestRoot::libDir() + "/libtesthandler.so";
    gds.setConfig(handlerConfig(lib, "testhandler_init"));
    ASSERT_TRUE(gds.start()) << gds.output();
    EXPECT_EQ("loaded\n", root.readFile("/tmp/testhandler.loaded"));
    EXPECT_NE(std::string::npos, gds.output().find(" Initializing library: " + lib + "\n"));
}

struct BadHandlerCase {
    const char* what;
    std::string lib;
    std::string entry;
    std::string message;
};

TEST(Startup, BrokenHandlerLibrariesAreSkipped)
{
    std::string good = TestRoot::libDir() + "/libtesthandler.so";
    std::vector<BadHandlerCase> cases = {
        {"missing library", "/no/such/lib.so", "init", " Failed to load library \"/no/such/lib.so\" with error: "},
        {"missing entry point", good, "no_such_entry",
         " Failed to find entry point \"no_such_entry\" in library \"" + good + "\""},
    };
    for (const BadHandlerCase& c : cases) {
        TestRoot root(true);
        GdsProcess gds(root);
        gds.setConfig(handlerConfig(c.lib, c.entry));
        ASSERT_TRUE(gds.start()) << c.what << "\n" << gds.output();
        std::string out = gds.output();
        EXPECT_NE(std::string::npos, out.find(c.message)) << c.what << "\n" << out;
        EXPECT_NE(std::string::npos, out.find(" Failed to load handler: " + c.lib + "\n")) << c.what;
        EXPECT_FALSE(root.exists("/tmp/testhandler.loaded")) << c.what;
    }
}

TEST(Startup, HandlersBeforeBadSectionHeaderAreLoaded)
{
    TestRoot root(true);
    GdsProcess gds(root);
    std::string lib = TestRoot::libDir() + "/libtesthandler.so";
    gds.setConfig(handlerConfig(lib, "testhandler_init") + "[bad header\naddHandler=late\n");
    ASSERT_TRUE(gds.start()) << gds.output();
    EXPECT_TRUE(root.exists("/tmp/testhandler.loaded"));
    EXPECT_NE(std::string::npos, gds.output().find("Bad section header: token count="));
}

struct FailureCase {
    const char* what;
    std::vector<std::string> args;
    const char* faultFile;  // created in the root first, or null
    int status;
    std::string message;
};

TEST(Startup, FailuresEndWithStatusAndMessage)
{
    std::vector<FailureCase> cases = {
        {"help", {"-help", "-configfile", "/missing"}, nullptr, 0, "  \t-help\t Shows this help information\n"},
        {"missing configuration",
         {"-configfile", "/no/such.conf"},
         nullptr,
         1,
         " Failed to open config file (/no/such.conf)!"},
        {"default configuration name", {}, nullptr, 1, " Failed to open config file (dataserver.conf)!"},
        {"property service unusable",
         {"-configfile", "CONF"},
         "/var/aim/faults/initialize",
         1,
         "Failed to initialize AIM."},
    };
    for (const FailureCase& c : cases) {
        TestRoot root(true);
        std::string conf = root.writeFile("/etc/empty.conf", "");
        if (c.faultFile != nullptr) {
            root.writeFile(c.faultFile, "");
        }
        std::vector<std::string> args = c.args;
        for (std::string& a : args) {
            if (a == "CONF") {
                a = conf;
            }
        }
        GdsProcess gds(root);
        EXPECT_EQ(c.status, gds.runToExit(args)) << c.what << "\n" << gds.output();
        EXPECT_NE(std::string::npos, gds.output().find(c.message)) << c.what << "\n" << gds.output();
    }
}

TEST(Startup, LegacyPortInUseEndsWithStatusOne)
{
    TestRoot root(true);
    // Hold a port by listening on it.
    int holder = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(0, bind(holder, reinterpret_cast<sockaddr*>(&addr), sizeof addr));
    ASSERT_EQ(0, listen(holder, 1));
    socklen_t len = sizeof addr;
    getsockname(holder, reinterpret_cast<sockaddr*>(&addr), &len);
    int busy = ntohs(addr.sin_port);
    int freeA = 0, freeB = 0;
    GdsProcess::freePorts(freeA, freeB);

    std::string conf = root.writeFile("/etc/empty.conf", "");
    GdsProcess gds(root);
    gds.setEnv("GDS_NXTGEN_PORT", std::to_string(freeA));
    EXPECT_EQ(1, gds.runToExit({"-configfile", conf, "-port", std::to_string(busy)}));
    close(holder);
    std::string out = gds.output();
    EXPECT_NE(std::string::npos, out.find("Failed to bind socket.\n")) << out;
    EXPECT_NE(std::string::npos, out.find("Failed to setup client socket.\n")) << out;
    EXPECT_NE(std::string::npos, out.find("Exiting due to errors, initialize returned 1.\n")) << out;
    EXPECT_EQ(std::string::npos, out.find("setup complete 8197")) << out;
}

}  // namespace
