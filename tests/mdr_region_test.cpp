// MDR region access against the simulated MDR store of the IPMI stand-in.
#include <gtest/gtest.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "MdrSim.h"
#include "TestRoot.h"
#include "bios_util.h"
#include "mdr_region.h"

namespace {

std::vector<std::string> g_syslog;

// The request bytes (hex, blank-separated) of every recorded call of `cmd`, in order.
std::vector<std::string> callsOf(int cmd)
{
    std::vector<std::string> calls;
    std::istringstream in(MdrSim::trace());
    for (std::string line; std::getline(in, line);) {
        if (std::stoi(line.substr(0, 2), nullptr, 16) == cmd) {
            calls.push_back(line.substr(line.find("req=") + 4));
        }
    }
    return calls;
}

// `n` bytes that repeat every `period` bytes.
std::string pattern(int n, int period)
{
    std::string s;
    for (int i = 0; i < n; ++i) {
        s += static_cast<char>('a' + i % period);
    }
    return s;
}

class MdrRegionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        root.makeDirs("/tmp/BiosTokens");
        ASSERT_TRUE(MdrSim::createRegion(2, MdrSim::kMaxRegionSize) && MdrSim::createRegion(3, MdrSim::kMaxRegionSize));
        ASSERT_TRUE(MdrSim::setTrace(true));
        mdrForgetUpdateCounter();
        bios_syslog_set_hook([](const char* message) { g_syslog.push_back(message); });
    }
    void TearDown() override { bios_syslog_set_hook(nullptr); }

    // Region 3 as the BIOS leaves it, with its counter set to `counter`.
    void biosRegion(const std::string& data, int counter)
    {
        ASSERT_TRUE(MdrSim::biosWrite(3, data) && MdrSim::setField(3, "counter", counter));
    }

    TestRoot root;
};

TEST_F(MdrRegionTest, UpdateCheckFollowsTheRegionStatus)
{
    // counter, status field set (or null) and its value, faults of the status command, result, syslog line
    const std::tuple<int, const char*, int, const char*, int, const char*> cases[] = {
        {0, nullptr, 0, nullptr, 0, nullptr},
        {5, nullptr, 0, nullptr, 1, nullptr},
        {5, "lock", 1, nullptr, 0, nullptr},
        {5, "valid", 0, nullptr, 0, nullptr},
        {5, "used", 0, nullptr, 0, nullptr},
        {5, nullptr, 0, "len=10", 0, "BIOS Token Incorrect Status: a 3 \n"},
        {5, nullptr, 0, "fail", 0, "BIOS Token - Get Status Error: ffffffff cc\n"},
        {5, nullptr, 0, "cc=c1", 0, "BIOS Token - Get Status Error: 0 c1\n"},
        {5, nullptr, 0, "nocc", 0, "BIOS Token - Get Status Error: 0 cc\n"},
    };
    for (const auto& [counter, field, value, faults, expected, message] : cases) {
        SCOPED_TRACE(std::to_string(counter) + " " + (field ? field : "-") + " " + (faults ? faults : "-"));
        mdrForgetUpdateCounter();
        g_syslog.clear();
        biosRegion("<x/>", counter);
        ASSERT_TRUE((field == nullptr || MdrSim::setField(3, field, value)) &&
                    (faults == nullptr || MdrSim::setFaults(0x20, faults)));
        EXPECT_EQ(expected, checkIfBIOSWriteMDRHasBeenUpdated());
        EXPECT_EQ(message ? std::vector<std::string>{message} : std::vector<std::string>{}, g_syslog);
    }
}

TEST_F(MdrRegionTest, ReadsInChunksAndStopsAtAFailedOne)
{
    const std::string data = pattern(70, 26);
    ASSERT_TRUE(MdrSim::biosWrite(3, data));
    std::vector<char> buffer(100, '\0');
    EXPECT_EQ(1, readRegion(3, buffer.data(), 70));
    EXPECT_EQ(data, std::string(buffer.data(), 70));
    EXPECT_EQ((std::vector<std::string>{"03 20 00 00", "03 20 20 00", "03 06 40 00"}), callsOf(0x23));

    ASSERT_TRUE(MdrSim::biosWrite(3, std::string(100, 'x')) && MdrSim::setTrace(true));
    ASSERT_TRUE(MdrSim::setFaults(0x23, "ok fail"));
    buffer.assign(100, '\0');
    EXPECT_EQ(0, readRegion(3, buffer.data(), 100));
    EXPECT_EQ(std::string(32, 'x') + std::string(68, '\0'), std::string(buffer.data(), 100));
    EXPECT_EQ(2u, callsOf(0x23).size());
}

