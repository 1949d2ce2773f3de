// The aimctl tool on a throwaway root: output, exit codes, and the records and fixtures it shares with the client.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <string>
#include <utility>
#include <vector>

#include "AIMClient.h"
#include "ProjectBinary.h"
#include "TestRoot.h"
#include "aim_config.h"

namespace {
// Runs aimctl with `args` (single-quoted: none holds a quote), stdin from `input`: its exit status and stdout.
std::pair<int, std::string> aimctl(const std::vector<std::string>& args, const std::string& input = "/dev/null")
{
    std::string line = ProjectBinary::command("aimctl"), text;
    for (const std::string& a : args) {
        line += " '" + a + "'";
    }
    FILE* out = popen((line + " <" + input + " 2>/dev/null").c_str(), "r");
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, out)) > 0;) {
        text.append(buf, n);
    }
    int status = pclose(out);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}
}  // namespace

TEST(Aimctl, CommandsAndExitCodes)
{
    TestRoot root;
    const struct {
        std::vector<std::string> args;
        int status;
        std::string out;
    } steps[] = {
        {{"set", "a b/../c", "str", "two words\nand a line"}, 0, ""},
        {{"set", "admin.pw", "crypt", "secret"}, 0, ""},
        {{"get", "a b/../c"}, 0, "two words\nand a line\n"},
        {{"list"}, 0, "a%20b%2F..%2Fc str two words%0Aand a line\nadmin.pw crypt ********\n"},
        {{"unset", "admin.pw"}, 0, ""},
        {{"get", "admin.pw"}, 1, ""},
        {{"fixture", "fn", "fail:0"}, 2, ""},
    };
    for (const auto& s : steps) {
        SCOPED_TRACE("aimctl " + testing::PrintToString(s.args));
        EXPECT_EQ(std::make_pair(s.status, s.out), aimctl(s.args));
    }
}

TEST(Aimctl, RecordsAndFixturesMatchTheClient)
{
    TestRoot root;
    AIMClient aim("webgui", 25225);
    ASSERT_TRUE(aim.initialize());
    ASSERT_TRUE(aim_event_type_occurred(4, "event_server_crash", 2, "hi"));
    const std::string binary("\0\xfe\n", 3);
    ASSERT_EQ(0, aimctl({"fixture", "netGetCurrentIfConfig", "ok", "-"}, root.writeFile("/in", binary)).first);
    char out[8];
    int length = 0;
    EXPECT_EQ(0, aim.callFunction("netGetCurrentIfConfig", 0, nullptr, sizeof out, &length, out));
    EXPECT_EQ(binary, std::string(out, static_cast<size_t>(length)));
    EXPECT_NE(std::string::npos, aimctl({"events"}).second.find(" 4 event_server_crash 6869\n"));
    EXPECT_NE(std::string::npos, aimctl({"calls"}).second.find(" - netGetCurrentIfConfig -\n"));
}
