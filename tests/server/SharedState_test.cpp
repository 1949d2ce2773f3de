// Process-wide state that every connection thread uses, driven from many
// threads at once: the platform cache and the debug log. Functional checks
// here (same answer everywhere, whole lines); the ThreadSanitizer build
// (make test-tsan) reports any unsynchronised access behind them.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "DataAgent.h"
#include "TestRoot.h"
#include "gds_debug_log.h"

namespace {

const int kThreads = 8;

// Runs `body(t)` on kThreads threads that start together.
template <typename Body>
void together(Body body)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back(body, t);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(SharedState, EveryThreadSeesTheSamePlatform)
{
    const struct {
        const char* product;  // null: no product file, so nothing is cached and every call looks again
        const char* chassisPin;
        PLATFORM expected;
    } cases[] = {
        {"dravon", "1", PLATFORM_DRAVON_2U},
        {"zenth", nullptr, PLATFORM_ZENTH},
        {nullptr, nullptr, PLATFORM_UNKNOWN},
    };
    for (const auto& c : cases) {
        TestRoot root;
        if (c.product != nullptr) {
            root.writeFile("/etc/product", c.product);
        }
        if (c.chassisPin != nullptr) {
            root.writeFile("/proc/pellox/gpio/2u_chassis", c.chassisPin);
        }
        DataAgent::resetPlatformCache();
        std::vector<PLATFORM> seen(kThreads * 20, PLATFORM_UNKNOWN);
        together([&](int t) {
            for (int i = 0; i < 20; ++i) {
                seen[t * 20 + i] = DataAgent::getPlatform();
            }
        });
        for (PLATFORM p : seen) {
            EXPECT_EQ(c.expected, p) << (c.product ? c.product : "(no product)");
        }
    }
    DataAgent::resetPlatformCache();
}

TEST(SharedState, DebugLogLinesFromManyThreadsStayWhole)
{
    TestRoot root;
    root.writeFile("/tmp/gdsprint_override", "");
    root.makeDirs("/var/log");
    const int perThread = 50;
    together([&](int t) {
        for (int i = 0; i < perThread; ++i) {
            // Level 3 writes nothing; it must not disturb the others.
            gds_debug_log(i % 3 + 1, "thread %d line %d %s\n", t, i, std::string(200, 'x').c_str());
        }
    });
    std::istringstream log(root.readFile("/var/log/gds.log"));
    static const std::regex whole(R"(\(\d+\)\[[0-9: -]+\] GDS_DBG_(ERROR|INFO): thread [0-9]+ line [0-9]+ x{200})");
    int lines = 0;
    for (std::string line; std::getline(log, line); ++lines) {
        EXPECT_TRUE(std::regex_match(line, whole)) << line;
    }
    int written = 0;
    for (int i = 0; i < perThread; ++i) {
        written += i % 3 + 1 <= 2 ? 1 : 0;
    }
    EXPECT_EQ(kThreads * written, lines);
}

}  // namespace
