// The property service stand-in: type rules, hostile names, concurrency
// between threads and processes, crash safety, records, fixtures, faults.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "AIMClient.h"
#include "AIMStore.h"
#include "TestRoot.h"
#include "aim_config.h"

namespace {
// Runs `body` in a forked child that exits with its result.
template <typename F>
pid_t spawn(F body)
{
    pid_t pid = fork();
    if (pid == 0) {
        _exit(body());
    }
    return pid;
}

// The child's exit status; -1 when it did not exit normally.
int exitStatus(pid_t pid)
{
    int status = 0;
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A record file with the time field cut from each line.
std::string untimed(const std::string& log)
{
    std::string out;
    for (size_t at = 0, end; (end = log.find('\n', at)) != std::string::npos; at = end + 1) {
        size_t space = log.find(' ', at);
        out += log.substr(space + 1, end - space);
    }
    return out;
}

class AIMService : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(aim.initialize()); }
    TestRoot root;
    AIMClient aim{"webgui", 25225};
};
}  // namespace

TEST_F(AIMService, SettersStoreTypesAndGettersFollowTheTypeRules)
{
    // Stored type and text; what the int, bool, text and crypt getters read ("x": refused).
    const char* table[][6] = {
        {"int", "-42", "-42", "1", "-42", "x"}, {"int", "0", "0", "0", "0", "x"},
        {"bool", "1", "1", "1", "1", "x"},      {"bool", "0", "0", "0", "0", "x"},
        {"str", "17", "x", "x", "17", "x"},     {"crypt", "s3cret", "x", "x", "x", "s3cret"},
    };
    for (const auto& row : table) {
        // Each setter replaces the value and type the row before stored.
        const std::string type = row[0];
        ASSERT_TRUE(type == "int"    ? aim.setProperty("p", atoi(row[1]), true)
                    : type == "bool" ? aim.setProperty("p", row[1][0] == '1', true)
                    : type == "str"  ? aim.setProperty("p", row[1], true)
                                     : aim.setPropertyCrypt("p", const_cast<char*>(row[1]), true));
        SCOPED_TRACE(std::string(row[0]) + " " + row[1]);
        int i = 12345;
        bool b = false;
        char text[AIMClient::kMaxValue + 1] = "untouched", crypt[AIMClient::kMaxValue + 1] = "";
        EXPECT_EQ(row[2], aim.getProperty("p", i) ? std::to_string(i) : "x");
        EXPECT_TRUE(row[2][0] != 'x' || i == 12345);  // untouched on failure
        EXPECT_EQ(row[3], aim.getProperty("p", b) ? std::to_string(b) : "x");
        EXPECT_EQ(row[4], aim.getProperty("p", text) ? std::string(text) : "x");
        EXPECT_TRUE(row[4][0] != 'x' || std::string("untouched") == text);
        EXPECT_EQ(row[5], aim.getPropertyCrypt("p", crypt) ? std::string(crypt) : "x");
        // The C functions share the rules.
        EXPECT_EQ(row[2], aim_config_get_int("p", &i) ? std::to_string(i) : "x");
        EXPECT_EQ(row[3], aim_config_get_bool("p", &b) ? std::to_string(b) : "x");
        EXPECT_EQ(row[4], aim_config_get_str("p", text) ? std::string(text) : "x");
    }
    int i = 0;
    for (const char* name : {"absent", "", static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(aim.getProperty(name, i));
    }
}

TEST_F(AIMService, SettersRefuseBadInputAndTextFillsBuffersExactly)
{
    char text[256];
    int i = 0;
    ASSERT_TRUE(aim_config_set_int("p", -3, 1) && aim_config_get_int("p", &i));
    EXPECT_EQ(-3, i);
    ASSERT_TRUE(aim_config_set_str("p", "x y", 1));

    // Refused: too long, null, bad names. The old value stays.
    std::string tooLong(AIMClient::kMaxValue + 1, 'L');
    EXPECT_FALSE(aim.setProperty("p", tooLong.c_str(), true));
    EXPECT_FALSE(aim.setPropertyCrypt("p", &tooLong[0], true));
    EXPECT_FALSE(aim_config_set_str("p", tooLong.c_str(), 1));
    EXPECT_FALSE(aim.setProperty("p", static_cast<const char*>(nullptr), true));
    EXPECT_FALSE(aim.setProperty("", 1, true));
    EXPECT_FALSE(aim.setProperty(nullptr, 1, true));
    ASSERT_TRUE(aim_config_get_str("p", text));
    EXPECT_STREQ("x y", text);

    // The longest value fills the 256-byte buffer exactly; the bounded form cuts.
    const std::string longest(AIMClient::kMaxValue, 'L');
    ASSERT_TRUE(aim.setProperty("p", longest.c_str(), true));
    char guarded[AIMClient::kMaxValue + 2];
    for (bool viaC : {false, true}) {
        memset(guarded, '#', sizeof guarded);
        ASSERT_TRUE(viaC ? aim_config_get_str("p", guarded) != 0 : aim.getProperty("p", guarded));
        EXPECT_EQ(longest, std::string(guarded));
        EXPECT_EQ('#', guarded[AIMClient::kMaxValue + 1]);
    }
    memset(guarded, '#', sizeof guarded);
    ASSERT_TRUE(aim_config_get_str_n("p", guarded, 5));
    EXPECT_STREQ("LLLL", guarded);
    EXPECT_EQ('#', guarded[5]);
    EXPECT_FALSE(aim_config_get_str_n("p", guarded, 0));
    EXPECT_FALSE(aim_config_get_str_n("p", nullptr, 5));
}

TEST_F(AIMService, HostileNamesStayInsideThePropertyFolder)
{
    const char* names[] = {"../x", "../../escape", "a/b", " b", "b", "two\nlines", ".", "..", "/abs", "a.b"};
    for (const char* name : names) {
        ASSERT_TRUE(aim.setProperty(name, name, true)) << name;
    }
    for (const char* name : names) {
        char text[256] = "";
        ASSERT_TRUE(aim.getProperty(name, text)) << name;
        EXPECT_STREQ(name, text);
    }
    std::vector<std::pair<std::string, AIMStore::Value>> listed;
    ASSERT_TRUE(AIMStore::list(listed));
    EXPECT_EQ(std::size(names), listed.size());
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root.dir())) {
        if (entry.symlink_status().type() != std::filesystem::file_type::directory) {
            EXPECT_EQ(std::filesystem::path(root.path("/var/aim/props")), entry.path().parent_path());
        }
    }
}

