// The property service stand-in: type rules, hostile names, concurrency
// between threads and processes, crash safety, records, fixtures, faults.
#include <gtest/gtest.h>

#include <ftw.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "AIMClient.h"
#include "AIMStore.h"
#include "TestRoot.h"
#include "aim_config.h"

namespace {
std::vector<std::string> g_files;

int collect(const char* path, const struct stat*, int type, struct FTW*)
{
    if (type == FTW_F || type == FTW_SL) {
        g_files.push_back(path);
    }
    return 0;
}

// Every file below `dir`.
std::vector<std::string> filesBelow(const std::string& dir)
{
    g_files.clear();
    nftw(dir.c_str(), collect, 16, FTW_PHYS);
    return g_files;
}

// Stored values of every type, and what each getter makes of them.
struct Stored {
    const char* type;
    const char* text;
    bool intOk;
    int asInt;
    bool boolOk;
    bool asBool;
    bool textOk;
    const char* asText;
    bool cryptOk;
};
}  // namespace

TEST(AIMClient, GettersFollowTheTypeRules)
{
    TestRoot root;
    AIMClient aim("webgui", 25225);
    ASSERT_TRUE(aim.initialize());
    const Stored table[] = {
        {"int", "-42", true, -42, true, true, true, "-42", false},
        {"int", "0", true, 0, true, false, true, "0", false},
        {"bool", "1", true, 1, true, true, true, "1", false},
        {"bool", "0", true, 0, true, false, true, "0", false},
        {"str", "17", false, 0, false, false, true, "17", false},
        {"str", "", false, 0, false, false, true, "", false},
        {"crypt", "s3cret", false, 0, false, false, false, "", true},
    };
    for (const Stored& s : table) {
        AIMStore::Value v;
        ASSERT_TRUE(AIMStore::makeValue(AIMStore::typeFromName(s.type), s.text, v));
        ASSERT_EQ(AIMStore::kOk, AIMStore::write("p", v));
        SCOPED_TRACE(std::string(s.type) + " " + s.text);
        int i = 12345;
        EXPECT_EQ(s.intOk, aim.getProperty("p", i));
        EXPECT_EQ(s.intOk ? s.asInt : 12345, i);  // untouched on failure
        bool b = false;
        EXPECT_EQ(s.boolOk, aim.getProperty("p", b));
        if (s.boolOk) {
            EXPECT_EQ(s.asBool, b);
        }
        char text[AIMClient::kMaxValue + 1] = "untouched";
        EXPECT_EQ(s.textOk, aim.getProperty("p", text));
        EXPECT_STREQ(s.textOk ? s.asText : "untouched", text);
        char crypt[AIMClient::kMaxValue + 1] = "";
        EXPECT_EQ(s.cryptOk, aim.getPropertyCrypt("p", crypt));
        EXPECT_STREQ(s.cryptOk ? s.text : "", crypt);

        // The C functions share the rules.
        int ci = 0;
        bool cb = false;
        char cs[256] = "";
        EXPECT_EQ(s.intOk, aim_config_get_int("p", &ci) != 0);
        EXPECT_EQ(s.boolOk, aim_config_get_bool("p", &cb) != 0);
        EXPECT_EQ(s.textOk, aim_config_get_str("p", cs) != 0);
    }
    int i = 0;
    char text[256];
    EXPECT_FALSE(aim.getProperty("absent", i));
    EXPECT_FALSE(aim.getProperty("absent", text));
    EXPECT_FALSE(aim.getProperty(nullptr, i));
    EXPECT_FALSE(aim.getProperty("", i));
}

