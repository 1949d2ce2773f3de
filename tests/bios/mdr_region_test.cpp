// MDR region access against the simulated MDR store of the IPMI stand-in.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "MdrSim.h"
#include "TestRoot.h"
#include "mdr_region.h"

namespace {

// How many calls of `cmd` the simulated store recorded.
size_t callsOf(int cmd)
{
    size_t calls = 0;
    std::istringstream in(MdrSim::trace());
    for (std::string line; std::getline(in, line);) {
        calls += std::stoi(line.substr(0, 2), nullptr, 16) == cmd;
    }
    return calls;
}

class MdrRegionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        root.makeDirs("/tmp/BiosTokens");
        ASSERT_TRUE(MdrSim::createRegion(2, MdrSim::kMaxRegionSize) && MdrSim::createRegion(3, MdrSim::kMaxRegionSize));
        ASSERT_TRUE(MdrSim::setTrace(true));
        mdrForgetUpdateCounter();
    }

    // Region 3 as the BIOS leaves it, with its counter set to `counter`.
    void biosRegion(const std::string& data, int counter)
    {
        ASSERT_TRUE(MdrSim::biosWrite(3, data) && MdrSim::setField(3, "counter", counter));
    }

    TestRoot root;
};

TEST_F(MdrRegionTest, UpdateCheckAndFetch)
{
    biosRegion("<x/>", 0);  // never written by the BIOS
    EXPECT_EQ(0, checkIfBIOSWriteMDRHasBeenUpdated());
    // Quotes rewritten, the text ends at the first zero, no temporary file is left.
    biosRegion(std::string("<a value='abc' />\0junk", 22), 5);
    EXPECT_EQ(1, checkIfBIOSWriteMDRHasBeenUpdated());
    EXPECT_EQ(0, checkIfBIOSWriteMDRHasBeenUpdated());
    EXPECT_EQ(1, readMDRRegionForBiosTokens());
    EXPECT_EQ("<a value=\"abc\" />", root.readFile("/tmp/BiosTokens/bios_bmc.xml"));
    EXPECT_FALSE(root.exists("/tmp/BiosTokens/tmp.xml"));
}

TEST_F(MdrRegionTest, InjectedFaults)
{
    // c: update check, r: readRegion (100 bytes), f: fetch of the BIOS document, w: write (70 bytes); a status field
    // of region 3 and its value; faulty command and faults; result; data command calls (0x24 writes, 0x23 reads).
    const std::tuple<char, const char*, int, int, const char*, int, size_t> cases[] = {
        {'c', "lock", 1, 0, nullptr, 0, 0},
        {'c', "valid", 0, 0, nullptr, 0, 0},
        {'c', nullptr, 0, 0x20, "len=10", 0, 0},
        {'c', nullptr, 0, 0x20, "fail", 0, 0},
        {'c', nullptr, 0, 0x20, "cc=c1", 0, 0},
        {'r', nullptr, 0, 0x23, "ok fail", 0, 2},                    // stops at the failed chunk
        {'f', nullptr, 0, 0x23, "fail", 0, 1},                       // keeps the previous document
        {'f', "lock", 1, 0, nullptr, 0, 0},                          // a locked region is not read
        {'w', nullptr, 0, 0x24, "fail", 0, 3},                       // a failed first chunk does not count
        {'w', nullptr, 0, 0x24, "ok ok fail", -1, 3},                // the last chunk's status
        {'w', nullptr, 0, 0x25, "fail fail fail fail fail", -1, 0},  // lock refused five times
        {'w', nullptr, 0, 0x25, "fail fail fail fail", 0, 3},        // lock granted at the fifth attempt
        {'w', nullptr, 0, 0x21, "*fail", -1, 3},                     // completion failing five times
    };
    for (const auto& [op, field, value, cmd, faults, expected, dataCalls] : cases) {
        SCOPED_TRACE(std::string(1, op) + " " + (field ? field : "-") + " " + (faults ? faults : "-"));
        MdrSim::clearFaults();
        mdrForgetUpdateCounter();
        root.writeFile("/tmp/BiosTokens/bios_bmc.xml", "old");
        biosRegion(std::string(100, 'x'), 5);
        ASSERT_TRUE(MdrSim::setTrace(true) && (field == nullptr || MdrSim::setField(3, field, value)) &&
                    (faults == nullptr || MdrSim::setFaults(cmd, faults)));
        std::vector<char> buffer(100, '\0');
        std::string data(70, 'w');
        const int result = op == 'c'   ? checkIfBIOSWriteMDRHasBeenUpdated()
                           : op == 'r' ? readRegion(3, buffer.data(), 100)
                           : op == 'f' ? readMDRRegionForBiosTokens()
                                       : writeMdrRegion(2, &data[0], 70);
        EXPECT_EQ(expected, result);
        EXPECT_EQ(dataCalls, callsOf(op == 'w' ? 0x24 : 0x23));
        EXPECT_EQ("old", root.readFile("/tmp/BiosTokens/bios_bmc.xml"));
        if (op == 'r') {
            EXPECT_EQ(std::string(32, 'x') + std::string(68, '\0'), std::string(buffer.data(), 100));
        } else if (op == 'w') {
            EXPECT_EQ(cmd == 0x25 && expected == -1, callsOf(0x21) == 0);  // no lock, no completion
        } else if (op == 'c') {
            // The failed check did not take the counter: once the fault is gone, the update is seen.
            MdrSim::clearFaults();
            ASSERT_TRUE(field == nullptr || MdrSim::setField(3, field, 1 - value));
            EXPECT_EQ(1, checkIfBIOSWriteMDRHasBeenUpdated());
        }
    }
}

}  // namespace
