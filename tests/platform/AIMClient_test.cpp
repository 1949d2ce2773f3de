// The property service stand-in where the server's tests do not reach it: concurrency and
// snapshots (the server's tests drive the types, refusals, fault files and function fixtures).
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>
#include <string>
#include <thread>
#include <vector>

#include "AIMClient.h"
#include "AIMStore.h"
#include "TestRoot.h"

namespace {
// Sets the stand-ins' recheck interval for one test; back to 0 (the test
// setting) at the end, also when the test stops at a failed assertion.
struct RecheckInterval {
    explicit RecheckInterval(const char* ms) { setenv("GDS_STANDIN_RECHECK_MS", ms, 1); }
    ~RecheckInterval() { setenv("GDS_STANDIN_RECHECK_MS", "0", 1); }
};

class AIMService : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(aim.initialize()); }
    TestRoot root;
    AIMClient aim{"webgui", 25225};
};
}  // namespace

TEST_F(AIMService, ThreadsAndAProcessNeverTearValuesOrRecordLines)
{
    const int kWriters = 4, kRounds = 30;  // the last writer is a child process
    // With the snapshots on (every other test reads the files at each call),
    // so the threads share the value cache and the fault snapshot.
    RecheckInterval snapshots("3600000");
    auto valueOf = [](int w) { return std::string(60 * w + 1, static_cast<char>('a' + w)); };
    auto payload = [](int w) { return std::string(3000 + w, static_cast<char>('A' + w)); };  // long record lines
    auto rounds = [&](int w) {  // failed or torn operations of writer w
        int bad = 0;
        const std::string name = "writer" + std::to_string(w);
        for (int r = 0; r < kRounds; ++r) {
            char text[256] = "";
            bad += !aim.setProperty("shared", valueOf(w).c_str(), true) ||
                   AIMStore::raiseEvent(&r, name.c_str(), payload(w).data(), 3000 + w) != AIMStore::kOk ||
                   !aim.getProperty("shared", text) ||
                   (text[0] >= 'a' && text[0] < 'a' + kWriters ? valueOf(text[0] - 'a') : "?") != text;
        }
        return bad;
    };
    pid_t child = fork();
    if (child == 0) {
        _exit(rounds(kWriters - 1) == 0 ? 0 : 1);
    }
    std::vector<int> bad(kWriters, 0);
    std::vector<std::thread> threads;
    for (int w = 0; w + 1 < kWriters; ++w) {
        threads.emplace_back([&, w] { bad[w] = rounds(w); });
    }
    for (std::thread& th : threads) {
        th.join();
    }
    int status = 0;
    bad[kWriters - 1] = waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::vector<AIMStore::Record> events;
    ASSERT_TRUE(AIMStore::readEvents(events));
    ASSERT_EQ(static_cast<size_t>(kWriters * kRounds), events.size());
    std::vector<int> next(kWriters, 0);
    for (const AIMStore::Record& e : events) {
        int w = e.name.back() - '0';
        ASSERT_EQ(payload(w), e.payload);
        EXPECT_EQ(next[w]++, e.number);  // each writer's events in its own order
    }
    EXPECT_EQ(std::vector<int>(kWriters, 0), bad);
    EXPECT_EQ(std::vector<int>(kWriters, kRounds), next);  // no record lost
}

// With a recheck interval, values and fault files come from snapshots: what
// another process changes waits for the recheck, this process's own writes
// show at once, and another platform root starts afresh.
TEST_F(AIMService, SnapshotsAnswerBetweenRechecks)
{
    RecheckInterval snapshots("3600000");        // no recheck within this test
    ASSERT_TRUE(aim.setProperty("p", 1, true));  // also takes the fault snapshot (no faults)
    int v = 0;
    ASSERT_TRUE(aim.getProperty("p", v));
    root.writeFile("/var/aim/props/p", "int\n2\n");
    root.writeFile("/var/aim/faults/get.p", "");
    // {expected value or -1 for a failed get, after this step}
    const std::pair<int, const char*> steps[] = {
        {1, "another process's changes wait"},
        {3, "own write"},
        {-1, "interval 0: the fault file counts at once"},
    };
    for (const auto& [expected, step] : steps) {
        if (expected == 3) {
            ASSERT_TRUE(aim.setProperty("p", 3, true));
        } else if (expected == -1) {
            setenv("GDS_STANDIN_RECHECK_MS", "0", 1);
        }
        v = -1;
        aim.getProperty("p", v);
        EXPECT_EQ(expected, v) << step;
    }
    setenv("GDS_STANDIN_RECHECK_MS", "3600000", 1);
    {
        TestRoot other;
        AIMClient there{"webgui", 25225};
        ASSERT_TRUE(there.initialize());
        EXPECT_FALSE(there.getProperty("p", v)) << "a snapshot of another root";
    }
}