TEST(AIMClient, SettersReplaceValueAndType)
{
    TestRoot root;
    AIMClient aim("webgui", 25225);
    ASSERT_TRUE(aim.initialize());
    char text[256];
    int i = 0;
    bool b = false;

    ASSERT_TRUE(aim.setProperty("p", 7, true));
    ASSERT_TRUE(aim.getProperty("p", text));
    EXPECT_STREQ("7", text);
    ASSERT_TRUE(aim.setProperty("p", "7x", true));
    EXPECT_FALSE(aim.getProperty("p", i));
    ASSERT_TRUE(aim.setPropertyCrypt("p", const_cast<char*>("pw"), true));
    EXPECT_FALSE(aim.getProperty("p", text));
    ASSERT_TRUE(aim.setProperty("p", true, false));
    ASSERT_TRUE(aim.getProperty("p", b));
    EXPECT_TRUE(b);
    ASSERT_TRUE(aim_config_set_int("p", -3, 1));
    ASSERT_TRUE(aim_config_get_int("p", &i));
    EXPECT_EQ(-3, i);
    ASSERT_TRUE(aim_config_set_bool("p", false, 1));
    ASSERT_TRUE(aim_config_get_bool("p", &b));
    EXPECT_FALSE(b);
    ASSERT_TRUE(aim_config_set_str("p", "x y", 1));
    ASSERT_TRUE(aim_config_get_str("p", text));
    EXPECT_STREQ("x y", text);

    // Refused: too long, null, bad names. The old value stays.
    std::string longest(AIMClient::kMaxValue, 'L');
    std::string tooLong(AIMClient::kMaxValue + 1, 'L');
    EXPECT_FALSE(aim.setProperty("p", tooLong.c_str(), true));
    EXPECT_FALSE(aim.setPropertyCrypt("p", &tooLong[0], true));
    EXPECT_FALSE(aim_config_set_str("p", tooLong.c_str(), 1));
    EXPECT_FALSE(aim.setProperty("p", static_cast<const char*>(nullptr), true));
    EXPECT_FALSE(aim.setProperty("", 1, true));
    EXPECT_FALSE(aim.setProperty(nullptr, 1, true));
    ASSERT_TRUE(aim.getProperty("p", text));
    EXPECT_STREQ("x y", text);

    // The longest value fills the 256-byte buffer exactly.
    ASSERT_TRUE(aim.setProperty("p", longest.c_str(), true));
    char guarded[AIMClient::kMaxValue + 2];
    memset(guarded, '#', sizeof guarded);
    ASSERT_TRUE(aim.getProperty("p", guarded));
    EXPECT_EQ(longest, std::string(guarded));
    EXPECT_EQ('#', guarded[AIMClient::kMaxValue + 1]);
    memset(guarded, '#', sizeof guarded);
    ASSERT_TRUE(aim_config_get_str("p", guarded));
    EXPECT_EQ('#', guarded[AIMClient::kMaxValue + 1]);

    // The bounded form cuts and terminates.
    char small[6];
    memset(small, '#', sizeof small);
    ASSERT_TRUE(aim_config_get_str_n("p", small, 5));
    EXPECT_STREQ("LLLL", small);
    EXPECT_EQ('#', small[5]);
    EXPECT_FALSE(aim_config_get_str_n("p", small, 0));
    EXPECT_FALSE(aim_config_get_str_n("p", nullptr, 5));
}

TEST(AIMClient, HostileNamesStayInsideThePropertyFolder)
{
    TestRoot root;
    AIMClient aim("webgui", 25225);
    ASSERT_TRUE(aim.initialize());
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
    EXPECT_EQ(sizeof names / sizeof names[0], listed.size());
    const std::string props = root.path("/var/aim/props/");
    for (const std::string& file : filesBelow(root.dir())) {
        EXPECT_EQ(0u, file.compare(0, props.size(), props)) << file;
        EXPECT_EQ(std::string::npos, file.find('/', props.size())) << file;
    }
}

