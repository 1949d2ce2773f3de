// The real gds binary starting up: sockets, handler libraries and every
// start-up failure with its message and exit status.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <tuple>

#include "GdsProcess.h"
#include "RawWire.h"
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

TEST(Startup, ListensOnLoopbackAddressOnly)
{
    TestRoot root(true);
    GdsProcess gds(root);
    ASSERT_TRUE(gds.start()) << gds.output();
    for (int port : {gds.legacyPort(), gds.nxtGenPort()}) {
        EXPECT_TRUE(canConnect("127.0.0.1", port));
        // Another loopback address reaches the machine but not the server.
        EXPECT_FALSE(canConnect("127.0.0.2", port));
    }
}

// A handler library that does not load is skipped and the server starts
// (the other refusals are the connection manager's unit tests').
TEST(Startup, BrokenHandlerLibrariesAreSkipped)
{
    TestRoot root(true);
    GdsProcess gds(root);
    gds.setConfig("addHandler=test\n[test]\nlibFile=/no/such/lib.so\nentryPoint=init\n");
    ASSERT_TRUE(gds.start()) << gds.output();
    // The lines may reach the output file a moment after the ports open.
    for (const char* line :
         {" Failed to load library \"/no/such/lib.so\" with error: ", " Failed to load handler: /no/such/lib.so\n"}) {
        EXPECT_TRUE(waitFor([&] { return gds.output().find(line) != std::string::npos; }, 5)) << gds.output();
    }
}

TEST(Startup, FailuresEndWithStatusAndMessage)
{
    // The legacy port is held by a listener here.
    int port = 0;
    int holder = listenOnLoopback(port);
    ASSERT_GE(holder, 0);
    const std::string busy = std::to_string(port);
    // arguments (CONF: an empty configuration), a fault file made first, status, message
    const std::tuple<std::vector<std::string>, std::string, int, std::string> cases[] = {
        {{"-help", "-configfile", "/missing"}, "", 0, "  \t-help\t Shows this help information\n"},
        {{"-configfile", "/no/such.conf"}, "", 1, " Failed to open config file (/no/such.conf)!"},
        {{"-configfile", "CONF"}, "/var/aim/faults/initialize", 1, "Failed to initialize AIM."},
        {{"-configfile", "CONF", "-port", busy}, "", 1, "Failed to bind socket.\n"},
    };
    for (auto [args, faultFile, status, message] : cases) {
        TestRoot root(true);
        std::string conf = root.writeFile("/etc/empty.conf", "");
        if (!faultFile.empty()) {
            root.writeFile(faultFile, "");
        }
        for (std::string& a : args) {
            a = a == "CONF" ? conf : a;
        }
        int freeA = 0, freeB = 0;
        GdsProcess::freePorts(freeA, freeB);
        GdsProcess gds(root);
        gds.setEnv("GDS_NXTGEN_PORT", std::to_string(freeA));
        EXPECT_EQ(status, gds.runToExit(args)) << gds.output();
        EXPECT_NE(std::string::npos, gds.output().find(message)) << gds.output();
        EXPECT_EQ(std::string::npos, gds.output().find("setup complete")) << message;
    }
    close(holder);
}

// The BIOS code's start-up commands run through the safe-execution runner
// (its record shows them); a second start on the same root prints no
// complaints of those commands; a client closing cleanly is not a reset.
TEST(Startup, BiosCommandsAreRecordedAndQuietOnRestart)
{
    TestRoot root(true);
    for (int start = 0; start < 2; ++start) {
        GdsProcess gds(root);
        gds.setEnv("GDS_LOG_LEVEL", "4");
        ASSERT_TRUE(gds.start()) << gds.output();
        for (int i = 0; i < 100 && root.readFile("/var/safeexec/commands").find("mv ") == std::string::npos; ++i) {
            usleep(100 * 1000);
        }
        std::string record = root.readFile("/var/safeexec/commands");
        EXPECT_NE(std::string::npos, record.find("rm ")) << record;
        EXPECT_NE(std::string::npos, record.find("mv ")) << record;
        int fd = connectTo(gds.legacyPort());
        ASSERT_GE(fd, 0);
        close(fd);
        for (int i = 0; i < 50 && gds.output().find("connection closed by peer") == std::string::npos; ++i) {
            usleep(100 * 1000);
        }
        gds.stop();
        EXPECT_NE(std::string::npos, gds.output().find("Failed to read packet length (connection closed by peer)"));
        EXPECT_EQ(std::string::npos, gds.output().find("reset by peer")) << gds.output();
        EXPECT_EQ(std::string::npos, gds.output().find("rm: cannot")) << gds.output();
        EXPECT_EQ(std::string::npos, gds.output().find("mv: cannot")) << gds.output();
    }
}

}  // namespace
