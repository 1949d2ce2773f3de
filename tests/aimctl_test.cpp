// The aimctl tool (build/bin/aimctl) on a throwaway root: output, exit codes,
// and sharing the store with this process.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cstring>
#include <string>
#include <vector>

#include "AIMClient.h"
#include "AIMStore.h"
#include "TestRoot.h"
#include "aim_config.h"

namespace {
struct ToolResult {
    int status;
    std::string out;
};

// Runs aimctl with `args` (no shell), returns its exit status and stdout.
ToolResult aimctl(const std::vector<std::string>& args, const std::string& input = "")
{
    std::string tool = TestRoot::binDir() + "/aimctl";
    int outPipe[2];
    int inPipe[2];
    if (pipe(outPipe) != 0 || pipe(inPipe) != 0) {
        return {-1, ""};
    }
    pid_t pid = fork();
    if (pid == 0) {
        dup2(outPipe[1], 1);
        dup2(inPipe[0], 0);
        int devNull = open("/dev/null", O_WRONLY);
        dup2(devNull, 2);
        close(outPipe[0]);
        close(inPipe[1]);
        std::vector<char*> argv;
        argv.push_back(const_cast<char*>(tool.c_str()));
        for (const std::string& a : args) {
            argv.push_back(const_cast<char*>(a.c_str()));
        }
        argv.push_back(nullptr);
        execv(tool.c_str(), argv.data());
        _exit(127);
    }
    close(outPipe[1]);
    close(inPipe[0]);
    ssize_t ignored = write(inPipe[1], input.data(), input.size());
    (void)ignored;
    close(inPipe[1]);
    std::string out;
    char buf[4096];
    ssize_t n;
    while ((n = read(outPipe[0], buf, sizeof buf)) > 0) {
        out.append(buf, static_cast<size_t>(n));
    }
    close(outPipe[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

class Aimctl : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, access((TestRoot::binDir() + "/aimctl").c_str(), X_OK))
            << "build/bin/aimctl must be built before the unit tests run";
    }
};
}  // namespace

TEST_F(Aimctl, CommandsAndExitCodes)
{
    TestRoot root;
    struct Step {
        std::vector<std::string> args;
        int status;
        const char* out;  // null: not checked
    };
    const Step steps[] = {
        {{"set", "web.port", "int", "443"}, 0, ""},
        {{"set", "sshEnabled", "bool", "true"}, 0, ""},
        {{"set", "a b/../c", "str", "two words\nand a line"}, 0, ""},
        {{"set", "admin.pw", "crypt", "secret"}, 0, ""},
        {{"get", "web.port"}, 0, "443\n"},
        {{"get", "sshEnabled"}, 0, "1\n"},
        {{"get", "a b/../c"}, 0, "two words\nand a line\n"},
        {{"get", "admin.pw"}, 0, "secret\n"},
        {{"get", "nothing"}, 1, ""},
        {{"list"},
         0,
         "a%20b%2F..%2Fc str two words%0Aand a line\n"
         "admin.pw crypt ********\n"
         "sshEnabled bool 1\n"
         "web.port int 443\n"},
        {{"unset", "web.port"}, 0, ""},
        {{"unset", "web.port"}, 0, ""},
        {{"get", "web.port"}, 1, ""},
        {{"set", "x", "int", "12a"}, 2, ""},
        {{"set", "x", "bool", "maybe"}, 2, ""},
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
        {{"events"}, 0, ""},
        {{"calls"}, 0, ""},
    };
    for (const Step& s : steps) {
        std::string line;
        for (const std::string& a : s.args) {
            line += " [" + a + "]";
        }
        SCOPED_TRACE("aimctl" + line);
        ToolResult r = aimctl(s.args);
        EXPECT_EQ(s.status, r.status);
        if (s.out != nullptr) {
            EXPECT_EQ(s.out, r.out);
        }
    }
    EXPECT_NE(std::string::npos, aimctl({"help"}).out.find("clear-log"));
}

TEST_F(Aimctl, RecordsAndFixturesMatchTheClient)
{
    TestRoot root;
    AIMClient aim("webgui", 25225);
    ASSERT_TRUE(aim.initialize());
    int state = 1;
    ASSERT_TRUE(aim.notifyEvent("gui_event_config_changed", 4, &state));
    ASSERT_TRUE(aim_event_type_occurred(4, "event_server_crash", 2, "hi"));

    ToolResult events = aimctl({"events"});
    ASSERT_EQ(0, events.status);
    std::vector<std::string> lines;
    for (size_t start = 0, end; (end = events.out.find('\n', start)) != std::string::npos; start = end + 1) {
        lines.push_back(events.out.substr(start, end - start));
    }
    ASSERT_EQ(2u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find(" - gui_event_config_changed 01000000"));
    EXPECT_NE(std::string::npos, lines[1].find(" 4 event_server_crash 6869"));

    const std::string binary("\0\xfe\n", 3);
    ASSERT_EQ(0, aimctl({"fixture", "netGetCurrentIfConfig", "ok", "-"}, binary).status);
    ASSERT_EQ(0, aimctl({"fixture", "HalvricNETSetConfigImmediate", "fail:9"}).status);
    char out[8];
    int length = 0;
    EXPECT_EQ(0, aim.callFunction("netGetCurrentIfConfig", 0, nullptr, sizeof out, &length, out));
    EXPECT_EQ(binary, std::string(out, static_cast<size_t>(length)));
    EXPECT_EQ(9, aim.callFunction("HalvricNETSetConfigImmediate", 3, out, 0, nullptr, nullptr));

    ToolResult calls = aimctl({"calls"});
    EXPECT_NE(std::string::npos, calls.out.find(" - netGetCurrentIfConfig -\n"));
    EXPECT_NE(std::string::npos, calls.out.find(" - HalvricNETSetConfigImmediate 00fe0a\n"));

    ASSERT_EQ(0, aimctl({"clear-log"}).status);
    EXPECT_EQ("", aimctl({"events"}).out);
    EXPECT_EQ("", aimctl({"calls"}).out);
}

TEST_F(Aimctl, WritesConcurrentlyWithTheClient)
{
    TestRoot root;
    AIMClient aim("webgui", 25225);
    ASSERT_TRUE(aim.initialize());
    const std::string mine(100, 'm');
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        int bad = 0;
        for (int i = 0; i < 10; ++i) {
            bad += aimctl({"set", "shared", "str", "tool"}).status != 0;
        }
        _exit(bad);
    }
    int bad = 0;
    for (int i = 0; i < 40; ++i) {
        char text[256] = "";
        bad += !aim.setProperty("shared", mine.c_str(), true);
        bad += !aim.getProperty("shared", text) || (mine != text && std::string("tool") != text);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(0, bad);
    ToolResult r = aimctl({"get", "shared"});
    EXPECT_TRUE(r.out == mine + "\n" || r.out == "tool\n") << r.out;
}
