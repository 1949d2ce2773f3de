// The aimctl tool (build/bin/aimctl) on a throwaway root: output, exit codes,
// and the records and fixtures it shares with the client.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "AIMClient.h"
#include "TestRoot.h"
#include "aim_config.h"

namespace {
// Runs aimctl with `args` (no shell), stdin from `input`: its exit status
// (-1 when it did not exit) and stdout.
std::pair<int, std::string> aimctl(std::vector<std::string> args, const std::string& input = "/dev/null")
{
    std::string tool = TestRoot::binDir() + "/aimctl", text;
    int out[2];
    if (pipe(out) != 0) {
        return {-1, ""};
    }
    pid_t pid = fork();
    if (pid == 0) {
        dup2(open(input.c_str(), O_RDONLY), 0);
        dup2(out[1], 1);
        dup2(open("/dev/null", O_WRONLY), 2);
        std::vector<char*> argv{tool.data()};
        for (std::string& a : args) {
            argv.push_back(a.data());
        }
        argv.push_back(nullptr);
        execv(tool.c_str(), argv.data());
        _exit(127);
    }
    close(out[1]);
    char buf[4096];
    for (ssize_t n; (n = read(out[0], buf, sizeof buf)) > 0;) {
        text.append(buf, static_cast<size_t>(n));
    }
    close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}
}  // namespace

TEST(Aimctl, CommandsAndExitCodes)
{
    ASSERT_EQ(0, access((TestRoot::binDir() + "/aimctl").c_str(), X_OK)) << "build/bin/aimctl must be built first";
    TestRoot root;
    const char* list =
        "a%20b%2F..%2Fc str two words%0Aand a line\nadmin.pw crypt ********\nsshEnabled bool 1\nweb.port int 443\n";
    const struct {
        std::vector<std::string> args;
        int status;
        const char* out;  // null: not checked
    } steps[] = {
        {{"set", "web.port", "int", "443"}, 0, ""},
        {{"set", "sshEnabled", "bool", "true"}, 0, ""},
        {{"set", "a b/../c", "str", "two words\nand a line"}, 0, ""},
        {{"set", "admin.pw", "crypt", "secret"}, 0, ""},
        {{"get", "web.port"}, 0, "443\n"},
        {{"get", "a b/../c"}, 0, "two words\nand a line\n"},
        {{"get", "admin.pw"}, 0, "secret\n"},
        {{"get", "nothing"}, 1, ""},
        {{"list"}, 0, list},
        {{"unset", "web.port"}, 0, ""},
        {{"unset", "web.port"}, 0, ""},
        {{"get", "web.port"}, 1, ""},
        {{"set", "x", "int", "12a"}, 2, ""},
        {{"set", "x", "float", "1"}, 2, ""},
        {{"set", "x", "str", std::string(256, 's')}, 2, ""},
        {{"set", "", "int", "1"}, 2, ""},
        {{"set", "x", "int"}, 2, ""},
        {{"frobnicate"}, 2, ""},
        {{}, 2, ""},
        {{"fixture", "fn", "maybe"}, 2, ""},
        {{"fixture", "fn", "fail:0"}, 2, ""},
        {{"fixture", "fn", "ok", "/nonexistent/file"}, 1, ""},
        {{"help"}, 0, nullptr},
    };
    for (const auto& s : steps) {
        SCOPED_TRACE("aimctl " + testing::PrintToString(s.args));
        auto [status, out] = aimctl(s.args);
        EXPECT_EQ(s.status, status);
        EXPECT_TRUE(s.out == nullptr || out == s.out) << out;
    }
}

TEST(Aimctl, RecordsAndFixturesMatchTheClient)
{
    TestRoot root;
    AIMClient aim("webgui", 25225);
    ASSERT_TRUE(aim.initialize());
    int state = 1;
    ASSERT_TRUE(aim.notifyEvent("gui_event_config_changed", 4, &state));
    ASSERT_TRUE(aim_event_type_occurred(4, "event_server_crash", 2, "hi"));
    auto [status, events] = aimctl({"events"});
    EXPECT_EQ(0, status);
    size_t first = events.find(" - gui_event_config_changed 01000000\n"),
           second = events.find(" 4 event_server_crash 6869\n");
    EXPECT_TRUE(first < second && second != std::string::npos) << events;
    EXPECT_EQ(2, std::count(events.begin(), events.end(), '\n'));

    const std::string binary("\0\xfe\n", 3);
    ASSERT_EQ(0, aimctl({"fixture", "netGetCurrentIfConfig", "ok", "-"}, root.writeFile("/in", binary)).first);
    ASSERT_EQ(0, aimctl({"fixture", "HalvricNETSetConfigImmediate", "fail:9"}).first);
    char out[8];
    int length = 0;
    EXPECT_EQ(0, aim.callFunction("netGetCurrentIfConfig", 0, nullptr, sizeof out, &length, out));
    EXPECT_EQ(binary, std::string(out, static_cast<size_t>(length)));
    EXPECT_EQ(9, aim.callFunction("HalvricNETSetConfigImmediate", 3, out, 0, nullptr, nullptr));
    const std::string calls = aimctl({"calls"}).second;
    EXPECT_NE(std::string::npos, calls.find(" - netGetCurrentIfConfig -\n"));
    EXPECT_NE(std::string::npos, calls.find(" - HalvricNETSetConfigImmediate 00fe0a\n"));

    ASSERT_EQ(0, aimctl({"clear-log"}).first);
    EXPECT_EQ(std::make_pair(0, std::string()), aimctl({"events"}));
    EXPECT_EQ(std::make_pair(0, std::string()), aimctl({"calls"}));
}
