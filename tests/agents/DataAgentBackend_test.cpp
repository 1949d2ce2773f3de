// Running controller tools and turning their YAML-like output into XML: the conversion tables,
// queries through the simulated tool, raw output and the state tools start in.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <tuple>

#include "AgentHarness.h"
#include "PlatformRoot.h"
#include "StubAgent.h"
#include "ToolFilter.h"
#include "ToolRun.h"

namespace {

class BackendTest : public testing::Test {
protected:
    AgentHarness h;
    StubAgent agent{h.dataHandler(), "Backend"};

    static std::string tool(const char* which) { return PlatformRoot::path("/usr/local/bin/yamlsample") + " " + which; }

    // Converts `input` as prepared text (the fuzz targets hold streams to the same replies).
    std::string convert(const std::string& input, bool ext, const char* tag, bool wrap, int& result, bool& hasError,
                        std::string& errorText)
    {
        agent.prepare(input);
        result = ext ? agent.xmlizeExt(nullptr, h.socket(), tag, wrap)
                     : agent.xmlize(nullptr, h.socket(), tag, hasError, errorText, "No Storage Data", wrap);
        return h.reply();
    }
};

// xmlize (plain) and xmlizeExt (extended) conversion tables.
TEST_F(BackendTest, Conversions)
{
    const std::string huge(10000, 'h');
    // extended, input, tag, wrap, reply, result, error text ("": hasError not expected; plain only)
    const std::tuple<bool, std::string, const char*, bool, std::string, int, std::string> cases[] = {
        {false, "---\nname: eth0\norder: 2.0\nerror: No Storage Data\nslot:1\n...\n", "T", true,
         "<TList><T><name>eth0</name><order>2</order><slot></slot></T></TList>", 0, ""},
        {false, "---\na: 1\n---\nb: 2\n...\n", "T", false, "<T><a>1</a></T><T><b>2</b></T>", 0, ""},
        {false, "Done\nx: a:b\nc:\n", "T", false, "<x>a:b</x><c></c>", 0, ""},
        {false, "error: Card not present\nerror: second\n", "T", false,
         "<error>Card not present</error><error>second</error>", 0, "second"},
        {false, "error: abc", "T", false, "<error>ab</error>", 0, "ab"},  // the last character goes, line end or not
        {false, "order: 19.0\norder: 20.0\norder: 0.0\norder: 3.0x\n", "T", false,
         "<order>19</order><order>20.0</order><order>0</order><order>3.0x</order>", 0, ""},
        // A longer line arrives in 355-character pieces; elements are cut at 355.
        {false, "k: " + std::string(352, 'v') + "x: y\n", "T", false, "<k>" + std::string(352, 'v') + "<x>y</x>", 0,
         ""},
        {false, "", "T", true, "<TList></TList>", 0, ""},
        {true, "---\na: 1\n---\nb: 2\n...\n", "T", true, "<T><a>1</a></T><T><b>2</b></T>", 0, ""},
        {true, "---\na: 1\n...\n", nullptr, true, "<a>1</a>", 0, ""},
        {true, "error: x\norder: 2.0\n", "T", true, "<error>x</error><order>2.0</order>", 0, ""},
        {true, "k: " + huge + "\nafter: 1", "T", true, "<k>" + huge + "</k><after>1</after>", 0, ""},
        {true, "a: 1\nb:\nc: 3\n", "T", true, "<a>1</a>", -1, ""},
    };
    for (const auto& [ext, input, tag, wrap, expected, expectedResult, expectedError] : cases) {
        int result = 99;
        bool hasError = !ext;  // stale values the plain form must reset
        std::string errorText = ext ? "" : "stale";
        EXPECT_EQ(expected, convert(input, ext, tag, wrap, result, hasError, errorText)) << input;
        EXPECT_EQ(expectedResult, result) << input;
        EXPECT_EQ(!expectedError.empty(), hasError) << input;
        EXPECT_EQ(expectedError, errorText) << input;
    }
}

// A tool's error fails the query; a missing tool too.
TEST_F(BackendTest, QueryThroughTool)
{
    bool hasError = false;
    std::string errorText;
    EXPECT_EQ(-1, agent.queryBackend(tool("card-error").c_str(), h.socket(), "Adapter", hasError, errorText,
                                     "No Storage Data", "Test", true, false));
    EXPECT_EQ("<AdapterList><Adapter><name>eth0</name><error>Card not present</error></Adapter></AdapterList>",
              h.reply());
    EXPECT_TRUE(hasError);
    EXPECT_EQ("Card not present", errorText);
    EXPECT_EQ(-1, agent.queryBackend(PlatformRoot::path("/usr/local/bin/no-such-tool").c_str(), h.socket(), "T",
                                     hasError, errorText, "", nullptr, false, false));
}

// Prepared text stands in for the command exactly once; the command then runs.
TEST_F(BackendTest, PreparedTextReplacesTheCommandOnce)
{
    std::string command = "touch " + h.root().path("/canary");
    bool hasError = false;
    std::string errorText;
    auto query = [&](const char* cmd, const char* tag) {
        return agent.queryBackend(cmd, h.socket(), tag, hasError, errorText, "", nullptr, false, false);
    };
    agent.prepare("a: 1\n");
    EXPECT_EQ(0, query(command.c_str(), "T"));
    EXPECT_EQ("<a>1</a>", h.reply());
    for (bool nullTag : {true, false}) {
        agent.prepare("a: 1\n");
        EXPECT_EQ(-1, query(nullTag ? command.c_str() : nullptr, nullTag ? nullptr : "T"));
        EXPECT_FALSE(agent.prepared());
    }
    // Neither a stream nor prepared text: nothing to read, nothing written.
    EXPECT_EQ(-1, agent.xmlize(nullptr, h.socket(), "T", hasError, errorText, "", true));
    EXPECT_EQ(-1, agent.xmlizeExt(nullptr, h.socket(), "T", true));
    EXPECT_EQ("", h.reply());
    EXPECT_FALSE(h.root().exists("/canary"));
    EXPECT_EQ(0, query(command.c_str(), "T"));
    EXPECT_TRUE(h.root().exists("/canary"));
}

// Raw tool output; the server ignores SIGPIPE and holds client sockets, tools get neither.
TEST_F(BackendTest, InvokeBackendStartsToolsClean)
{
    auto previous = signal(SIGPIPE, SIG_IGN);
    int fd = open("/dev/null", O_RDONLY);  // inheritable, like a socket without CLOEXEC
    ASSERT_GE(fd, 3);
    std::string output = "kept:";
    EXPECT_EQ(3, agent.invokeBackend("sh -c 'printf \"a\\000b\"; exit 3'", output, "Test"));  // raw output is appended
    EXPECT_EQ(std::string("kept:a\0b", 8), output);
    EXPECT_EQ(127, agent.invokeBackend(PlatformRoot::path("/no/such/tool").c_str(), output, nullptr));
    EXPECT_EQ(-1, agent.invokeBackend(nullptr, output, nullptr));
    output.clear();
    EXPECT_EQ(128 + SIGPIPE, agent.invokeBackend("sh -c 'kill -PIPE $$; echo survived'", output, nullptr));
    // Shell syntax outside quotes is refused, never run.
    EXPECT_EQ(-1, agent.invokeBackend("echo a; echo b", output, nullptr));
    EXPECT_EQ("", output);
    std::string probe = "sh -c 'test -e /proc/$$/fd/" + std::to_string(fd) + " && echo leaked; cat; echo done'";
    EXPECT_EQ(0, agent.invokeBackend(probe.c_str(), output, nullptr));  // cat reads /dev/null
    EXPECT_EQ("done\n", output);
    close(fd);
    signal(SIGPIPE, previous);
}

// The filters done in the server print what the shell pipelines printed
// (the expected texts were taken from grep and awk).
TEST(ToolFilterTest, MatchesThePipelines)
{
    const std::string grepAwk = "grep KEY | awk -F': ' '{print $2}'";
    // input, key, separator ("" = awk's default), expected output of "grep key | awk ... '{print $2}'"
    const std::tuple<std::string, std::string, std::string, std::string> cases[] = {
        {"virtual-eth-if: eth3\nasic-name: vorn\nvorn-mac: 00:25:b5:00:00:01\n", "vorn-mac", ": ",
         "00:25:b5:00:00:01\n"},
        {"x-virtual-eth-if: a\nvirtual-eth-if: b\n", "virtual-eth-if", ": ", "a\nb\n"},         // substring, every line
        {"current-fw-version: 4.1(2a): build 7\n", "current-fw-version", ": ", "4.1(2a)\n"},    // separator in value
        {"PCIe link width:   x16\nPCIe link width: x8", "PCIe link width", ":   ", "x16\n\n"},  // no final break
        {"pwState 1\n  pwStateX   0  z\n", "pwState", "", "1\n0\n"},
        {"key\n\nkey:\nkey: \n", "key", ": ", "\n\n\n"},  // no separator, nothing after it
        {"other: 1\n", "missing", ": ", ""},
        {"", "key", ": ", ""},
    };
    for (const auto& [input, key, separator, expected] : cases) {
        EXPECT_EQ(expected, ToolFilter::field(ToolFilter::grep(input, key), separator, 2)) << grepAwk << " " << key;
        ToolFilter chain;
        chain.add({ToolFilter::Step::kGrep, key, 0});
        chain.add({ToolFilter::Step::kField, separator, 2});
        int status = 9;
        EXPECT_EQ(expected, chain.apply(input, status));
        EXPECT_EQ(0, status);  // awk's
    }
    EXPECT_EQ("eth0\neth1\n", ToolFilter::grep(ToolFilter::grep("---\neth0\n...\neth1", "---", true), "...", true));
    EXPECT_EQ("4.1", ToolFilter::firstLine("4.1\n4.2\n"));
    ToolFilter grepOnly;
    grepOnly.add({ToolFilter::Step::kGrep, "description", 0});
    int status = 0;
    EXPECT_EQ("", grepOnly.apply("slot: 2\n", status));
    EXPECT_EQ(1, status);  // grep's "nothing selected"
}

// Command lines split as the shell splits them; anything else is refused.
TEST(ToolRunTest, SplitsCommandLines)
{
    using Words = std::vector<std::vector<std::string>>;
    // line, programs, filter steps, 2>&1, input file
    // clang-format off
    const std::tuple<std::string, Words, size_t, bool, std::string> cases[] = {
        {"/opt/mptool -i eth0 00:25 vorn_getvnic \"eth0\" --display all yaml --detail",
         {{"/opt/mptool", "-i", "eth0", "00:25", "vorn_getvnic", "eth0", "--display", "all", "yaml", "--detail"}}, 0, false, ""},
        {"/t -i e m vorn_add_vnic eth \"v 1\" /tmp/f 2>&1", {{"/t", "-i", "e", "m", "vorn_add_vnic", "eth", "v 1", "/tmp/f"}}, 0, true, ""},
        {"/c -P 2|grep \"PCIe link width\"|awk -F\":   \" '{print $2}'", {{"/c", "-P", "2"}}, 2, false, ""},
        {"sender get=pwState | outline | grep pwState | awk '{print $2}'", {{"sender", "get=pwState"}, {"outline"}}, 2, false, ""},
        {"/c -L |/s  ", {{"/c", "-L"}, {"/s"}}, 0, false, ""},
        {"/m vorn_list yaml|grep -v \"\\-\\-\\-\" |grep -v \"\\.\\.\\.\" ", {{"/m", "vorn_list", "yaml"}}, 2, false, ""},
        {"/m a\\;b 'x\"y' \"p\\\"q\" < /tmp/in", {{"/m", "a;b", "x\"y", "p\"q"}}, 0, false, "/tmp/in"},
        {"/c tftp://[::1]/f", {{"/c", "tftp://[::1]/f"}}, 0, false, ""},
    };
    // clang-format on
    // Refused: anything beyond plain words, one pipe to a fixed grep/awk, 2>&1 and one input file.
    for (const char* line : {"/m a; rm x", "/m $(id)", "/m \"$HOME\"", "/m `id`", "/m a && /n", "/m a || /n",
                             "/m 'open", "/m a\nb", "/m | grep \"a.*b\"", "/m | grep x | /n", "grep x /etc/passwd",
                             "/m | awk '{print $2; system(\"id\")}'", "X=1 /m", "/m >> /tmp/f", "/m & /n"}) {
        ToolRun::Command command;
        EXPECT_FALSE(ToolRun::parse(line, command)) << line;
    }
    for (const auto& [line, programs, filters, join, input] : cases) {
        ToolRun::Command command;
        ASSERT_TRUE(ToolRun::parse(line, command)) << line;
        EXPECT_EQ(programs, command.programs) << line;
        EXPECT_EQ(join, command.joinErrors) << line;
        EXPECT_EQ(input, command.input) << line;
        EXPECT_EQ(filters == 0, command.filter.empty()) << line;
    }
    // A command built by the caller keeps its words as given and runs its filters; no program, no run.
    std::string out;
    EXPECT_EQ(
        0, ToolRun::run(ToolRun::program({"printf", "%s\\n", "a 'b' c", "$HOME; x"}, {{ToolFilter::Step::kGrep, "x"}}),
                        out));
    EXPECT_EQ("$HOME; x\n", out);
    EXPECT_EQ(-1, ToolRun::run(ToolRun::Command{}, out));
}

}  // namespace
