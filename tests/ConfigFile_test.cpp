// The configuration grammar: tokens, statements, section headers and the
// handler table they build in the server.
#include "ConfigFile.h"

#include <gtest/gtest.h>

#include "GUIDataServer.h"
#include "TestRoot.h"

namespace {

struct Parsed {
    int openResult = -1;
    int parseResult = -1;
    std::string err;
    std::string out;
    // name -> "libFile|entryPoint"
    std::map<std::string, std::string> handlers;
};

Parsed parseText(const TestRoot& root, const std::string& text)
{
    std::string path = root.writeFile("/etc/test.conf", text);
    Parsed p;
    GUIDataServer server;
    ConfigFile config;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    p.openResult = config.open(path.c_str());
    if (p.openResult == 0) {
        p.parseResult = config.parse(server);
    }
    p.err = testing::internal::GetCapturedStderr();
    p.out = testing::internal::GetCapturedStdout();
    for (const auto& entry : server.getHandlerTable()) {
        p.handlers[entry.first] = entry.second->libFile + "|" + entry.second->entryPoint;
    }
    return p;
}

struct GrammarCase {
    const char* what;
    const char* text;
    int result;
    std::map<std::string, std::string> handlers;
    const char* stderrText;
};

void PrintTo(const GrammarCase& c, std::ostream* os)
{
    *os << c.what;
}

class ConfigGrammar : public testing::TestWithParam<GrammarCase> {};

TEST_P(ConfigGrammar, BuildsHandlerTable)
{
    TestRoot root;
    const GrammarCase& c = GetParam();
    Parsed p = parseText(root, c.text);
    ASSERT_EQ(0, p.openResult);
    EXPECT_EQ(c.result, p.parseResult) << c.what;
    EXPECT_EQ(c.handlers, p.handlers) << c.what;
    EXPECT_EQ(std::string(c.stderrText), p.err) << c.what;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ConfigGrammar,
    testing::Values(
        GrammarCase{"full handler, unknown keys ignored",
                    "addHandler=inv\n[inv]\nlibFile=/lib/inv.so\nentryPoint=init\nname=other\n",
                    0,
                    {{"inv", "/lib/inv.so|init"}},
                    ""},
        GrammarCase{"blank after = is dropped", "addHandler= inv\n[inv]\nlibFile= a.so\n", 0, {{"inv", "a.so|"}}, ""},
        GrammarCase{"blank before = makes another key", "addHandler =inv\n", 0, {}, ""},
        GrammarCase{
            "inner and trailing blanks are kept", "addHandler=a b \n[a b ]\nlibFile=x\n", 0, {{"a b ", "x|"}}, ""},
        GrammarCase{"section with blanks keeps the trailing one",
                    "addHandler=name \n[ name ]\nlibFile=x\n",
                    0,
                    {{"name ", "x|"}},
                    ""},
        GrammarCase{"rest of line after value ignored", "addHandler=h=more\n", 0, {{"h", "|"}}, ""},
        GrammarCase{"empty and short lines ignored", "\n\nword\naddHandler=\n=\naddHandler=h\n", 0, {{"h", "|"}}, ""},
        GrammarCase{"# lines without = do nothing", "# a comment\naddHandler=h\n", 0, {{"h", "|"}}, ""},
        GrammarCase{"last line without line end is applied", "addHandler=h", 0, {{"h", "|"}}, ""},
        GrammarCase{"carriage returns are part of words", "addHandler=h\r\n", 0, {{"h\r", "|"}}, ""},
        GrammarCase{"[] is a bad header",
                    "addHandler=a\n[]\naddHandler=b\n",
                    1,
                    {{"a", "|"}},
                    "Bad section header: token count=2, line number 2"},
        GrammarCase{"[a]b is a bad header",
                    "addHandler=a\n\n[a]b\naddHandler=b\n",
                    1,
                    {{"a", "|"}},
                    "Bad section header: token count=4, line number 3"},
        GrammarCase{"header on the last line without line end",
                    "addHandler=a\n[a]",
                    1,
                    {{"a", "|"}},
                    "Bad section header: token count=50, line number 1"},
        GrammarCase{"repeated addHandler forgets the earlier entry",
                    "addHandler=h\n[h]\nlibFile=one.so\naddHandler=h\n",
                    0,
                    {{"h", "|"}},
                    ""},
        GrammarCase{"two handlers in name order",
                    "addHandler=b\naddHandler=a\n[a]\nentryPoint=ea\n[b]\nentryPoint=eb\n",
                    0,
                    {{"a", "|ea"}, {"b", "|eb"}},
                    ""}),
    [](const testing::TestParamInfo<GrammarCase>& info) { return TestRoot::caseName(info.param.what); });

TEST(ConfigFile, UndeclaredSectionIsReportedAndIgnored)
{
    TestRoot root;
    Parsed p = parseText(root, "[ghost]\nlibFile=x.so\nentryPoint=e\n");
    EXPECT_EQ(0, p.parseResult);
    EXPECT_TRUE(p.handlers.empty());
    EXPECT_NE(std::string::npos, p.out.find("Unable to locate handler ghost\n"));
}

}  // namespace
