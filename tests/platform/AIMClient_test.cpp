// The property service stand-in: type rules, refusals, concurrency, crash safety, fixtures and
// snapshots (the server's tests drive the fault files).
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "AIMClient.h"
#include "AIMStore.h"
#include "TestRoot.h"
#include "aim_config.h"

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

TEST_F(AIMService, GettersFollowTheStoredTypeAndRefusedSetsChangeNothing)
{
    // Stored type and text; what the int, text and crypt getters read ("x": refused).
    const char* table[][5] = {
        {"int", "-42", "-42", "-42", "x"}, {"str", "17", "x", "17", "x"}, {"crypt", "s3", "x", "x", "s3"}};
    for (const auto& row : table) {
        const std::string type = row[0];
        ASSERT_TRUE(type == "int"   ? aim.setProperty("p", atoi(row[1]), true)
                    : type == "str" ? aim.setProperty("p", row[1], true)
                                    : aim.setPropertyCrypt("p", const_cast<char*>(row[1]), true));
        int i = 12345;
        char text[AIMClient::kMaxValue + 1] = "", crypt[AIMClient::kMaxValue + 1] = "";
        EXPECT_EQ(row[2], aim_config_get_int("p", &i) ? std::to_string(i) : "x") << type;
        EXPECT_TRUE(row[2][0] != 'x' || i == 12345) << type;  // untouched on failure
        EXPECT_EQ(row[3], aim.getProperty("p", text) ? std::string(text) : "x") << type;
        EXPECT_EQ(row[4], aim.getPropertyCrypt("p", crypt) ? std::string(crypt) : "x") << type;
    }
    std::string tooLong(AIMClient::kMaxValue + 1, 'L');
    EXPECT_FALSE(aim.setProperty("p", tooLong.c_str(), true));
    EXPECT_FALSE(aim.setProperty("", 1, true));
    char guarded[AIMClient::kMaxValue + 2];
    EXPECT_TRUE(aim.getPropertyCrypt("p", guarded) && std::string("s3") == guarded);  // the old value stays
    tooLong.pop_back();  // the longest value fills the buffer exactly
    ASSERT_TRUE(aim.setProperty("p", tooLong.c_str(), true));
    memset(guarded, '#', sizeof guarded);
    ASSERT_TRUE(aim.getProperty("p", guarded));
    EXPECT_EQ(tooLong, std::string(guarded));
    EXPECT_EQ('#', guarded[AIMClient::kMaxValue + 1]);
}

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

TEST_F(AIMService, KilledWriterLeavesCompleteValues)
{
    const std::string values[] = {"x", std::string(128, 'y'), std::string(255, 'z')};
    ASSERT_EQ(AIMStore::kOk, AIMStore::setText("p", values[0].c_str()));
    for (int round = 0; round < 25; ++round) {
        pid_t child = fork();
        if (child == 0) {
            for (unsigned i = 0;; ++i) {
                AIMStore::setText("p", values[i % 3].c_str());
            }
        }
        ASSERT_GE(child, 0);
        usleep(static_cast<useconds_t>(500 + (round * 397) % 4000));
        kill(child, SIGKILL);
        ASSERT_EQ(child, waitpid(child, nullptr, 0));
        std::string v;
        ASSERT_EQ(AIMStore::kOk, AIMStore::getText("p", v)) << "round " << round;
        EXPECT_TRUE(v == values[0] || v == values[1] || v == values[2]) << v.size() << " bytes";
    }
    std::vector<std::pair<std::string, AIMStore::Value>> listed;  // temp files of killed writers are no properties
    ASSERT_TRUE(AIMStore::list(listed));
    EXPECT_EQ(1u, listed.size());
}

TEST_F(AIMService, FunctionsAnswerFromFixtures)
{
    root.writeFile("/var/aim/functions/okFn", std::string("ok\n\0\1\n", 6));
    root.writeFile("/var/aim/functions/codeFn", "fail 42\n");
    root.writeFile("/var/aim/functions/badFn", "maybe\n");
    char out[8] = "#######";
    int length = -1;
    EXPECT_EQ(0, aim.callFunction("okFn", 0, nullptr, 2, &length, out));  // output cut to the capacity
    EXPECT_EQ(std::string("\0\1#", 3), std::string(out, 3));
    EXPECT_EQ(2, length);
    const std::pair<const char*, int> failing[] = {
        {"codeFn", 42}, {"badFn", AIMStore::kBadFixture}, {"../functions/okFn", AIMStore::kUnknownFunction}};
    for (auto [name, result] : failing) {
        EXPECT_EQ(result, aim.callFunction(name, 0, nullptr, sizeof out, &length, out)) << name;
    }
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
