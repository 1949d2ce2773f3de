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
    EXPECT_EQ(3, agent.invokeBackend("printf 'a\\000b'; exit 3", output, "Test"));  // raw output is appended
    EXPECT_EQ(std::string("kept:a\0b", 8), output);
    EXPECT_EQ(127, agent.invokeBackend(PlatformRoot::path("/no/such/tool").c_str(), output, nullptr));
    EXPECT_EQ(-1, agent.invokeBackend(nullptr, output, nullptr));
    output.clear();
    EXPECT_EQ(128 + SIGPIPE, agent.invokeBackend("kill -PIPE $$; echo survived", output, nullptr));
    std::string probe = "test -e /proc/$$/fd/" + std::to_string(fd) + " && echo leaked; cat; echo done";
    EXPECT_EQ(0, agent.invokeBackend(probe.c_str(), output, nullptr));  // cat reads /dev/null
    EXPECT_EQ("done\n", output);
    close(fd);
    signal(SIGPIPE, previous);
}

}  // namespace
