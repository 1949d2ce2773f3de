// User text bound for command lines: escaping, quote removal, file-name and
// address checks, and hostile texts run through every check into a real
// shell, where no injected command may run.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "DataAgent.h"
#include "TestRoot.h"
#include "safeexec.h"

namespace {

TEST(Escaping, ShellAndPasswordSets)
{
    struct Case {
        std::string text, shell, password;
    } cases[] = {
        {"", "", ""},
        {"a;b$(c)", "a\\;b\\$\\(c\\)", "a\\;b\\$(c)"},
        {"\\;", "\\\\;", "\\\\;"},
        {";|\"$!@#%^*-_+", "\\;\\|\\\"\\$\\!\\@\\#\\%\\^\\*\\-\\_\\+", "\\;\\|\\\"\\$\\!\\@\\#\\%\\^\\*\\-\\_\\+"},
        {"()`>?<[]&}{", "\\(\\)\\`\\>\\?\\<\\[\\]\\&\\}\\{", "()`>?<[]&}{"},
        {"it's a\nb~=,./:", "it's a\nb~=,./:", "it's a\nb~=,./:"},  // neither set holds these
        {std::string("a\0;", 3), std::string("a\0\\;", 4), std::string("a\0\\;", 4)},
    };
    for (const Case& c : cases) {
        std::string shell = c.text, password = c.text;
        DataAgent::escapeShellMetaChar(shell);
        DataAgent::escapePassword(password);
        EXPECT_EQ(c.shell, shell) << c.text;
        EXPECT_EQ(c.password, password) << c.text;
    }
}

TEST(Escaping, RemoveQuotes)
{
    const char* cases[][2] = {{"", ""},         {"\"", ""},           {"\"\"", ""},     {"abc\"", "abc"},
                              {"\"abc", "abc"}, {"\"a\"b\"", "a\"b"}, {"\"\"\"", "\""}, {"a\"b", "a\"b"}};
    for (const auto& c : cases) {
        std::string text = c[0];
        DataAgent::removeQuotesInString(text);
        EXPECT_EQ(c[1], text) << c[0];
    }
}

TEST(Escaping, ValidateFileName)
{
    const char* kCharacters =
        "Invalid Character(s) in File Name\nAcceptable Character Set: {'A...Z', 'a...z', '0...9', '-', '_', '.', "
        "'/'}\n";
    struct Case {
        std::string name;
        const char* extension;
        int result;
        const char* message;  // null: accepted
    } cases[] = {
        {"fw.bin", ".bin", 0, nullptr},
        {"../fw.bin", ".bin", 0, nullptr},  // folders are the caller's business
        {"fw.bin", ".tar", -2, "Invalid File Extension\n"},
        {"n", ".bin", -2, "Invalid File Extension\n"},
        {"-fw.bin", ".bin", -1, "Malformed File Name\n"},
        {"dir/-fw.bin", ".bin", -1, "Malformed File Name\n"},
        {"a/.bin", ".bin", -1, "Malformed File Name\n"},
        {"a.b/in", ".b/in", -1, "Malformed File Name\n"},
        {"fw.old.bin", ".bin", -1, "Malformed File Name\n"},
        {"fw.bin", "bin", -1, "Malformed File Name\n"},
        {"fw bin.bin", ".bin", -1, kCharacters},
        {"f\xc3\xa9.bin", ".bin", -1, kCharacters},
        {std::string(250, 'a') + ".bin", ".bin", 0, nullptr},
        {std::string(251, 'a') + ".bin", ".bin", -1, "Invalid File Length\n"},
    };
    testing::internal::CaptureStdout();
    for (const Case& c : cases) {
        char* message = const_cast<char*>("untouched");
        EXPECT_EQ(c.result, DataAgent::validateFileName(c.name.c_str(), c.extension, &message)) << c.name;
        if (c.message == nullptr) {
            EXPECT_EQ(nullptr, message) << c.name;
        } else {
            EXPECT_STREQ(c.message, message) << c.name;
        }
    }
    char* message = nullptr;
    EXPECT_EQ(-1, DataAgent::validateFileName(nullptr, ".bin", &message));
    EXPECT_STREQ("Invalid Input Param\n", message);
    EXPECT_EQ(-1, DataAgent::validateFileName("fw.bin", ".bin", nullptr));
    std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos, printed.find("Input: Filename:fw.bin - Extn:.bin\nFilename Accepted!\n"));
    EXPECT_NE(std::string::npos, printed.find("Invalid Character(s) in File Name.\nAcceptable Character Set: {'A...Z', "
                                              "'a...z', '0...9', '-', '_', '.', '/'}\n"));
}