TEST_F(AIMService, CryptValuesAreNotStoredOrLoggedInClearText)
{
    FILE* logFile = fopen(root.path("/aim.log").c_str(), "w");
    ASSERT_NE(nullptr, logFile);
    ALog log("test", logFile);
    log.setLevel(ALog::kTrace);
    aim.setLog(log);
    char secret[] = "Tr0ub4dor&3", back[256] = "";
    ASSERT_TRUE(aim.setPropertyCrypt("admin.pw", secret, true) && aim.getPropertyCrypt("admin.pw", back));
    EXPECT_STREQ(secret, back);
    ASSERT_TRUE(aim.setProperty("plain", "visible", true));
    EXPECT_EQ(std::string::npos, root.readFile("/var/aim/props/admin.pw").find(secret));
    log.flush();
    const std::string logged = root.readFile("/aim.log");
    fclose(logFile);
    EXPECT_NE(std::string::npos, logged.find("admin.pw"));
    EXPECT_NE(std::string::npos, logged.find("visible"));
    EXPECT_EQ(std::string::npos, logged.find(secret));
}

TEST_F(AIMService, ThreadsAndAProcessNeverTearValuesOrRecordLines)
{
    const int kThreads = 6, kRounds = 30;
    // Writer kThreads is a child process. Event payloads make record lines
    // several kilobytes long.
    auto valueOf = [](int w) { return std::string(40 * w + 1, static_cast<char>('a' + w)); };
    auto payload = [](int w) { return std::string(3000 + w, static_cast<char>('A' + w)); };
    std::set<std::string> written;
    for (int w = 0; w <= kThreads; ++w) {
        written.insert(valueOf(w));
    }
    // Failed or torn operations of writer w.
    auto rounds = [&](int w) {
        int bad = 0;
        const std::string mine = valueOf(w), own = "own." + std::to_string(w), p = payload(w);
        for (int r = 0; r < kRounds; ++r) {
            char text[256] = "";
            bad += !aim.setProperty("shared", mine.c_str(), true) || !aim.setProperty(own.c_str(), r, true) ||
                   AIMStore::raiseEvent(&r, own.c_str(), p.data(), static_cast<int>(p.size())) != AIMStore::kOk ||
                   !aim.getProperty("shared", text) || written.count(text) == 0;
        }
        return bad;
    };
    pid_t child = spawn([&] { return rounds(kThreads) == 0 ? 0 : 1; });
    ASSERT_GE(child, 0);
    std::vector<int> bad(kThreads + 1, 0);
    std::vector<std::thread> threads;
    for (int w = 0; w < kThreads; ++w) {
        threads.emplace_back([&, w] { bad[w] = rounds(w); });
    }
    for (std::thread& th : threads) {
        th.join();
    }
    bad[kThreads] = exitStatus(child);
    std::vector<AIMStore::Record> events;
    ASSERT_TRUE(AIMStore::readEvents(events));
    ASSERT_EQ((kThreads + 1u) * kRounds, events.size());
    std::vector<int> next(kThreads + 1, 0);
    for (const AIMStore::Record& e : events) {
        int w = e.name.back() - '0';
        ASSERT_EQ(payload(w), e.payload);
        EXPECT_EQ(next[w]++, e.number);  // each writer's events in its own order
    }
    for (int w = 0; w <= kThreads; ++w) {
        EXPECT_EQ(0, bad[w]) << "writer " << w;
        int last = -1;
        ASSERT_TRUE(aim.getProperty(("own." + std::to_string(w)).c_str(), last));
        EXPECT_EQ(kRounds - 1, last);
    }
}