TEST(AIMClient, CryptValuesAreNotStoredOrLoggedInClearText)
{
    TestRoot root;
    FILE* logFile = tmpfile();
    ASSERT_NE(nullptr, logFile);
    ALog log("test", logFile);
    log.setLevel(ALog::kTrace);
    AIMClient aim("webgui", 25225);
    aim.setLog(log);
    ASSERT_TRUE(aim.initialize());
    char secret[] = "Tr0ub4dor&3";
    ASSERT_TRUE(aim.setPropertyCrypt("admin.pw", secret, true));
    char back[256] = "";
    ASSERT_TRUE(aim.getPropertyCrypt("admin.pw", back));
    EXPECT_STREQ(secret, back);
    ASSERT_TRUE(aim.setProperty("plain", "visible", true));

    EXPECT_EQ(std::string::npos, root.readFile("/var/aim/props/admin.pw").find(secret));
    fflush(logFile);
    rewind(logFile);
    std::string logged;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, logFile)) > 0) {
        logged.append(buf, n);
    }
    fclose(logFile);
    EXPECT_NE(std::string::npos, logged.find("admin.pw"));
    EXPECT_NE(std::string::npos, logged.find("visible"));
    EXPECT_EQ(std::string::npos, logged.find(secret));
}

TEST(AIMClient, ConcurrentWritersNeverTearAValue)
{
    TestRoot root;
    AIMClient aim("webgui", 25225);
    ASSERT_TRUE(aim.initialize());
    const int kThreads = 8;
    const int kRounds = 30;
    std::set<std::string> written;
    for (int t = 0; t < kThreads; ++t) {
        written.insert(std::string(30 * t + 1, static_cast<char>('a' + t)));
    }
    ASSERT_TRUE(aim.setProperty("shared", "a", true));
    std::vector<std::string> torn(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            const std::string mine(30 * t + 1, static_cast<char>('a' + t));
            const std::string own = "own." + std::to_string(t);
            for (int r = 0; r < kRounds; ++r) {
                char text[256] = "";
                bool ok = aim.setProperty("shared", mine.c_str(), true) && aim.setProperty(own.c_str(), r, true) &&
                          aim.getProperty("shared", text);
                if (!ok || written.count(text) == 0) {
                    torn[t] = ok ? text : "operation failed";
                    return;
                }
            }
        });
    }
    for (std::thread& th : threads) {
        th.join();
    }
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ("", torn[t]) << "thread " << t;
        int last = -1;
        ASSERT_TRUE(aim.getProperty(("own." + std::to_string(t)).c_str(), last));
        EXPECT_EQ(kRounds - 1, last);
    }
}

TEST(AIMClient, TwoProcessesWriteTheSameStore)
{
    TestRoot root;
    const std::string values[] = {"parent", std::string(200, 'c')};
    ASSERT_EQ(AIMStore::kOk, AIMStore::setText("shared", values[0].c_str()));
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        int bad = 0;
        for (int i = 0; i < 40; ++i) {
            std::string v;
            bad += AIMStore::setText("shared", values[1].c_str()) != AIMStore::kOk;
            bad += AIMStore::setInt("child", i) != AIMStore::kOk;
            bad += AIMStore::getText("shared", v) != AIMStore::kOk || (v != values[0] && v != values[1]);
        }
        _exit(bad == 0 ? 0 : 1);
    }
    int bad = 0;
    for (int i = 0; i < 40; ++i) {
        std::string v;
        bad += AIMStore::setText("shared", values[0].c_str()) != AIMStore::kOk;
        bad += AIMStore::getText("shared", v) != AIMStore::kOk || (v != values[0] && v != values[1]);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(0, bad);
    int last = 0;
    ASSERT_EQ(AIMStore::kOk, AIMStore::getInt("child", last));
    EXPECT_EQ(39, last);
}

