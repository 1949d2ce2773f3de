// The safe-execution stand-in: input rules, argument vectors without a shell, children's start state.
#include "safeexec.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "TestRoot.h"

namespace {

TEST(SafeExec, RulesLetNoShellSyntaxThrough)
{
    const struct {
        std::string text;
        int general, password;
    } cases[] = {
        {"fe80::1%eth0/Rack-7_a.b,c=d+e@f", 1, 1},
        {"a\\;b\\$\\(c\\)\\`\\\"\\-\\_", 1, 1},  // escaped by the agents
        {"a;b", 0, 0},
        {"a\\'b", 0, 0},   // a single quote is never escaped by the agents
        {"a\\", 0, 0},     // would escape what follows it in the line
        {"a\\\\;", 0, 0},  // an escaped backslash is not an escape pair; the ';' is bare
        {"a\nb", 0, 0},
        {"a~", 0, 1},
        {"~a", 0, 0},  // a leading tilde is expanded
        {std::string(255, 'a'), 1, 1},
        {std::string(256, 'a'), 0, 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.general, system_check_user_input(c.text.c_str(), "general_rule")) << c.text;
        EXPECT_EQ(c.password, system_check_user_input(c.text.c_str(), "password_rule")) << c.text;
    }
    EXPECT_EQ(0, system_check_user_input("abc", "no_rule"));
}

TEST(SafeExec, ArgumentVectorsNeverSeeAShell)
{
    TestRoot root;
    std::string canary = root.path("/canary");
    const std::string hostile[] = {
        ";touch " + canary, "$(touch " + canary + ")", "`touch " + canary + "`", "a\ntouch " + canary, "' \" \\", ""};
    system_exec_cmd_t command;
    ASSERT_EQ(0, system_exec_set_command_arg(&command, "printf", "[%s]", hostile[0].c_str(), hostile[1].c_str(),
                                             hostile[2].c_str(), hostile[3].c_str(), hostile[4].c_str(),
                                             hostile[5].c_str(), nullptr));
    char output[1024];
    EXPECT_EQ(0, system_exec_command(&command, output, sizeof output));
    std::string expected;
    for (const std::string& h : hostile) {
        expected += "[" + h + "]";
    }
    EXPECT_EQ(expected, output);
    EXPECT_FALSE(root.exists("/canary"));

    // Output is cut and terminated.
    char small[4];
    EXPECT_EQ(0, system_exec_command(&command, small, sizeof small));
    EXPECT_STREQ("[;t", small);
}

TEST(SafeExec, VectorsThatDoNotFitAreRefused)
{
    system_exec_cmd_t command;
    const char* a = "a";
#define A8 a, a, a, a, a, a, a, a
    EXPECT_EQ(0,
              system_exec_set_command_arg(&command, "true", A8, A8, A8, A8, A8, A8, A8, a, a, a, a, a, a, a, nullptr));
    EXPECT_EQ(-1, system_exec_set_command_arg(&command, "true", A8, A8, A8, A8, A8, A8, A8, A8, nullptr));
#undef A8
    EXPECT_EQ(-1, system_exec_command(&command, nullptr, 0));  // a refused vector does not run
}

// The server ignores SIGPIPE and holds sockets; children get neither.
TEST(SafeExec, ChildrenStartClean)
{
    TestRoot root;
    auto previous = signal(SIGPIPE, SIG_IGN);
    int fd = open("/dev/null", O_RDONLY);  // inheritable, like a socket without CLOEXEC
    int status = system_secure("kill -PIPE $$; echo survived");
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) << status;
    system_exec_cmd_t command;
    std::string probe = "test -e /proc/$$/fd/" + std::to_string(fd) + " && echo leaked; cat; echo done";
    ASSERT_EQ(0, system_exec_set_command_arg(&command, "sh", "-c", probe.c_str(), nullptr));
    char output[64];
    EXPECT_EQ(0, system_exec_command(&command, output, sizeof output));
    EXPECT_STREQ("done\n", output);
    close(fd);
    signal(SIGPIPE, previous);
}

}  // namespace