TEST_F(AIMService, KilledWriterLeavesCompleteValues)
{
    const std::string values[] = {"x", std::string(128, 'y'), std::string(255, 'z')};
    const char* names[] = {"p0", "p1", "p2"};
    for (const char* name : names) {
        ASSERT_EQ(AIMStore::kOk, AIMStore::setText(name, values[0].c_str()));
    }
    for (int round = 0; round < 25; ++round) {
        pid_t child = spawn([&] {
            for (unsigned i = 0;; ++i) {
                AIMStore::setText(names[i % 3], values[(i / 3) % 3].c_str());
            }
            return 0;
        });
        ASSERT_GE(child, 0);
        usleep(static_cast<useconds_t>(500 + (round * 397) % 4000));
        kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        ASSERT_TRUE(WIFSIGNALED(status));
        for (const char* name : names) {
            std::string v;
            ASSERT_EQ(AIMStore::kOk, AIMStore::getText(name, v)) << name << " round " << round;
            EXPECT_TRUE(v == values[0] || v == values[1] || v == values[2]) << name << ": " << v.size() << " bytes";
        }
    }
    // Temp files of killed writers never show up as properties.
    std::vector<std::pair<std::string, AIMStore::Value>> listed;
    ASSERT_TRUE(AIMStore::list(listed));
    EXPECT_EQ(3u, listed.size());
}

TEST_F(AIMService, EventsAndCallsAreRecordedInOrderWithExactBytes)
{
    char ssh[68] = {2};
    memcpy(ssh + 4, "/etc/init.d/sshd-init restart ", 30);
    ASSERT_TRUE(aim.notifyEvent("pm_event_ssh_config_changed", sizeof ssh, ssh));
    ASSERT_TRUE(aim.notifyEvent("pm_event_telnet_config_changed", 0, nullptr));
    ASSERT_TRUE(aim_event_type_occurred(4, "event_server_crash", 8, "vexil_\n\0"));
    EXPECT_FALSE(aim.notifyEvent("bad", -1, nullptr));
    EXPECT_FALSE(aim.notifyEvent("bad", 4, nullptr));
    EXPECT_FALSE(aim.notifyEvent(nullptr, 0, nullptr));
    int input = 1, length = 4;
    EXPECT_NE(0,
              aim_function_execute_with_timeout_setting("ipmi_function_bbbconfig", &length, &input, 0, nullptr, 30000));
    EXPECT_NE(0, aim.callFunction("netGetCurrentIfConfig", 0, nullptr, 0, nullptr, nullptr));

    EXPECT_EQ("- pm_event_ssh_config_changed " + AIMStore::toHex(ssh, sizeof ssh) +
                  "\n- pm_event_telnet_config_changed -\n4 event_server_crash 766578696c5f0a00\n",
              untimed(root.readFile("/var/aim/events.log")));
    EXPECT_EQ("30000 ipmi_function_bbbconfig 01000000\n- netGetCurrentIfConfig -\n",
              untimed(root.readFile("/var/aim/calls.log")));

    ASSERT_TRUE(AIMStore::clearRecords());
    ASSERT_TRUE(aim.notifyEvent("after", 0, nullptr));
    EXPECT_EQ("- after -\n", untimed(root.readFile("/var/aim/events.log")));
    EXPECT_EQ("", root.readFile("/var/aim/calls.log"));
}

