// MDR region access against the simulated MDR store of the IPMI stand-in.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "MdrSim.h"
#include "TestRoot.h"
#include "bios_util.h"
#include "mdr_region.h"

namespace {

std::vector<std::string> g_syslog;
void captureSyslog(const char* message)
{
    g_syslog.push_back(message);
}

struct Call {
    int cmd;
    std::vector<int> req;
};

// The IPMI calls recorded by the stand-in, in order.
std::vector<Call> recordedCalls()
{
    std::vector<Call> calls;
    std::istringstream in(MdrSim::trace());
    std::string line;
    while (std::getline(in, line)) {
        Call c;
        c.cmd = std::stoi(line.substr(0, 2), nullptr, 16);
        std::istringstream bytes(line.substr(line.find("req=") + 4));
        std::string b;
        while (bytes >> b) {
            c.req.push_back(std::stoi(b, nullptr, 16));
        }
        calls.push_back(c);
    }
    return calls;
}

std::vector<Call> callsOf(int cmd)
{
    std::vector<Call> out;
    for (const Call& c : recordedCalls()) {
        if (c.cmd == cmd) {
            out.push_back(c);
        }
    }
    return out;
}

class MdrRegionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        root.makeDirs("/tmp/BiosTokens");
        ASSERT_TRUE(MdrSim::createRegion(2, MdrSim::kMaxRegionSize));
        ASSERT_TRUE(MdrSim::createRegion(3, MdrSim::kMaxRegionSize));
        ASSERT_TRUE(MdrSim::setTrace(true));
        mdrForgetUpdateCounter();
        g_syslog.clear();
        bios_syslog_set_hook(captureSyslog);
    }
    void TearDown() override { bios_syslog_set_hook(nullptr); }

    // Region 3 as the BIOS leaves it, with its counter set to `counter`.
    void biosRegion(const std::string& data, int counter)
    {
        ASSERT_TRUE(MdrSim::biosWrite(3, data));
        ASSERT_TRUE(MdrSim::setField(3, "counter", counter));
    }

    TestRoot root;
};

TEST_F(MdrRegionTest, UpdateCheckFollowsTheRegionStatus)
{
    struct Case {
        const char* name;
        int counter;
        const char* field;  // status field changed before the check (or null)
        int value;
        const char* faults;  // faults for the status command (or null)
        int expected;
        const char* message;  // syslog line expected (or null)
    } cases[] = {
        {"counter 0 is no change", 0, nullptr, 0, nullptr, 0, nullptr},
        {"counter 5 is a change", 5, nullptr, 0, nullptr, 1, nullptr},
        {"locked region", 5, "lock", 1, nullptr, 0, nullptr},
        {"invalid region", 5, "valid", 0, nullptr, 0, nullptr},
        {"empty region", 5, "used", 0, nullptr, 0, nullptr},
        {"status of 10 bytes", 5, nullptr, 0, "len=10", 0, "BIOS Token Incorrect Status: a 3 \n"},
        {"failed call", 5, nullptr, 0, "fail", 0, "BIOS Token - Get Status Error: ffffffff cc\n"},
        {"completion code", 5, nullptr, 0, "cc=c1", 0, "BIOS Token - Get Status Error: 0 c1\n"},
        {"completion code not filled in", 5, nullptr, 0, "nocc", 0, "BIOS Token - Get Status Error: 0 cc\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        mdrForgetUpdateCounter();
        g_syslog.clear();
        biosRegion("<x/>", c.counter);
        if (c.field != nullptr) {
            ASSERT_TRUE(MdrSim::setField(3, c.field, c.value));
        }
        if (c.faults != nullptr) {
            ASSERT_TRUE(MdrSim::setFaults(0x20, c.faults));
        }
        EXPECT_EQ(c.expected, checkIfBIOSWriteMDRHasBeenUpdated());
        if (c.message != nullptr) {
            ASSERT_EQ(1u, g_syslog.size());
            EXPECT_EQ(c.message, g_syslog[0]);
        } else {
            EXPECT_TRUE(g_syslog.empty());
        }
    }
}

TEST_F(MdrRegionTest, SameCounterReportsNoSecondChange)
{
    biosRegion("<x/>", 5);
    EXPECT_EQ(1, checkIfBIOSWriteMDRHasBeenUpdated());
    EXPECT_EQ(0, checkIfBIOSWriteMDRHasBeenUpdated());
    ASSERT_TRUE(MdrSim::biosWrite(3, "<y/>"));  // the BIOS writes again: counter 6
    EXPECT_EQ(1, checkIfBIOSWriteMDRHasBeenUpdated());
    // Fetching the region leaves the counter alone.
    ASSERT_TRUE(MdrSim::biosWrite(3, "<z/>"));
    EXPECT_EQ(1, readMDRRegionForBiosTokens());
    EXPECT_EQ(1, checkIfBIOSWriteMDRHasBeenUpdated());
}

TEST_F(MdrRegionTest, ReadsInChunksOfAtMost32Bytes)
{
    std::string data;
    for (int i = 0; i < 70; ++i) {
        data += static_cast<char>('A' + i % 26);
    }
    ASSERT_TRUE(MdrSim::biosWrite(3, data));
    std::vector<char> buffer(70, '\0');
    EXPECT_EQ(1, readRegion(3, buffer.data(), 70));
    EXPECT_EQ(data, std::string(buffer.data(), 70));
    std::vector<Call> reads = callsOf(0x23);
    ASSERT_EQ(3u, reads.size());
    const int expected[3][4] = {{3, 32, 0, 0}, {3, 32, 32, 0}, {3, 6, 64, 0}};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(std::vector<int>(expected[i], expected[i] + 4), reads[i].req) << "chunk " << i;
    }
}