TEST(Escaping, AddressConversion)
{
    struct Case {
        const char* text;
        unsigned int value;
    } cases[] = {{"10.0.0.1", 0x0A000001u},
                 {"1.2.3", 66051u},
                 {"010.1.1.1", 134283521u},
                 {"0x0A.0.0.1", 0x0A000001u},
                 {"255.255.255.255", ~0u},
                 {"..1..2", 0x0102u},
                 {"256.1", 0x10001u},
                 {"", 0u},
                 {"abc", 0u},
                 {"1.2.3.4.5", 0x02030405u},
                 {"9.9.9.9x", 0x09090909u}};
    for (const Case& c : cases) {
        char text[32];
        snprintf(text, sizeof text, "%s", c.text);
        EXPECT_EQ(static_cast<int>(c.value), DataAgent::ipv4_conv(text)) << c.text;
    }
    char text[] = "10.0.0.1";
    DataAgent::ipv4_conv(text);
    std::replace(text, text + 8, '\0', '|');
    EXPECT_STREQ("10|0|0|1", text);  // the full stops became terminators

    const char* valid[] = {"::1", "fe80::1", "::ffff:1.2.3.4", "2001:db8:0:0:0:0:0:1"};
    const char* invalid[] = {"", "1.2.3.4", "[::1]", "gggg::", "1:2:3:4:5:6:7:8:9", "::1 "};
    in6_addr address;
    for (const char* text : valid) {
        EXPECT_EQ(1, DataAgent::ipv6_conv(text, &address)) << text;
    }
    EXPECT_EQ(1, address.s6_addr[15]);
    for (const char* text : invalid) {
        EXPECT_EQ(0, DataAgent::ipv6_conv(text, &address)) << text;
    }
    EXPECT_EQ(0, DataAgent::ipv6_conv(nullptr, &address));
}

// Every way user text is made fit for a command line, against texts that
// try to run a command of their own (creating the canary). What a check
// accepts is run in a real shell, which must hand the tool the user's text
// exactly.
TEST(Escaping, HostileTextsNeverRunInAShell)
{
    TestRoot root;
    const std::string canary = root.path("/canary");
    std::vector<std::string> hostile = {"'", "\"", "\\", "a\\",       "${IFS}",       "$HOME",
                                        "*", "!!", "~",  "a;b@c#d%e", "../../bin/sh", "-rf"};
    hostile.push_back(std::string(300, 'a'));
    hostile.push_back(std::string(255, '$'));
    for (const std::string& run : {"touch " + canary, "touch${IFS}" + canary}) {
        for (std::string form : {";@", "|@", "&@", "&&@", "||@", "`@`", "$(@)", "\n@", "\r\n@", "\t@", "a\n@", "'$(@)'",
                                 "\"$(@)\"", "\\;@", "\\$(@)", ";;;;;;;;;;;;;;;;;;;;;;;;;;;;;;;;;;;;;;;;;;;;;@"}) {
            hostile.push_back(form.replace(form.find('@'), 1, run));
        }
    }
    for (const char* redirect : {">", "a>", ">>"}) {
        hostile.push_back(redirect + canary);
    }
    hostile.push_back(std::string(10000, ';') + hostile.back());
    struct {
        const char* name;
        void (*escape)(std::string&);
        const char* rule;  // null: validateFileName
    } pipelines[] = {
        {"general_rule", nullptr, "general_rule"},
        {"password_rule", nullptr, "password_rule"},
        {"escapeShellMetaChar, general_rule", DataAgent::escapeShellMetaChar, "general_rule"},
        {"escapeShellMetaChar, password_rule", DataAgent::escapeShellMetaChar, "password_rule"},
        {"escapePassword, password_rule", DataAgent::escapePassword, "password_rule"},
        {"validateFileName", nullptr, nullptr},
    };
    testing::internal::CaptureStdout();  // validateFileName prints its verdicts
    for (const auto& p : pipelines) {
        int accepted = 0;
        for (const std::string& text : hostile) {
            std::string made = text;
            if (p.escape != nullptr) {
                p.escape(made);
            }
            char* message = nullptr;
            if (p.rule != nullptr ? !system_check_user_input(made.c_str(), p.rule)
                                  : DataAgent::validateFileName(made.c_str(), "", &message) != 0) {
                continue;
            }
            ++accepted;
            root.writeFile("/out", "");
            int status = system_secure(("printf '%s' " + made + " >" + root.path("/out")).c_str());
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << p.name << ": " << text;
            EXPECT_EQ(text, root.readFile("/out")) << p.name << ": " << text;
            EXPECT_FALSE(root.exists("/canary")) << p.name << " let this run: " << text;
            unlink(canary.c_str());
        }
        EXPECT_GT(accepted, 0) << p.name;
    }
    testing::internal::GetCapturedStdout();
}

}  // namespace
