// Hardware platform identification from the product file and the pins.
#include <gtest/gtest.h>

#include "DataAgent.h"
#include "TestRoot.h"

TEST(Platform, ProductAndPinsSelectPlatformAndOnlyAKnownOneIsCached)
{
    const struct {
        const char* product;  // null: no product file
        std::vector<std::pair<const char*, const char*>> pins;
        PLATFORM expected;
    } cases[] = {
        {nullptr, {}, PLATFORM_UNKNOWN},
        {"dravon", {{"2u_chassis", "1"}}, PLATFORM_DRAVON_2U},
        {"ruskel", {{"riser1_id_0", "1"}, {"riser1_id_1", "0"}}, PLATFORM_RUSKEL_RISER},
        {"ruskel", {{"riser1_id_0", "1"}, {"riser1_id_1", "1"}}, PLATFORM_RUSKEL},
        {"ruskel", {{"riser1_id_1", "0"}}, PLATFORM_RUSKEL},  // riser1_id_1 needs riser1_id_0
        {"  fenlow\n", {}, PLATFORM_FENLOW},
    };
    for (const auto& c : cases) {
        TestRoot root;
        if (c.product != nullptr) {
            root.writeFile("/etc/product", c.product);
        }
        for (const auto& pin : c.pins) {
            root.writeFile(std::string("/proc/pellox/gpio/") + pin.first, pin.second);
        }
        DataAgent::resetPlatformCache();
        EXPECT_EQ(c.expected, DataAgent::getPlatform()) << (c.product ? c.product : "(none)");
        root.writeFile("/etc/product", "kestin");
        EXPECT_EQ(c.expected == PLATFORM_UNKNOWN ? PLATFORM_KESTIN : c.expected, DataAgent::getPlatform());
    }
    DataAgent::resetPlatformCache();
}
