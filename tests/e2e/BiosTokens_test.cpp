// The real server with the simulated BIOS: the gatherer thread publishes the
// BIOS tokens at start, follows a document the BIOS writes (with biossim), and
// after a restart with "BiosTokenDataAvailable" sends the controller's values
// to the BIOS. Polls every second (GDS_BIOS_POLL_SECONDS).
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>

#include "GdsProcess.h"
#include "TestRoot.h"
#include "aim_config.h"

namespace {

std::string property(const char* name)
{
    char value[256] = "";
    return aim_config_get_str(name, value) ? value : "<unset>";
}

bool waitFor(const std::function<bool()>& done, int seconds = 15)
{
    for (int i = 0; i < seconds * 10; ++i) {
        if (done()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return done();
}

// Runs biossim on the root with `input` on its standard input; its output.
std::string biossim(const TestRoot& root, const std::string& args, const std::string& input = "")
{
    std::string command = "GDS_ROOT='" + root.dir() + "' '" + TestRoot::binDir() + "/biossim' " + args;
    if (!input.empty()) {
        std::string file = root.writeFile("/biossim-input", input);
        command += " < '" + file + "'";
    }
    std::string out;
    FILE* p = popen(command.c_str(), "r");
    if (p == nullptr) {
        return out;
    }
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) {
        out.append(buf, n);
    }
    pclose(p);
    return out;
}

TEST(BiosTokens, GathererFollowsTheSimulatedBios)
{
    TestRoot root(true);
    {
        GdsProcess gds(root);
        gds.setEnv("GDS_BIOS_POLL_SECONDS", "1");
        ASSERT_TRUE(gds.start()) << gds.output();
        ASSERT_TRUE(waitFor([&] { return property("BiosTokenDataAvailable") == "1"; })) << gds.output();
        EXPECT_EQ("High Throughput", property("CPUPerformance"));
        EXPECT_TRUE(root.exists("/tmp/BiosTokens/all_tokens.txt"));
        EXPECT_TRUE(root.exists("/tmp/BiosTokens/tokensAndValidValues.txt"));
        EXPECT_TRUE(root.exists("/tmp/BiosTokens/advanced/cmd/validvalues"));

        // The BIOS writes a new document; the next poll applies it.
        std::string status = biossim(root, "write -",
                                     "<?xml version='1.0' ?><bios-params><QuietBoot value='Enabled' />"
                                     "<CPUPerformance value='Custom' /></bios-params>");
        EXPECT_NE(std::string::npos, status.find("region 3: valid=1 counter=2 lock=0")) << status;
        EXPECT_TRUE(waitFor([] { return property("CPUPerformance") == "Custom"; })) << gds.output();
        EXPECT_EQ("Enabled", property("QuietBoot"));
        gds.stop();
    }
    // The controller's value of a token the BIOS no longer reports goes to
    // the BIOS at the next start.
    ASSERT_TRUE(aim_config_set_str("TurboMode", "Enabled", 1));
    GdsProcess gds(root);
    gds.setEnv("GDS_BIOS_POLL_SECONDS", "1");
    ASSERT_TRUE(gds.start()) << gds.output();
    ASSERT_TRUE(waitFor([&] { return biossim(root, "status 2").find("counter=1") != std::string::npos; }))
        << biossim(root, "status 2");
    std::string sent = biossim(root, "read");
    EXPECT_NE(std::string::npos, sent.find("<TurboMode value=\"1\" />")) << sent;
    EXPECT_NE(std::string::npos, sent.find("<CPUPerformance value=\"2\" />")) << sent;
    EXPECT_NE(std::string::npos, sent.find("<QuietBoot value=\"1\" />")) << sent;
}

}  // namespace
