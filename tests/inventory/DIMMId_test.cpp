// DIMM location tables: ids of locations of every rule shape, the size and
// last id of each distinct rule, the table each platform selects, and exact
// matching.
#include <gtest/gtest.h>

#include <memory>

#include "DIMMId.h"
#include "InventoryAgent.h"

namespace {

struct Lookup {
    PLATFORM platform;
    const char* location;
    int id;  // -1: not found
};

TEST(DIMMId, LocationsOfEachPlatform)
{
    const Lookup cases[] = {
        {PLATFORM_DRAVON, "DIMM_A1", 1},
        {PLATFORM_ZENTH, "DIMM_A7", 8},
        {PLATFORM_ZENTH, "DIMM_B0", 9},
        {PLATFORM_KESTIN, "MEM1 DIMM_1D", 2},
        {PLATFORM_KESTIN, "MEM2 DIMM_1A", 11},
        {PLATFORM_MORLAC, "CPU2_A0_DIMM_1", 33},
        {PLATFORM_TOVREL, "J1", 25},
        {PLATFORM_TOVREL, "I1", -1},
        {PLATFORM_QUENTAR, "MEM RSR 3 DIMM B2", 29},
        {PLATFORM_DRAVON, "dimm_a1", -1},
        {PLATFORM_DRAVON, "DIMM_A1 ", -1},
        {PLATFORM_DRAVON, "DIMM_G1", -1},
    };
    for (const Lookup& c : cases) {
        std::unique_ptr<DIMMId> table(InventoryAgent::dimmName2Id(c.platform));
        ASSERT_NE(nullptr, table) << c.platform;
        int id = -1;
        EXPECT_EQ(c.id != -1, table->getIdFromLocation(c.location, id)) << c.location;
        EXPECT_EQ(c.id, id) << c.location;
    }
}

TEST(DIMMId, EveryModelHasItsSizeAndLastId)
{
    const struct {
        const char* model;
        size_t count;
        const char* last;
    } cases[] = {
        {"DravonDIMMId", 12, "DIMM_F2"},      {"ZenthDIMMId", 48, "DIMM_F7"},
        {"KestinDIMMId", 64, "MEM8 DIMM_2C"}, {"MorlacDIMMId", 64, "CPU2_D1_DIMM_4"},
        {"Pallix1DIMMId", 16, "DIMM_H2"},     {"Pallix2DIMMId", 24, "DIMM_H3"},
        {"TovrelDIMMId", 48, "S3"},           {"QuentarDIMMId", 96, "MEM RSR 8 DIMM D3"},
        {"LurvenDIMMId", 48, "CPU4_DIMM_F2"},
    };
    for (const auto& c : cases) {
        DIMMId table(c.model);
        EXPECT_EQ(c.count, table.size()) << c.model;
        int id = 0;
        EXPECT_TRUE(table.getIdFromLocation(c.last, id)) << c.model;
        EXPECT_EQ(static_cast<int>(c.count), id) << c.model;
    }
    EXPECT_EQ(0u, DIMMId("NoSuchDIMMId").size());
}

TEST(DIMMId, PlatformSelection)
{
    const struct {
        PLATFORM platform;
        const char* sample;
        const char* model;  // null: no table
    } cases[] = {
        {PLATFORM_UNKNOWN, nullptr, nullptr},
        {PLATFORM_ONDRIK, nullptr, nullptr},
        {PLATFORM_FENLOW, nullptr, nullptr},
        {PLATFORM_WESCAL, nullptr, nullptr},
        {PLATFORM_NIMBREL1, nullptr, "NimbrelDIMMId"},
        {PLATFORM_VORSHA1, nullptr, "Vorsha1DIMMId"},
        // Lurven follows the names its host reports.
        {PLATFORM_LURVEN, nullptr, "QuentarDIMMId"},
        {PLATFORM_LURVEN, "MEM RSR 1 DIMM A1", "QuentarDIMMId"},
        {PLATFORM_LURVEN, "CPU1_DIMM_A1", "LurvenDIMMId"},
    };
    for (const auto& c : cases) {
        std::unique_ptr<DIMMId> table(InventoryAgent::dimmName2Id(c.platform, c.sample));
        if (c.model == nullptr) {
            EXPECT_EQ(nullptr, table) << c.platform;
        } else {
            ASSERT_NE(nullptr, table) << c.platform;
            EXPECT_EQ(c.model, table->model()) << c.platform;
        }
    }
    std::unique_ptr<DIMMId> lurven(InventoryAgent::dimmName2Id(PLATFORM_LURVEN, "CPU2_DIMM_A1"));
    int id = 0;
    EXPECT_TRUE(lurven->getIdFromLocation("CPU2_DIMM_A1", id));
    EXPECT_EQ(13, id);
}

TEST(DIMMId, RulesExpandRightmostFastestAndRejectBrokenRules)
{
    auto ids = DIMMId::expand("R{1-2}{b,a}");
    EXPECT_EQ((std::map<std::string, int>{{"R1b", 1}, {"R1a", 2}, {"R2b", 3}, {"R2a", 4}}), ids);
    EXPECT_TRUE(DIMMId::expand("DIMM_{A-").empty());
}

}  // namespace
