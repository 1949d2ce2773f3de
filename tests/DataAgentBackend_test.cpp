// Running controller tools and turning their YAML-like output into XML:
// both conversions from prepared text and from a stream, queries through
// the simulated tool "yamlsample", raw output, and the state tools start in.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

#include "AgentHarness.h"
#include "DataAgent.h"
#include "DataHandler.h"
#include "PlatformRoot.h"
#include "StubAgent.h"

namespace {

class BackendTest : public testing::Test {
protected:
    AgentHarness h;
    StubAgent agent{h.dataHandler(), "Backend"};

    static std::string tool(const char* which) { return PlatformRoot::path("/usr/local/bin/yamlsample") + " " + which; }

    // Converts `input` from prepared text and from a stream; both must agree.
    std::string convert(const std::string& input, bool extended, const char* tag, bool wrap, int& result,
                        bool& hasError, std::string& errorText, const char* pcCompStr = "No Storage Data")
    {
        std::string replies[2];
        for (int viaStream = 0; viaStream < 2; ++viaStream) {
            FILE* stream = nullptr;
            if (viaStream) {
                agent.forget();
                stream = tmpfile();
                fwrite(input.data(), 1, input.size(), stream);
                rewind(stream);
            } else {
                agent.prepare(input);
            }
            result = extended ? agent.xmlizeExt(stream, h.socket(), tag, wrap)
                              : agent.xmlize(stream, h.socket(), tag, hasError, errorText, pcCompStr, wrap);
            if (stream != nullptr) {
                fclose(stream);
            }
            replies[viaStream] = h.reply();
        }
        EXPECT_EQ(replies[0], replies[1]) << "prepared text and stream differ for: " << input;
        return replies[0];
    }
};

TEST_F(BackendTest, Xmlize)
{
    const std::string longPiece = "k: " + std::string(352, 'v');
    struct Case {
        std::string input;
        bool wrap;
        std::string expected;
        std::string errorText;  // non-empty: hasError expected
    } cases[] = {
        {"---\nname: eth0\norder: 2.0\nerror: No Storage Data\nslot:1\n...\n", true,
         "<TList><T><name>eth0</name><order>2</order><slot></slot></T></TList>", ""},
        {"---\na: 1\n---\nb: 2\n...\n", false, "<T><a>1</a></T><T><b>2</b></T>", ""},
        {"---\na: 1\n...\n---\nb: 2\n...\n...\n", false, "<T><a>1</a></T><T><b>2</b></T>", ""},
        {"Done\nx: a:b\nc:\n", false, "<x>a:b</x><c></c>", ""},
        {"error:\nerror: \n", false, "<error></error><error></error>", ""},
        {"error: Card not present\nerror: second\n", false, "<error>Card not present</error><error>second</error>",
         "second"},
        {"error: abc", false, "<error>ab</error>", "ab"},  // the last character goes, line end or not
        {"order: 19.0\norder: 7\norder: 20.0\norder: 0.0\norder: 3.0x\n", false,
         "<order>19</order><order>7</order><order>20.0</order><order>0</order><order>3.0x</order>", ""},
        // A longer line arrives in 355-character pieces; elements are cut at 355.
        {longPiece + "x: y\n", false, "<k>" + std::string(352, 'v') + "<x>y</x>", ""},
        {"---\na: 1", true, "<TList><T><a>1</a></TList>", ""},
        {"", true, "<TList></TList>", ""},
    };
    for (const Case& c : cases) {
        int result = 99;
        bool hasError = true;
        std::string errorText = "stale";
        EXPECT_EQ(c.expected, convert(c.input, false, "T", c.wrap, result, hasError, errorText)) << c.input;
        EXPECT_EQ(0, result) << c.input;
        EXPECT_EQ(!c.errorText.empty(), hasError) << c.input;
        EXPECT_EQ(c.errorText, errorText) << c.input;
    }
}

TEST_F(BackendTest, XmlizeExt)
{
    const std::string huge(10000, 'h');
    struct Case {
        std::string input;
        const char* tag;
        bool wrap;
        std::string expected;
        int result;
    } cases[] = {
        {"---\na: 1\n---\nb: 2\n...\n", "T", true, "<T><a>1</a></T><T><b>2</b></T>", 0},
        {"---\na: 1\n...\n", "T", false, "<a>1</a>", 0},
        {"---\na: 1\n...\n", nullptr, true, "<a>1</a>", 0},
        {"error: x\norder: 2.0\n", "T", true, "<error>x</error><order>2.0</order>", 0},
        {"k: " + huge + "\nafter: 1", "T", true, "<k>" + huge + "</k><after>1</after>", 0},
        {"a: 1\nb:\nc: 3\n", "T", true, "<a>1</a>", -1},
        {"x:y\nDone\n\n", "T", true, "<x></x>", 0},
    };
    for (const Case& c : cases) {
        int result = 99;
        bool unused = false;
        std::string unusedText;
        EXPECT_EQ(c.expected, convert(c.input, true, c.tag, c.wrap, result, unused, unusedText)) << c.input;
        EXPECT_EQ(c.result, result) << c.input;
    }
}

TEST_F(BackendTest, QueryThroughTool)
{
    struct Case {
        const char* which;
        bool extended;
        int result;
        std::string expected;
        const char* errorText;  // null: no error reported
    } cases[] = {
        {"adapters", false, 0,
         "<AdapterList><Adapter><name>eth0</name><order>2</order><slot>1</slot></Adapter><Adapter><name>eth1</name>"
         "<order>19</order><slot>2</slot></Adapter></AdapterList>",
         nullptr},
        {"card-error", false, -1,
         "<AdapterList><Adapter><name>eth0</name><error>Card not present</error></Adapter></AdapterList>",
         "Card not present"},
        {"unterminated", true, 0, "<Adapter><a>1</a></Adapter><Adapter><b>2</b>", nullptr},
        {"colon-end", true, -1, "<a>1</a>", nullptr},
        {"empty", false, 0, "<AdapterList></AdapterList>", nullptr},
        {"binary", false, 0, "<AdapterList><ctl>a b c</ctl><high>   </high><nul>x</nul><after>z</after></AdapterList>",
         nullptr},
    };
    for (const Case& c : cases) {
        bool hasError = false;
        std::string errorText;
        EXPECT_EQ(c.result, agent.queryBackend(tool(c.which).c_str(), h.socket(), "Adapter", hasError, errorText,
                                               "No Storage Data", "Test", true, c.extended))
            << c.which;
        EXPECT_EQ(c.expected, h.reply()) << c.which;
        EXPECT_EQ(c.errorText != nullptr, hasError) << c.which;
        EXPECT_EQ(c.errorText != nullptr ? c.errorText : "", errorText) << c.which;
    }
    bool hasError = false;
    std::string errorText;
    EXPECT_EQ(-1, agent.queryBackend(PlatformRoot::path("/usr/local/bin/no-such-tool").c_str(), h.socket(), "T",
                                     hasError, errorText, "", nullptr, false, false));
    // Long lines: whole with the extended form, in pieces without it.
    EXPECT_EQ(0,
              agent.queryBackend(tool("long").c_str(), h.socket(), "T", hasError, errorText, "", nullptr, false, true));
    std::string reply = h.reply();
    EXPECT_NE(std::string::npos, reply.find("<huge>" + std::string(10000, 'h') + "</huge><after>2</after>"));
    EXPECT_EQ(
        0, agent.queryBackend(tool("long").c_str(), h.socket(), "T", hasError, errorText, "", nullptr, false, false));
    reply = h.reply();
    EXPECT_EQ(0u, reply.find("<short>1</short><medium>" + std::string(347, 'm') + "<huge>" + std::string(349, 'h')));
    EXPECT_EQ(reply.size() - 16, reply.find("<after>2</after>"));
}

TEST_F(BackendTest, PreparedTextReplacesTheCommandOnce)
{
    std::string canary = h.root().path("/canary");
    std::string command = "touch " + canary;
    bool hasError = false;
    std::string errorText;
    agent.prepare("a: 1\n");
    EXPECT_EQ(0, agent.queryBackend(command.c_str(), h.socket(), "T", hasError, errorText, "", nullptr, false, false));
    EXPECT_EQ("<a>1</a>", h.reply());
    EXPECT_FALSE(agent.prepared());
    EXPECT_FALSE(h.root().exists("/canary"));
    for (bool nullTag : {true, false}) {
        agent.prepare("a: 1\n");
        EXPECT_EQ(-1, agent.queryBackend(nullTag ? command.c_str() : nullptr, h.socket(), nullTag ? nullptr : "T",
                                         hasError, errorText, "", nullptr, false, false));
        EXPECT_FALSE(agent.prepared());
    }
    // Neither a stream nor prepared text: nothing to read, nothing written.
    EXPECT_EQ(-1, agent.xmlize(nullptr, h.socket(), "T", hasError, errorText, "", true));
    EXPECT_EQ(-1, agent.xmlizeExt(nullptr, h.socket(), "T", true));
    EXPECT_EQ("", h.reply());
    EXPECT_FALSE(h.root().exists("/canary"));
    // Without prepared text the command runs.
    EXPECT_EQ(0, agent.queryBackend(command.c_str(), h.socket(), "T", hasError, errorText, "", nullptr, false, false));
    EXPECT_TRUE(h.root().exists("/canary"));
}

TEST_F(BackendTest, InvokeBackend)
{
    std::string output = "kept:";
    EXPECT_EQ(0, agent.invokeBackend("printf 'one\\n'", output, nullptr));
    EXPECT_EQ(3, agent.invokeBackend("printf 'a\\000b'; exit 3", output, "Test"));
    EXPECT_EQ(std::string("kept:one\na\0b", 12), output);
    EXPECT_EQ(127, agent.invokeBackend(PlatformRoot::path("/no/such/tool").c_str(), output, nullptr));
    EXPECT_EQ(-1, agent.invokeBackend(nullptr, output, nullptr));
    output.clear();
    EXPECT_EQ(0, agent.invokeBackend((tool("long") + " | wc -c").c_str(), output, nullptr));
    EXPECT_EQ("10434\n", output);
}

// The server ignores SIGPIPE and holds client sockets; tools get neither.
TEST_F(BackendTest, ToolsStartClean)
{
    auto previous = signal(SIGPIPE, SIG_IGN);
    int fd = open("/dev/null", O_RDONLY);  // inheritable, like a socket without CLOEXEC
    ASSERT_GE(fd, 3);
    std::string output;
    EXPECT_EQ(128 + SIGPIPE, agent.invokeBackend("kill -PIPE $$; echo survived", output, nullptr));
    std::string probe = "test -e /proc/$$/fd/" + std::to_string(fd) + " && echo leaked; cat; echo done";
    EXPECT_EQ(0, agent.invokeBackend(probe.c_str(), output, nullptr));  // cat reads /dev/null
    EXPECT_EQ("done\n", output);
    close(fd);
    signal(SIGPIPE, previous);
}

}  // namespace