TEST_F(MdrRegionTest, FetchOfTheBiosDocument)
{
    // Quotes rewritten, the text ends at the first zero, no temporary file is left.
    biosRegion(std::string("<a value='abc' />\0junk", 22), 1);
    EXPECT_EQ(1, readMDRRegionForBiosTokens());
    EXPECT_EQ("<a value=\"abc\" />", root.readFile("/tmp/BiosTokens/bios_bmc.xml"));
    EXPECT_FALSE(root.exists("/tmp/BiosTokens/tmp.xml"));
    // The largest region (offsets beyond one byte).
    const std::string data = pattern(MdrSim::kMaxRegionSize, 23);
    ASSERT_TRUE(MdrSim::setTrace(false));
    biosRegion(data, 9);
    EXPECT_EQ(1, readMDRRegionForBiosTokens());
    EXPECT_EQ(data, root.readFile("/tmp/BiosTokens/bios_bmc.xml"));
    // A failed or locked fetch keeps the previous document; a locked region is not read.
    ASSERT_TRUE(MdrSim::setTrace(true) && MdrSim::setFaults(0x23, "fail"));
    biosRegion("<new/>", 1);
    EXPECT_EQ(0, readMDRRegionForBiosTokens());
    ASSERT_TRUE(MdrSim::setField(3, "lock", 1));
    EXPECT_EQ(0, readMDRRegionForBiosTokens());
    EXPECT_EQ(data, root.readFile("/tmp/BiosTokens/bios_bmc.xml"));
    EXPECT_EQ(1u, callsOf(0x23).size());
    // A document that cannot be written is no fetch, and no rewrite runs.
    ASSERT_TRUE(MdrSim::setField(3, "lock", 0));
    ASSERT_EQ(0, unlink(root.path("/tmp/BiosTokens/bios_bmc.xml").c_str()));
    root.makeDirs("/tmp/BiosTokens/bios_bmc.xml");
    EXPECT_EQ(0, readMDRRegionForBiosTokens());
    EXPECT_FALSE(root.exists("/tmp/BiosTokens/tmp.xml"));
}

TEST_F(MdrRegionTest, WritesInChunksUnderTheLock)
{
    std::string data = pattern(64, 31);
    EXPECT_EQ(0, writeMdrRegion(2, &data[0], 64));
    std::vector<std::string> writes = callsOf(0x24);
    ASSERT_EQ(2u, writes.size());
    // session, region, length, offset (two bytes), then the data
    EXPECT_EQ("02 20 00 00", writes[0].substr(3, 11));
    EXPECT_EQ("02 20 20 00", writes[1].substr(3, 11));
    EXPECT_EQ((std::vector<std::string>{"00 02 01 32 32"}), callsOf(0x25));
    EXPECT_EQ(writes[0].substr(0, 2), callsOf(0x21).at(0).substr(0, 2));  // the granted session ends the update
    std::string region;
    MdrSim::Region st;
    ASSERT_TRUE(MdrSim::readData(2, region) && MdrSim::status(2, st));
    EXPECT_EQ(data, region);
    EXPECT_EQ((std::vector<int>{1, 1, 0}), (std::vector<int>{st.valid, st.counter, st.lock}));
}

TEST_F(MdrRegionTest, WriteResults)
{
    // length, command given faults, faults, result, chunk writes
    const std::tuple<int, int, const char*, int, size_t> cases[] = {
        {0, 0, "", 0, 0},                               // empty write still locks and completes
        {70, 0x24, "fail", 0, 3},                       // a failed first chunk does not count
        {70, 0x24, "ok ok fail", -1, 3},                // the last chunk's status
        {40, 0x25, "fail fail fail fail fail", -1, 0},  // lock refused five times
        {40, 0x25, "fail fail fail fail", 0, 2},        // lock granted at the fifth attempt
        {10, 0x21, "*fail", -1, 1},                     // completion failing five times
        {10, 0x20, "fail", 0, 1},                       // status after completion failing once
    };
    for (const auto& [length, cmd, faults, expected, writes] : cases) {
        SCOPED_TRACE(std::to_string(cmd) + " " + faults);
        MdrSim::clearFaults();
        ASSERT_TRUE(MdrSim::setTrace(true) && (cmd == 0 || MdrSim::setFaults(cmd, faults)));
        std::string data(length, 'w');
        EXPECT_EQ(expected, writeMdrRegion(2, &data[0], length));
        EXPECT_EQ(writes, callsOf(0x24).size());
        EXPECT_EQ(cmd == 0x25 && expected == -1, callsOf(0x21).empty());  // no lock, no completion
    }
}

}  // namespace