TEST(AIMClient, KilledWriterLeavesCompleteValues)
{
    TestRoot root;
    const std::string values[] = {"x", std::string(128, 'y'), std::string(255, 'z')};
    const char* names[] = {"p0", "p1", "p2"};
    for (const char* name : names) {
        ASSERT_EQ(AIMStore::kOk, AIMStore::setText(name, values[0].c_str()));
    }
    for (int round = 0; round < 25; ++round) {
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            for (unsigned i = 0;; ++i) {
                AIMStore::setText(names[i % 3], values[(i / 3) % 3].c_str());
            }
        }
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

TEST(AIMClient, EventsAndCallsAreRecordedInOrderWithExactBytes)
{
    TestRoot root;
    AIMClient aim("webgui", 25225);
    ASSERT_TRUE(aim.initialize());
    char ssh[68] = {};
    ssh[0] = 2;
    memcpy(ssh + 4, "/etc/init.d/sshd-init restart ", 30);
    ASSERT_TRUE(aim.notifyEvent("pm_event_ssh_config_changed", sizeof ssh, ssh));
    ASSERT_TRUE(aim.notifyEvent("pm_event_telnet_config_changed", 0, nullptr));
    ASSERT_TRUE(aim_event_type_occurred(4, "event_server_crash", 8, "vexil_\n\0"));
    EXPECT_FALSE(aim.notifyEvent("bad", -1, nullptr));
    EXPECT_FALSE(aim.notifyEvent("bad", 4, nullptr));
    EXPECT_FALSE(aim.notifyEvent(nullptr, 0, nullptr));

    int input = 1;
    int length = 4;
    EXPECT_NE(0,
              aim_function_execute_with_timeout_setting("ipmi_function_bbbconfig", &length, &input, 0, nullptr, 30000));
    EXPECT_NE(0, aim.callFunction("netGetCurrentIfConfig", 0, nullptr, 0, nullptr, nullptr));

    std::vector<AIMStore::Record> events;
    ASSERT_TRUE(AIMStore::readEvents(events));
    ASSERT_EQ(3u, events.size());
    EXPECT_EQ("pm_event_ssh_config_changed", events[0].name);
    EXPECT_FALSE(events[0].hasNumber);
    EXPECT_EQ(std::string(ssh, sizeof ssh), events[0].payload);
    EXPECT_EQ("", events[1].payload);
    EXPECT_EQ("event_server_crash", events[2].name);
    ASSERT_TRUE(events[2].hasNumber);
    EXPECT_EQ(4, events[2].number);
    EXPECT_EQ(std::string("vexil_\n\0", 8), events[2].payload);

    std::vector<AIMStore::Record> calls;
    ASSERT_TRUE(AIMStore::readCalls(calls));
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ("ipmi_function_bbbconfig", calls[0].name);
    EXPECT_EQ(std::string("\1\0\0\0", 4), calls[0].payload);
    EXPECT_TRUE(calls[0].hasNumber);
    EXPECT_EQ(30000, calls[0].number);
    EXPECT_FALSE(calls[1].hasNumber);

    ASSERT_TRUE(AIMStore::clearRecords());
    ASSERT_TRUE(AIMStore::readEvents(events));
    EXPECT_TRUE(events.empty());
    ASSERT_TRUE(aim.notifyEvent("after", 0, nullptr));
    ASSERT_TRUE(AIMStore::readEvents(events));
    EXPECT_EQ(1u, events.size());
}

TEST(AIMClient, RecordLinesStayWholeUnderThreadsAndProcesses)
{
    TestRoot root;
    const int kPerWriter = 40;
    // Long payloads: each line is several kilobytes.
    auto payload = [](int writer) { return std::string(3000 + writer, static_cast<char>('A' + writer)); };
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::string p = payload(4);
        int bad = 0;
        for (int i = 0; i < kPerWriter; ++i) {
            bad += AIMStore::raiseEvent(nullptr, "w4", p.data(), static_cast<int>(p.size())) != AIMStore::kOk;
        }
        _exit(bad == 0 ? 0 : 1);
    }
    std::vector<std::thread> threads;
    for (int w = 0; w < 4; ++w) {
        threads.emplace_back([&, w] {
            std::string p = payload(w);
            std::string name = "w" + std::to_string(w);
            for (int i = 0; i < kPerWriter; ++i) {
                AIMStore::raiseEvent(&i, name.c_str(), p.data(), static_cast<int>(p.size()));
            }
        });
    }
    for (std::thread& th : threads) {
        th.join();
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    std::vector<AIMStore::Record> events;
    ASSERT_TRUE(AIMStore::readEvents(events));
    ASSERT_EQ(5u * kPerWriter, events.size());
    std::vector<int> next(5, 0);
    for (const AIMStore::Record& e : events) {
        int w = e.name[1] - '0';
        ASSERT_EQ(payload(w), e.payload);
        if (w < 4) {
            EXPECT_EQ(next[w]++, e.number);  // each thread's events in its own order
        }
    }
}

TEST(AIMClient, FunctionsAnswerFromFixtures)
{
    TestRoot root;
    AIMClient aim("webgui", 25225);
    ASSERT_TRUE(aim.initialize());
    const std::string binary("\0\1\n\xff\r\n", 6);
    root.writeFile("/var/aim/functions/okFn", "ok\n" + binary);
    root.writeFile("/var/aim/functions/failFn", "fail\nignored");
    root.writeFile("/var/aim/functions/codeFn", "fail 42\n");
    root.writeFile("/var/aim/functions/badFn", "maybe\n");
    ASSERT_TRUE(AIMStore::writeFixture("big", true, 0, std::string(5000, 'b')));
    struct Case {
        const char* name;
        int capacity;
        int result;
        std::string output;
    };
    const Case cases[] = {
        {"okFn", 64, 0, binary},
        {"okFn", 3, 0, binary.substr(0, 3)},
        {"okFn", 0, 0, ""},
        {"big", 5000, 0, std::string(5000, 'b')},
        {"big", 4096, 0, std::string(4096, 'b')},
        {"failFn", 64, 1, ""},
        {"codeFn", 64, 42, ""},
        {"badFn", 64, AIMStore::kBadFixture, ""},
        {"missing", 64, AIMStore::kUnknownFunction, ""},
        {"../functions/okFn", 64, AIMStore::kUnknownFunction, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " capacity " + std::to_string(c.capacity));
        std::vector<char> out(static_cast<size_t>(c.capacity) + 16, '#');
        int length = -1;
        EXPECT_EQ(c.result,
                  aim.callFunction(c.name, 0, nullptr, c.capacity, &length, c.capacity > 0 ? out.data() : nullptr));
        EXPECT_EQ(c.output, std::string(out.data(), static_cast<size_t>(length)));
        EXPECT_EQ('#', out[static_cast<size_t>(c.capacity)]);

        int cLength = 0;
        EXPECT_EQ(c.result, aim_function_execute_with_timeout_setting(c.name, &cLength, nullptr, c.capacity,
                                                                      c.capacity > 0 ? out.data() : nullptr, 5));
        EXPECT_EQ(static_cast<int>(c.output.size()), cLength);
    }
    int length = 0;
    char out[4];
    EXPECT_EQ(AIMStore::kBadArguments, aim.callFunction("okFn", 4, nullptr, 4, &length, out));
    EXPECT_EQ(AIMStore::kBadArguments, aim.callFunction("okFn", 0, nullptr, 4, &length, nullptr));
    EXPECT_EQ(AIMStore::kBadArguments, aim.callFunction("okFn", -1, out, 4, &length, out));
    std::vector<AIMStore::Record> calls;
    ASSERT_TRUE(AIMStore::readCalls(calls));
    EXPECT_EQ(2 * (sizeof cases / sizeof cases[0]), calls.size());
}

TEST(AIMClient, FaultFilesMakeOperationsFail)
{
    TestRoot root;
    AIMClient aim("webgui", 25225);
    ASSERT_TRUE(aim.initialize());
    ASSERT_TRUE(aim.setProperty("ro", 1, true));
    ASSERT_TRUE(aim.setProperty("hidden", 2, true));
    root.writeFile("/var/aim/faults/initialize", "");
    root.writeFile("/var/aim/faults/set.ro", "");
    root.writeFile("/var/aim/faults/get.hidden", "");
    root.writeFile("/var/aim/faults/event.gui_event_config_changed", "");

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
    std::vector<AIMStore::Record> events;
    ASSERT_TRUE(AIMStore::readEvents(events));
    ASSERT_EQ(1u, events.size());  // a refused event is not recorded
    EXPECT_EQ("apid_config_changed", events[0].name);
}
