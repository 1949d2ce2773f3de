// The real server with the simulated BIOS: the gatherer thread publishes the
// BIOS tokens at start and follows a document the BIOS writes (with biossim).
// Polls every second (GDS_BIOS_POLL_SECONDS).
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "GdsProcess.h"
#include "ProjectBinary.h"
#include "RawWire.h"
#include "TestRoot.h"
#include "aim_config.h"

namespace {

std::string property(const char* name)
{
    char value[256] = "";
    return aim_config_get_str(name, value) ? value : "<unset>";
}

TEST(BiosTokens, GathererFollowsTheSimulatedBios)
{
    TestRoot root(true);
    GdsProcess gds(root);
    gds.setEnv("GDS_BIOS_POLL_SECONDS", "1");
    ASSERT_TRUE(gds.start()) << gds.output();
    ASSERT_TRUE(waitFor([&] { return property("BiosTokenDataAvailable") == "1"; }, 15)) << gds.output();
    EXPECT_TRUE(root.exists("/tmp/BiosTokens/advanced/cmd/validvalues"));
    // The BIOS writes a new document; the next poll applies it.
    root.writeFile("/doc.xml", "<?xml version='1.0' ?><bios-params><CPUPerformance value='Custom' /></bios-params>");
    ASSERT_EQ(0, system(("GDS_ROOT='" + root.dir() + "' " + ProjectBinary::command("biossim") + " write - < '" +
                         root.path("/doc.xml") + "' >/dev/null")
                            .c_str()));
    EXPECT_TRUE(waitFor([] { return property("CPUPerformance") == "Custom"; }, 15)) << gds.output();
}

}  // namespace
