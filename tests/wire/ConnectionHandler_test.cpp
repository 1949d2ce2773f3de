// Request framing on both layouts and the request-processing envelope,
// driven through a socket pair without threads.
#include "ConnectionHandler.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include "AgentHarness.h"
#include "ConnectionManager.h"
#include "DataHandler.h"
#include "GUIDataServer.h"
#include "ProcessingException.h"
#include "RawWire.h"
#include "StubAgent.h"
#include "TestRoot.h"
#include "XmlCheck.h"

namespace {

class Framing : public testing::Test {
protected:
    TestRoot root{true};
    GUIDataServer server;
    ConnectionManager manager{server};
    int peer = -1;

    // A handler reading from a socket pair that already holds `bytes`, with
    // the writing end shut so reads end instead of blocking.
    std::unique_ptr<ConnectionHandler> handlerFor(const std::string& bytes, bool nxtGen)
    {
        if (peer >= 0) {
            close(peer);
        }
        int fds[2];
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fds));
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()), write(fds[1], bytes.data(), bytes.size()));
        peer = fds[1];
        shutdown(peer, SHUT_WR);
        sockaddr_in addr{};
        GUIDataSocket sock(fds[0], addr);
        return std::make_unique<ConnectionHandler>(manager, sock, nxtGen);
    }
    void TearDown() override { close(peer); }
};

// Accepted frames: the request text, privileges, raw-reply flag and audit
// names; rejected frames are exercised against the real server.
TEST_F(Framing, FramesAreSplit)
{
    const std::vector<std::pair<std::string, std::string>> legacyCases = {
        {legacyFrame("get=sshPort"), "get=sshPort|127|0||"},
        {legacyFrame("x", 0x01000007), "x|7|1||"},
        {legacyFrame("a\nb\n\n\n"), "a\nb|127|0||"},  // trailing line ends removed, inner kept
        {legacyFrame(std::string(8092, 'g')), std::string(8092, 'g') + "|127|0||"},  // longest text
    };
    const std::vector<std::pair<std::string, std::string>> jsonCases = {
        {R"({"Magic":"BEEF","Privilege":34,"Command":"get=a\n","Username":"admin","Interface":"web"})",
         "get=a|34|0|admin|web"},
        {R"({"Magic":"BEEF","Privilege":"7","Command":"c"})", "c|0|0||"},
        {R"({"Magic":"BEEF","Command":")" + std::string(8000, 'k') + R"("})", std::string(8000, 'k') + "|0|0||"},
        // keys match whatever their case, as cJSON_GetObjectItem matches them
        {R"({"magic":"BEEF","PRIVILEGE":3,"command":"c","username":"u","INTERFACE":"i"})", "c|3|0|u|i"},
        {R"({"Magic":"BEEF","Privilege":4278190082,"Command":"c"})", "c|2|255||"},
        {R"({"Magic":"BEEF","Command":"c","Username":")" + std::string(200, 'u') +
             R"(","Interface":"0123456789012345678901234567890123456789"})",
         "c|0|0|" + std::string(127, 'u') + "|0123456789012345678901234567890"},
    };
    for (bool nxtGen : {false, true}) {
        for (const auto& [bytes, expected] : nxtGen ? jsonCases : legacyCases) {
            auto h = handlerFor(nxtGen ? be32(static_cast<int>(bytes.size())) + bytes : bytes, nxtGen);
            char* text = h->nextRequest();
            ASSERT_NE(nullptr, text) << expected;
            EXPECT_EQ(expected, std::string(text) + "|" + std::to_string(h->getPrivileges()) + "|" +
                                    std::to_string(h->getRawReply()) + "|" + h->getAuditUserName() + "|" +
                                    h->getAuditInterfaceName());
            h->getSocket().close();
        }
    }
}