TEST_F(MdrRegionTest, FailedChunkStopsTheRead)
{
    ASSERT_TRUE(MdrSim::biosWrite(3, std::string(100, 'x')));
    ASSERT_TRUE(MdrSim::setFaults(0x23, "ok fail"));
    std::vector<char> buffer(100, '\0');
    EXPECT_EQ(0, readRegion(3, buffer.data(), 100));
    EXPECT_EQ(std::string(32, 'x') + std::string(68, '\0'), std::string(buffer.data(), 100));
    EXPECT_EQ(2u, callsOf(0x23).size());
}

TEST_F(MdrRegionTest, FetchRewritesQuotesAndStopsAtTheFirstZero)
{
    biosRegion(std::string("<a value='abc' />\0junk", 22), 1);
    EXPECT_EQ(1, readMDRRegionForBiosTokens());
    EXPECT_EQ("<a value=\"abc\" />", root.readFile("/tmp/BiosTokens/bios_bmc.xml"));
    EXPECT_FALSE(root.exists("/tmp/BiosTokens/tmp.xml"));
}

TEST_F(MdrRegionTest, FailedFetchKeepsThePreviousDocument)
{
    root.writeFile("/tmp/BiosTokens/bios_bmc.xml", "previous");
    biosRegion("<new/>", 1);
    ASSERT_TRUE(MdrSim::setFaults(0x23, "fail"));
    EXPECT_EQ(0, readMDRRegionForBiosTokens());
    ASSERT_TRUE(MdrSim::setField(3, "lock", 1));
    EXPECT_EQ(0, readMDRRegionForBiosTokens());
    EXPECT_EQ("previous", root.readFile("/tmp/BiosTokens/bios_bmc.xml"));
    EXPECT_EQ(1u, callsOf(0x23).size());  // the locked region is not read

    // Without its folder the document cannot be written: nothing is.
    ASSERT_EQ(0, system(("rm -rf '" + root.path("/tmp/BiosTokens") + "'").c_str()));
    ASSERT_TRUE(MdrSim::setField(3, "lock", 0));
    EXPECT_EQ(0, readMDRRegionForBiosTokens());
}

TEST_F(MdrRegionTest, FetchesTheLargestRegion)
{
    std::string data;
    for (int i = 0; i < MdrSim::kMaxRegionSize; ++i) {
        data += static_cast<char>('a' + i % 23);
    }
    ASSERT_TRUE(MdrSim::setTrace(false));
    biosRegion(data, 9);
    EXPECT_EQ(1, readMDRRegionForBiosTokens());
    EXPECT_EQ(data, root.readFile("/tmp/BiosTokens/bios_bmc.xml"));
}

TEST_F(MdrRegionTest, WritesInChunksUnderTheLock)
{
    std::string data(64, 'd');
    data[0] = 'S';
    data[63] = 'E';
    EXPECT_EQ(0, writeMdrRegion(2, &data[0], 64));
    std::vector<Call> writes = callsOf(0x24);
    ASSERT_EQ(2u, writes.size());
    EXPECT_EQ(32, writes[0].req[2]);
    EXPECT_EQ(0, writes[0].req[3]);
    EXPECT_EQ(32, writes[1].req[3]);
    ASSERT_EQ(1u, callsOf(0x25).size());
    EXPECT_EQ((std::vector<int>{0, 2, 1, 0x32, 0x32}), callsOf(0x25)[0].req);
    EXPECT_EQ(writes[0].req[0], callsOf(0x21)[0].req[0]);  // the granted session ends the update
    std::string region;
    ASSERT_TRUE(MdrSim::readData(2, region));
    EXPECT_EQ(data, region);
    MdrSim::Region st;
    ASSERT_TRUE(MdrSim::status(2, st));
    EXPECT_EQ(1, st.valid);
    EXPECT_EQ(1, st.counter);
    EXPECT_EQ(0, st.lock);
}

TEST_F(MdrRegionTest, WriteResults)
{
    struct Case {
        const char* name;
        int length;
        int cmd;  // command given faults
        const char* faults;
        int expected;
        size_t writes;
    } cases[] = {
        {"empty write still locks and completes", 0, 0, "", 0, 0},
        {"failed first chunk, good last chunk", 70, 0x24, "fail", 0, 3},
        {"failed last chunk", 70, 0x24, "ok ok fail", -1, 3},
        {"lock refused five times", 40, 0x25, "fail fail fail fail fail", -1, 0},
        {"lock granted at the fifth attempt", 40, 0x25, "fail fail fail fail", 0, 2},
        {"completion failing five times", 10, 0x21, "*fail", -1, 1},
        {"status after completion failing once", 10, 0x20, "fail", 0, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(MdrSim::setTrace(true));
        MdrSim::clearFaults();
        if (c.cmd != 0) {
            ASSERT_TRUE(MdrSim::setFaults(c.cmd, c.faults));
        }
        std::string data(c.length, 'w');
        int rc = writeMdrRegion(2, &data[0], c.length);
        // A failed last chunk reports the call's status, -1 from the stand-in.
        EXPECT_EQ(c.expected, rc);
        EXPECT_EQ(c.writes, callsOf(0x24).size());
        if (c.cmd == 0x25 && c.expected == -1) {
            EXPECT_TRUE(callsOf(0x21).empty());
        }
    }
}

}  // namespace
