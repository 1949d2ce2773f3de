// Hardware platform identification from the product file and the pins,
// looked up first by many connection threads at once: every one sees the
// platform, never a value on its way (the ThreadSanitizer build reports any
// unsynchronised access behind it).
#include <gtest/gtest.h>

#include <thread>
#include <vector>

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
        const int kThreads = 8, kLooks = 20;
        std::vector<PLATFORM> seen(kThreads * kLooks, PLATFORM_UNKNOWN);
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&seen, t] {
                for (int i = 0; i < kLooks; ++i) {
                    seen[t * kLooks + i] = DataAgent::getPlatform();
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(std::vector<PLATFORM>(seen.size(), c.expected), seen) << (c.product ? c.product : "(none)");
        root.writeFile("/etc/product", "kestin");
        EXPECT_EQ(c.expected == PLATFORM_UNKNOWN ? PLATFORM_KESTIN : c.expected, DataAgent::getPlatform());
    }
    DataAgent::resetPlatformCache();
}