// The request buffer starts small and grows: texts before and after a long
// one arrive whole on the same connection.
TEST_F(Framing, TextsOfGrowingLengthOnOneConnection)
{
    const std::string texts[] = {"a", std::string(300, 'b'), std::string(8092, 'c'), "d", std::string(2000, 'e')};
    std::string bytes;
    for (const std::string& t : texts) {
        bytes += legacyFrame(t);
    }
    auto h = handlerFor(bytes, false);
    for (const std::string& t : texts) {
        char* got = h->nextRequest();
        ASSERT_NE(nullptr, got);
        EXPECT_EQ(t, got);
    }
    EXPECT_EQ(nullptr, h->nextRequest());  // the stream ended
    // A closed socket ends the next read at once.
    h = handlerFor("", false);
    h->getSocket().close();
    EXPECT_EQ(nullptr, h->nextRequest());
}

TEST_F(Framing, SetAndGetParts)
{
    auto h = handlerFor("", false);
    RequestTokenizer tokenizer("(),=&:?");
    // request -> "index|name=arg;arg|..." or "throws <message>"
    const std::pair<const char*, std::string> sets[] = {
        {"set=a:,b:&c:\"x,y\"", "|a=|b=|c=\"x,y\""},
        {"x=1,set=f(a,b)", "|f=a;b"},
        {"set=adapterIndex:1,enicIndex:2,a:5", "enicIndex|adapterIndex=1|enicIndex=2|a=5"},
        {"set=a:1,b", "throws Missing value assignment after: b"},
        {"set=f(a),x:1", "throws Token is not of type TEXT."},
        {"set=f(a", "throws Missing ',' after a"},
    };
    for (const auto& [request, expected] : sets) {
        std::vector<RequestToken> tokens;
        std::vector<std::string> names;
        TokenMap arguments;
        tokenizer.tokenize(request, tokens);
        std::string got;
        try {
            got = h->parseForSet(tokens, names, arguments);
            for (const std::string& name : names) {
                got += "|" + name + "=";
                for (size_t k = 0; k < arguments[name].size(); ++k) {
                    got += (k > 0 ? ";" : "") + arguments[name][k].getString();
                }
            }
        } catch (const RequestFormatException& e) {
            got = "throws " + e.getMessage();
        }
        EXPECT_EQ(expected, got) << request;
    }
    // request -> "name/extra|..." for every get item
    const std::pair<std::string, std::string> gets[] = {
        {"get=a(3),b[2],c[1](2)", "a/(3)|b/[2]|c[1]/(2)"}, {"get=a,,b", "a/|/|b/"}, {"set=x:1", ""}};
    for (auto [request, expected] : gets) {
        std::vector<std::string> items = {"stale"};
        h->parseForGet(request, items);
        std::string got;
        for (std::string& item : items) {
            std::string name, extra;
            h->parseForArgs(item, name, extra);
            got += (got.empty() ? "" : "|") + name + "/" + extra;
        }
        EXPECT_EQ(expected, got) << request;
    }
    h->getSocket().close();
}

// A raw reply has no envelope, also after an exception.
TEST(RequestKinds, RawReplyHasNoEnvelope)
{
    AgentHarness h;
    EXPECT_EQ("<root><status>error</status><errorMsg>Bad request format</errorMsg></root>",
              h.request("set=a:1,b", 0x7f));
    EXPECT_EQ("", h.request("set=a:1,b", 0x01000000));
    EXPECT_EQ("", h.request("get=", 0x01000000));
}

// Error messages often echo the request: whatever they hold, the error reply
// stays well-formed and keeps its closing tags, also when the message is
// longer than the reply's buffer.
TEST(RequestKinds, ErrorRepliesStayWellFormed)
{
    struct Thrower : StubAgent {
        using StubAgent::StubAgent;
        std::string message;
        int preProcessGet(std::string&, std::string&) override { throw ProcessingException(0, message.c_str()); }
    };
    const std::string messages[] = {"plain", "a <b> & c", std::string(2000, 'x'), std::string(1010, 'x') + "&&&&&&",
                                    std::string(1000, '<')};
    for (const std::string& message : messages) {
        AgentHarness h;
        auto* agent = new Thrower(h.dataHandler());
        agent->message = message;
        h.dataHandler().addAgent("boom", agent);
        std::string reply = h.request("get=boom");
        EXPECT_TRUE(isWellFormedXml(reply)) << reply;
        EXPECT_NE(std::string::npos, reply.find("</errorMsg></root>")) << reply;
    }
}

}  // namespace
