// The safe-execution stand-in: the two input rules, command lines through
// the shell, argument vectors without one, the command record, fault files
// and the state children start in.
#include "safeexec.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "TestRoot.h"

namespace {

TEST(SafeExec, Rules)
{
    struct Case {
        std::string text;
        int general;
        int password;
    } cases[] = {
        {"", 1, 1},
        {"tftp", 1, 1},
        {"10.0.0.1", 1, 1},
        {"fe80::1%eth0", 1, 1},
        {"/configs/Rack-7_a.b,c=d+e@f", 1, 1},
        {"a\\;b\\$\\(c\\)\\`\\\"\\-\\_", 1, 1},  // escaped by the agents
        {"a b", 0, 0},
        {"a;b", 0, 0},
        {"a'b", 0, 0},
        {"a\\'b", 0, 0},   // a single quote is never escaped by the agents
        {"a\\", 0, 0},     // would escape what follows it in the line
        {"a\\\\;", 0, 0},  // an escaped backslash is not an escape pair; the ';' is bare
        {"a\nb", 0, 0},
        {"a\tb", 0, 0},
        {"caf\xc3\xa9", 0, 0},
        {"a~", 0, 1},
        {"~a", 0, 0},  // a leading tilde is expanded
        {std::string(255, 'a'), 1, 1},
        {std::string(256, 'a'), 0, 0},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.general, system_check_user_input(c.text.c_str(), "general_rule")) << c.text;
        EXPECT_EQ(c.password, system_check_user_input(c.text.c_str(), "password_rule")) << c.text;
    }
    EXPECT_EQ(0, system_check_user_input(nullptr, "general_rule"));
    EXPECT_EQ(0, system_check_user_input("abc", nullptr));
    EXPECT_EQ(0, system_check_user_input("abc", "no_rule"));
}

TEST(SafeExec, SystemSecureRecordsAndFaults)
{
    TestRoot root;
    int status = system_secure("exit 3");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(3, WEXITSTATUS(status));
    EXPECT_EQ(0, system_secure(("echo x > " + root.path("/out")).c_str()));
    EXPECT_EQ("x\n", root.readFile("/out"));
    EXPECT_EQ(-1, system_secure(nullptr));

    root.writeFile("/var/safeexec/faults/system_secure", "256\n");
    EXPECT_EQ(256, system_secure(("touch " + root.path("/canary")).c_str()));
    root.writeFile("/var/safeexec/faults/system_secure", "");
    EXPECT_EQ(-1, system_secure("true"));
    EXPECT_FALSE(root.exists("/canary"));

    std::string record = root.readFile("/var/safeexec/commands");
    for (const char* line : {" secure exit 3\n", " secure echo x > ", " secure touch ", " secure true\n"}) {
        EXPECT_NE(std::string::npos, record.find(line)) << line;
    }
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
    EXPECT_NE(std::string::npos, root.readFile("/var/safeexec/commands").find(" exec printf [%25s] ;touch%20/"));
    EXPECT_NE(std::string::npos, root.readFile("/var/safeexec/commands").find(" %00\n"));

    // Output is cut and terminated; exit statuses and signals come back.
    char small[4];
    EXPECT_EQ(0, system_exec_command(&command, small, sizeof small));
    EXPECT_STREQ("[;t", small);
    ASSERT_EQ(0, system_exec_set_command_arg(&command, "/bin/sh", "-c", "exit 5", nullptr));
    EXPECT_EQ(5, system_exec_command(&command, nullptr, 0));
    ASSERT_EQ(0, system_exec_set_command_arg(&command, "/bin/sh", "-c", "kill -9 $$", nullptr));
    EXPECT_EQ(128 + 9, system_exec_command(&command, nullptr, 0));
    ASSERT_EQ(0, system_exec_set_command_arg(&command, root.path("/no/such/program").c_str(), nullptr));
    EXPECT_EQ(-1, system_exec_command(&command, output, sizeof output));
    EXPECT_STREQ("", output);

    root.writeFile("/var/safeexec/faults/system_exec_command", "7");
    ASSERT_EQ(0, system_exec_set_command_arg(&command, "touch", canary.c_str(), nullptr));
    EXPECT_EQ(7, system_exec_command(&command, nullptr, 0));
    EXPECT_FALSE(root.exists("/canary"));
}

TEST(SafeExec, VectorsThatDoNotFit)
{
    system_exec_cmd_t command;
    const std::string big(SYSTEM_EXEC_TEXT_SIZE, 'x');
    const char* a = "a";
#define A8 a, a, a, a, a, a, a, a
    EXPECT_EQ(0,
              system_exec_set_command_arg(&command, "true", A8, A8, A8, A8, A8, A8, A8, a, a, a, a, a, a, a, nullptr));
    EXPECT_EQ(64, command.argc);  // the program and 63 arguments
    EXPECT_EQ(-1, system_exec_set_command_arg(&command, "true", A8, A8, A8, A8, A8, A8, A8, A8, nullptr));
#undef A8
    EXPECT_EQ(-1, system_exec_command(&command, nullptr, 0));
    EXPECT_EQ(-1, system_exec_set_command_arg(&command, "echo", big.c_str(), nullptr));
    EXPECT_EQ(-1, system_exec_set_command_arg(&command, nullptr, nullptr));
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
