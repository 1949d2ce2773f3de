// The BIOS token gatherer against the simulated controller root and BIOS:
// start-up with and without "BiosTokenDataAvailable", changes made by the
// BIOS, values sent to the BIOS, restarts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "MdrSim.h"
#include "TestRoot.h"
#include "aim_config.h"
#include "biosTokenGatherer.h"
#include "mdr_region.h"

namespace {

// The properties' values joined by "|" ("<unset>" for one that cannot be read).
std::string properties(std::initializer_list<const char*> names)
{
    std::string out;
    for (const char* name : names) {
        char value[256] = "";
        out += std::string(out.empty() ? "" : "|") + (aim_config_get_str(name, value) ? value : "<unset>");
    }
    return out;
}

class BiosTokenGathererTest : public ::testing::Test {
protected:
    void SetUp() override { root.makeDirs("/var/aim/props"); }

    // A fresh start of the process as far as the gatherer goes.
    int start()
    {
        mdrForgetUpdateCounter();
        return biosTokenGathererStart();
    }
    int region2Counter()
    {
        MdrSim::Region r;
        return MdrSim::status(2, r) ? r.counter : -1;
    }

    TestRoot root{true};
};

TEST_F(BiosTokenGathererTest, FirstStartPublishesTheBiosTokens)
{
    ASSERT_EQ(0, start());
    for (const char* file : {"bios_bmc.xml", "main/property", "advanced/cmd/validvalues",
                             "server-management/cmd/validvalues", "../biosTokenLock"}) {
        EXPECT_TRUE(root.exists(std::string("/tmp/BiosTokens/") + file)) << file;
    }
    EXPECT_EQ(0, root.readFile("/tmp/BiosTokens/all_tokens.txt").find("BootMode\nBootOptionRetry\n"));
    // The values the simulated BIOS reports, blanks included.
    EXPECT_EQ("Enabled|Disabled|High Throughput|C0 C1 State|Last State",
              properties({"TPMSupport", "QuietBoot", "CPUPerformance", "PackageCStateLimit", "PowerRestorePolicy"}));
    // Unset at start: created as false, nothing sent to the BIOS.
    EXPECT_EQ("0", properties({"BiosTokenDataAvailable"}));
    EXPECT_EQ(0, region2Counter());
    EXPECT_FALSE(root.exists("/tmp/BiosTokens/bmc_sent.xml"));
    // The first poll sees the region's counter for the first time.
    EXPECT_EQ(1, biosTokenGathererPoll());
    EXPECT_EQ("1", properties({"BiosTokenDataAvailable"}));
    EXPECT_EQ(0, biosTokenGathererPoll());
    EXPECT_EQ(0, region2Counter());  // the gatherer never sends after start-up
}

TEST_F(BiosTokenGathererTest, ChangeOnTheBiosSide)
{
    ASSERT_EQ(0, start());
    EXPECT_EQ(1, biosTokenGathererPoll());
    EXPECT_EQ(0, biosTokenGathererPoll());
    ASSERT_TRUE(MdrSim::biosWrite(3,
                                  "<?xml version='1.0' ?><bios-params><QuietBoot value='Enabled' />"
                                  "<OSBootWatchdogTimerPolicy value='Do Nothing' /></bios-params>"));
    EXPECT_EQ("Disabled", properties({"QuietBoot"}));
    EXPECT_EQ(1, biosTokenGathererPoll());
    // CPUPerformance is not in the new document: unchanged.
    EXPECT_EQ("Enabled|Do Nothing|High Throughput",
              properties({"QuietBoot", "OSBootWatchdogTimerPolicy", "CPUPerformance"}));
    // A locked or failing region is no news; the next good poll is.
    ASSERT_TRUE(MdrSim::biosWrite(3, "<?xml?><bios-params><QuietBoot value='Disabled' /></bios-params>"));
    ASSERT_TRUE(MdrSim::setField(3, "lock", 1));
    EXPECT_EQ(0, biosTokenGathererPoll());
    ASSERT_TRUE(MdrSim::setField(3, "lock", 0));
    ASSERT_TRUE(MdrSim::setFaults(0x20, "fail"));
    EXPECT_EQ(0, biosTokenGathererPoll());
    EXPECT_EQ(1, biosTokenGathererPoll());
    EXPECT_EQ("Disabled", properties({"QuietBoot"}));
}

TEST_F(BiosTokenGathererTest, StartWithDataAvailableSendsTheValuesOnce)
{
    // The BIOS reports one token; the controller holds values for others.
    ASSERT_TRUE(MdrSim::biosWrite(3, "<?xml version='1.0' ?><bios-params><QuietBoot value='Enabled' /></bios-params>"));
    ASSERT_TRUE(aim_config_set_bool("BiosTokenDataAvailable", true, 1));
    ASSERT_TRUE(aim_config_set_str("QuietBoot", "Disabled", 1));
    ASSERT_TRUE(aim_config_set_str("TurboMode", "Enabled", 1));
    ASSERT_TRUE(aim_config_set_str("BaudRate", "57600", 1));
    ASSERT_TRUE(aim_config_set_str("FlowControl", "XON/XOFF", 1));  // names no option
    ASSERT_EQ(0, start());
    EXPECT_EQ(1, region2Counter());
    std::string sent;
    ASSERT_TRUE(MdrSim::readData(2, sent));
    EXPECT_EQ(root.readFile("/tmp/BiosTokens/bmc_sent.xml"), sent);
    EXPECT_EQ(0, sent.find("<?xml version='1.0' ?> <bios-params> <BootMode value="));
    EXPECT_EQ("</bios-params> ", sent.substr(sent.size() - 15));
    EXPECT_EQ(std::string::npos, sent.find("> <", sent.find("<BootMode")));  // elements back to back
    // The BIOS's value was applied before the document was built; NUMAOptimized was never set.
    for (const char* element : {"<QuietBoot value=\"1\" />", "<TurboMode value=\"1\" />", "<BaudRate value=\"3\" />",
                                "<FlowControl value=\"255\" />", "<NUMAOptimized value=\"255\" />"}) {
        EXPECT_NE(std::string::npos, sent.find(element)) << element;
    }
    EXPECT_EQ(1, biosTokenGathererPoll());
    EXPECT_EQ(0, biosTokenGathererPoll());
    EXPECT_EQ(1, region2Counter());
}

TEST_F(BiosTokenGathererTest, SecondStartAppendsToTheValueList)
{
    ASSERT_EQ(0, start());
    const std::string once = root.readFile("/tmp/BiosTokens/tokensAndValidValues.txt");
    EXPECT_EQ(41, std::count(once.begin(), once.end(), '\n'));
    EXPECT_EQ(0u, once.find("BootMode :0 :1 \n"));
    ASSERT_EQ(0, start());
    EXPECT_EQ(once + once, root.readFile("/tmp/BiosTokens/tokensAndValidValues.txt"));
    const std::string all = root.readFile("/tmp/BiosTokens/all_tokens.txt");  // rebuilt, not appended
    EXPECT_EQ(2, std::count(all.begin(), all.end(), '#'));
}

TEST_F(BiosTokenGathererTest, EmptyBiosRegionAndMissingSchema)
{
    ASSERT_EQ(
        0,
        system(("rm -rf '" + root.path("/var/mdr/region3") + "' '" + root.path("/etc") + "'/Schema_updated*").c_str()));
    ASSERT_EQ(0, start());
    EXPECT_EQ("##", root.readFile("/tmp/BiosTokens/all_tokens.txt"));
    EXPECT_EQ("", root.readFile("/tmp/BiosTokens/main/cmd/validvalues"));
    EXPECT_EQ("<unset>", properties({"QuietBoot"}));
    EXPECT_EQ(0, biosTokenGathererPoll());
}

TEST_F(BiosTokenGathererTest, BoundedRunAndPollInterval)
{
    const std::pair<const char*, int> cases[] = {{nullptr, 60}, {"5", 5}, {"61", 60}, {"2x", 60}};
    for (const auto& [text, seconds] : cases) {
        text ? setenv("GDS_BIOS_POLL_SECONDS", text, 1) : unsetenv("GDS_BIOS_POLL_SECONDS");
        EXPECT_EQ(seconds, biosTokenPollSeconds()) << (text ? text : "unset");
    }
    setenv("GDS_BIOS_POLL_SECONDS", "1", 1);
    mdrForgetUpdateCounter();
    EXPECT_EQ(0, biosTokenGathererRun(3));  // change, no change (1 s), no change
    EXPECT_EQ("1", properties({"BiosTokenDataAvailable"}));
    unsetenv("GDS_BIOS_POLL_SECONDS");
}

}  // namespace
