// Hardware platform identification from the product file and the pins, and
// the marker-controlled debug log.
#include <gtest/gtest.h>

#include "DataAgent.h"
#include "TestRoot.h"
#include "gds_debug_log.h"

namespace {

struct PlatformCase {
    const char* product;  // null: no product file
    std::vector<std::pair<const char*, const char*>> pins;
    PLATFORM expected;
};

TEST(Platform, ProductAndPinsSelectPlatform)
{
    std::vector<PlatformCase> cases = {
        {nullptr, {}, PLATFORM_UNKNOWN},
        {"dravon", {}, PLATFORM_DRAVON},
        {"dravon", {{"2u_chassis", "1"}}, PLATFORM_DRAVON_2U},
        {"dravon", {{"2u_chassis", "0"}}, PLATFORM_DRAVON},
        {"dravon", {{"2u_chassis", "x"}}, PLATFORM_DRAVON},
        {"ruskel", {}, PLATFORM_RUSKEL},
        {"ruskel", {{"riser1_id_0", "0"}}, PLATFORM_RUSKEL_RISER},
        {"ruskel", {{"riser1_id_0", "1"}, {"riser1_id_1", "0"}}, PLATFORM_RUSKEL_RISER},
        {"ruskel", {{"riser1_id_0", "1"}, {"riser1_id_1", "1"}}, PLATFORM_RUSKEL},
        {"ruskel", {{"riser1_id_1", "0"}}, PLATFORM_RUSKEL},  // riser1_id_1 needs riser1_id_0
        {"pallix", {}, PLATFORM_UNKNOWN},
        {"pallix2", {}, PLATFORM_PALLIX2},
        {"wescal extra words", {}, PLATFORM_WESCAL},
        {"  fenlow\n", {}, PLATFORM_FENLOW},
        {"Zenth", {}, PLATFORM_UNKNOWN},
        {"greff1", {}, PLATFORM_GREFF1},
        {"nimbrel1", {}, PLATFORM_NIMBREL1},
    };
    for (const PlatformCase& c : cases) {
        TestRoot root;
        if (c.product != nullptr) {
            root.writeFile("/etc/product", c.product);
        }
        for (const auto& pin : c.pins) {
            root.writeFile(std::string("/proc/pellox/gpio/") + pin.first, pin.second);
        }
        DataAgent::resetPlatformCache();
        EXPECT_EQ(c.expected, DataAgent::getPlatform()) << (c.product ? c.product : "(none)");
    }
}

TEST(Platform, KnownPlatformIsCachedUnknownIsNot)
{
    TestRoot root;
    DataAgent::resetPlatformCache();
    EXPECT_EQ(PLATFORM_UNKNOWN, DataAgent::getPlatform());
    root.writeFile("/etc/product", "kestin");
    EXPECT_EQ(PLATFORM_KESTIN, DataAgent::getPlatform());
    root.writeFile("/etc/product", "zenth");
    EXPECT_EQ(PLATFORM_KESTIN, DataAgent::getPlatform());
    DataAgent::resetPlatformCache();
}

TEST(DebugLog, WritesOnlyWhileMarkerExists)
{
    TestRoot root;
    gds_debug_log(1, "before marker\n");
    EXPECT_FALSE(root.exists("/var/log/gds.log"));
    root.writeFile("/tmp/gdsprint_override", "");
    root.makeDirs("/var/log");
    gds_debug_log(1, "error %d\n", 7);
    gds_debug_log(2, "info %s\n", "x");
    gds_debug_log(3, "level three\n");
    std::string log = root.readFile("/var/log/gds.log");
    EXPECT_NE(std::string::npos, log.find("] GDS_DBG_ERROR: error 7\n"));
    EXPECT_NE(std::string::npos, log.find("] GDS_DBG_INFO: info x\n"));
    EXPECT_EQ(std::string::npos, log.find("level three"));
    EXPECT_EQ(std::string::npos, log.find("before marker"));
    EXPECT_EQ('(', log[0]);
}

}  // namespace
