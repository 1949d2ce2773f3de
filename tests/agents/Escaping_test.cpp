// User text bound for command lines: quote removal, file-name checks, and hostile texts run through
// every check into a real shell, where no injected command may run.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <tuple>
#include <vector>

#include "DataAgent.h"
#include "TestRoot.h"
#include "safeexec.h"

namespace {

// The escaping itself is checked by what reaches the shell, below.
TEST(Escaping, RemoveQuotes)
{
    const char* quoted[][2] = {{"\"", ""}, {"\"abc", "abc"}, {"\"a\"b\"", "a\"b"}, {"\"\"\"", "\""}, {"a\"b", "a\"b"}};
    for (const auto& c : quoted) {
        std::string text = c[0];
        DataAgent::removeQuotesInString(text);
        EXPECT_EQ(c[1], text) << c[0];
    }
}

// The file-name rules; null arguments are refused.
TEST(Escaping, ValidateFileName)
{
    const std::tuple<std::string, const char*, int> cases[] = {
        {"fw.bin", ".bin", 0},   {"a.b/c_d-1.bin", ".bin", 0}, {std::string(250, 'a') + ".bin", ".bin", 0},
        {"fw.txt", ".bin", -2},  {"bin", ".bin", -2},          {std::string(251, 'a') + ".bin", ".bin", -1},
        {"-fw.bin", ".bin", -1}, {"d/-fw.bin", ".bin", -1},    {"f.w.bin", ".bin", -1},
        {"d/.bin", ".bin", -1},  {"f w.bin", ".bin", -1},      {"f;w.bin", ".bin", -1},
    };
    testing::internal::CaptureStdout();  // validateFileName prints its verdicts
    for (const auto& [name, extension, result] : cases) {
        char* message = nullptr;
        EXPECT_EQ(result, DataAgent::validateFileName(name.c_str(), extension, &message)) << name;
        EXPECT_EQ(result == 0, message == nullptr) << name;
    }
    char* message = nullptr;
    EXPECT_EQ(-1, DataAgent::validateFileName(nullptr, ".bin", &message));
    EXPECT_NE(nullptr, message);
    EXPECT_EQ(-1, DataAgent::validateFileName("fw.bin", ".bin", nullptr));
    testing::internal::GetCapturedStdout();
}

// Every way user text is made fit for a command line, against texts that try to run a command of
// their own (creating the canary). What a check accepts is run in a real shell, which must hand
// the tool the user's text exactly.
TEST(Escaping, HostileTextsNeverRunInAShell)
{
    TestRoot root;
    const std::string canary = root.path("/canary");
    std::vector<std::string> hostile = {"'", "\"", "a\\", "${IFS}", "*", "!!", "~", "../../bin/sh", "-rf"};
    for (std::string text : {std::string(300, 'a'), std::string(255, '$'), ">" + canary}) {
        hostile.push_back(text);
    }
    for (const std::string& run : {"touch " + canary, "touch${IFS}" + canary}) {
        for (std::string form : {";@", "|@", "&&@", "`@`", "$(@)", "\n@", "'$(@)'", "\"$(@)\"", "\\;@"}) {
            hostile.push_back(form.replace(form.find('@'), 1, run));
        }
    }
    hostile.push_back(std::string(10000, ';') + hostile.back());
    // name, escaping, rule checked (null: validateFileName)
    const std::tuple<const char*, void (*)(std::string&), const char*> pipelines[] = {
        {"general_rule", nullptr, "general_rule"},
        {"password_rule", nullptr, "password_rule"},
        {"escapeShellMetaChar, general_rule", DataAgent::escapeShellMetaChar, "general_rule"},
        {"escapeShellMetaChar, password_rule", DataAgent::escapeShellMetaChar, "password_rule"},
        {"escapePassword, password_rule", DataAgent::escapePassword, "password_rule"},
        {"validateFileName", nullptr, nullptr},
    };
    testing::internal::CaptureStdout();  // validateFileName prints its verdicts
    for (const auto& [name, escape, rule] : pipelines) {
        int accepted = 0;
        for (const std::string& text : hostile) {
            std::string made = text;
            if (escape != nullptr) {
                escape(made);
            }
            char* message = nullptr;
            if (rule != nullptr ? !system_check_user_input(made.c_str(), rule)
                                : DataAgent::validateFileName(made.c_str(), "", &message) != 0) {
                continue;
            }
            ++accepted;
            root.writeFile("/out", "");
            int status = system_secure(("printf '%s' " + made + " >" + root.path("/out")).c_str());
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << name << ": " << text;
            EXPECT_EQ(text, root.readFile("/out")) << name << ": " << text;
            EXPECT_FALSE(root.exists("/canary")) << name << " let this run: " << text;
            unlink(canary.c_str());
        }
        EXPECT_GT(accepted, 0) << name;
    }
    testing::internal::GetCapturedStdout();
}

}  // namespace

TEST(Escaping, PasswordsAreMaskedForLogs)
{
    const struct {
        const char* request;
        const char* logged;  // null: nothing to mask
    } cases[] = {
        {"get=adapter", nullptr},
        {"set=adapterConfig(2,1,scp,192.0.2.9,/c.xml,admin,s3cret)",
         "set=adapterConfig(2,1,scp,192.0.2.9,/c.xml,admin,********)"},
        {"set=adapterUpdate(scp,192.0.2.9,/fw.bin,u,p\\,w\\)d,0,2)",
         "set=adapterUpdate(scp,192.0.2.9,/fw.bin,u,********,0,2)"},
        {"set=inventoryUpload(tftp,10.0.0.5,/inv,user,pw),inventoryUpload(tftp,h,/p,u,again)",
         "set=inventoryUpload(tftp,10.0.0.5,/inv,user,********),inventoryUpload(tftp,h,/p,u,********)"},
        // Too few arguments, or a request cut short: nothing past the end.
        {"set=adapterConfig(2,0)", "set=adapterConfig(2,0)"},
        {"set=inventoryUpload(a,b,c,d,unfinished", "set=inventoryUpload(a,b,c,d,********"},
    };
    for (const auto& c : cases) {
        std::string masked;
        EXPECT_EQ(c.logged != nullptr, DataAgent::maskPasswords(c.request, masked)) << c.request;
        if (c.logged != nullptr) {
            EXPECT_EQ(c.logged, masked);
        }
    }
}