TEST_F(AIMService, FunctionsAnswerFromFixtures)
{
    const std::string binary("\0\1\n\xff\r\n", 6);
    root.writeFile("/var/aim/functions/okFn", "ok\n" + binary);
    root.writeFile("/var/aim/functions/failFn", "fail\nignored");
    root.writeFile("/var/aim/functions/codeFn", "fail 42\n");
    root.writeFile("/var/aim/functions/badFn", "maybe\n");
    ASSERT_TRUE(AIMStore::writeFixture("big", true, 0, std::string(5000, 'b')));
    const struct {
        const char* name;
        int capacity, result;
        std::string output;
    } cases[] = {
        {"okFn", 64, 0, binary},
        {"okFn", 3, 0, binary.substr(0, 3)},
        {"okFn", 0, 0, ""},
        {"big", 5000, 0, std::string(5000, 'b')},
        {"failFn", 64, 1, ""},
        {"codeFn", 64, 42, ""},
        {"badFn", 64, AIMStore::kBadFixture, ""},
        {"missing", 64, AIMStore::kUnknownFunction, ""},
        {"../functions/okFn", 64, AIMStore::kUnknownFunction, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " capacity " + std::to_string(c.capacity));
        std::vector<char> out(static_cast<size_t>(c.capacity) + 16, '#');
        char* outPtr = c.capacity > 0 ? out.data() : nullptr;
        int length = -1, cLength = 0;
        EXPECT_EQ(c.result, aim.callFunction(c.name, 0, nullptr, c.capacity, &length, outPtr));
        EXPECT_EQ(c.output, std::string(out.data(), static_cast<size_t>(length)));
        EXPECT_EQ('#', out[static_cast<size_t>(c.capacity)]);
        EXPECT_EQ(c.result,
                  aim_function_execute_with_timeout_setting(c.name, &cLength, nullptr, c.capacity, outPtr, 5));
        EXPECT_EQ(static_cast<int>(c.output.size()), cLength);
    }
    int length = 0;
    char out[4];
    EXPECT_EQ(AIMStore::kBadArguments, aim.callFunction("okFn", 4, nullptr, 4, &length, out));
    EXPECT_EQ(AIMStore::kBadArguments, aim.callFunction("okFn", 0, nullptr, 4, &length, nullptr));
    EXPECT_EQ(AIMStore::kBadArguments, aim.callFunction("okFn", -1, out, 4, &length, out));
}

TEST_F(AIMService, FaultFilesMakeOperationsFail)
{
    ASSERT_TRUE(aim.setProperty("ro", 1, true) && aim.setProperty("hidden", 2, true));
    for (const char* fault : {"initialize", "set.ro", "get.hidden", "event.gui_event_config_changed"}) {
        root.writeFile(std::string("/var/aim/faults/") + fault, "");
    }
    EXPECT_FALSE(aim.initialize());
    EXPECT_FALSE(aim.setProperty("ro", 5, true));
    EXPECT_FALSE(aim_config_set_int("ro", 5, 1));
    int value = 0;
    ASSERT_TRUE(aim.getProperty("ro", value));
    EXPECT_EQ(1, value);
    EXPECT_FALSE(aim.getProperty("hidden", value));
    EXPECT_FALSE(aim_config_get_int("hidden", &value));
    EXPECT_TRUE(aim.setProperty("hidden", 3, true));
    int web = 1;
    EXPECT_FALSE(aim.notifyEvent("gui_event_config_changed", 4, &web));
    EXPECT_TRUE(aim.notifyEvent("apid_config_changed", 4, &web));
    // A refused event is not recorded.
    EXPECT_EQ("- apid_config_changed 01000000\n", untimed(root.readFile("/var/aim/events.log")));
}
