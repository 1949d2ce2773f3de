// Request framing on both layouts and the request-processing envelope,
// driven through a socket pair without threads.
#include "ConnectionHandler.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "AgentHarness.h"
#include "ConnectionManager.h"
#include "GUIDataServer.h"
#include "TestRoot.h"

namespace {

std::string be32(int v)
{
    unsigned int u = static_cast<unsigned int>(v);
    return std::string{static_cast<char>(u >> 24), static_cast<char>(u >> 16), static_cast<char>(u >> 8),
                       static_cast<char>(u)};
}

std::string legacy(const std::string& text, int word = 0x7f, const std::string& magic = "BEEF")
{
    return be32(static_cast<int>(text.size()) + 4) + be32(word) + magic + text;
}

std::string nxtgen(const std::string& json)
{
    return be32(static_cast<int>(json.size())) + json;
}

class Framing : public testing::Test {
protected:
    void SetUp() override
    {
        root = new TestRoot(true);
        server = new GUIDataServer();
        manager = new ConnectionManager(*server);
    }
    void TearDown() override
    {
        delete manager;
        delete server;
        delete root;
    }

    // A handler reading from a socket pair that already holds `bytes` (the
    // writing end is closed afterwards, so reads end instead of blocking).
    ConnectionHandler* handlerFor(const std::string& bytes, bool nxtGen)
    {
        int fds[2];
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fds));
        EXPECT_EQ(static_cast<ssize_t>(bytes.size()), write(fds[1], bytes.data(), bytes.size()));
        peer = fds[1];
        shutdown(peer, SHUT_WR);
        sockaddr_in addr{};
        GUIDataSocket sock(fds[0], addr);
        return new ConnectionHandler(*manager, sock, nxtGen);
    }

    std::string replyBytes()
    {
        std::string out;
        fcntl(peer, F_SETFL, O_NONBLOCK);
        char buf[4096];
        for (ssize_t n; (n = read(peer, buf, sizeof buf)) > 0;) {
            out.append(buf, static_cast<size_t>(n));
        }
        return out;
    }

    TestRoot* root = nullptr;
    GUIDataServer* server = nullptr;
    ConnectionManager* manager = nullptr;
    int peer = -1;
};

struct FrameCase {
    const char* what;
    bool nxtGen;
    std::string bytes;
    bool accepted;
    std::string text;
    int privileges;
    int rawReply;
    std::string user;
    std::string iface;
};

TEST_F(Framing, FramesAreCheckedAndSplit)
{
    std::string longUser(200, 'u');
    std::vector<FrameCase> cases = {
        {"legacy request", false, legacy("get=sshPort"), true, "get=sshPort", 0x7f, 0, "", ""},
        {"legacy empty text", false, legacy(""), true, "", 0x7f, 0, "", ""},
        {"privilege split", false, legacy("x", 0x01000007), true, "x", 7, 1, "", ""},
        {"top byte 0xff", false, legacy("x", static_cast<int>(0xff000020u)), true, "x", 0x20, 255, "", ""},
        {"trailing line ends removed, inner kept", false, legacy("a\nb\n\n\n"), true, "a\nb", 0x7f, 0, "", ""},
        {"longest text", false, legacy(std::string(8092, 'g')), true, std::string(8092, 'g'), 0x7f, 0, "", ""},
        {"too long", false, be32(8097) + be32(0) + "BEEF", false, "", 0, 0, "", ""},
        {"length shorter than magic", false, be32(2) + be32(0) + "BEEF", false, "", 0, 0, "", ""},
        {"bad magic", false, legacy("get=a", 0, "BEEX"), false, "", 0, 0, "", ""},
        {"truncated text", false, be32(100) + be32(0) + "BEEFshort", false, "", 0, 0, "", ""},
        {"json request", true,
         nxtgen(R"({"Magic":"BEEF","Privilege":34,"Command":"get=a\n","Username":"admin","Interface":"web"})"), true,
         "get=a", 34, 0, "admin", "web"},
        {"json long magic accepted", true, nxtgen(R"({"Magic":"BEEFCAKE","Command":"c"})"), true, "c", 0, 0, "", ""},
        {"json privilege of wrong type", true, nxtgen(R"({"Magic":"BEEF","Privilege":"7","Command":"c"})"), true, "c",
         0, 0, "", ""},
        {"json raw reply", true, nxtgen(R"({"Magic":"BEEF","Privilege":4278190082,"Command":"c"})"), true, "c", 2, 255,
         "", ""},
        {"json names cut", true,
         nxtgen(R"({"Magic":"BEEF","Command":"c","Username":")" + longUser +
                R"(","Interface":"0123456789012345678901234567890123456789"})"),
         true, "c", 0, 0, std::string(127, 'u'), "0123456789012345678901234567890"},
        {"json without command", true, nxtgen(R"({"Magic":"BEEF"})"), true, "", 0, 0, "", ""},
        {"json keys are case-sensitive", true, nxtgen(R"({"magic":"BEEF","Command":"c"})"), false, "", 0, 0, "", ""},
        {"json magic of wrong type", true, nxtgen(R"({"Magic":1234,"Command":"c"})"), false, "", 0, 0, "", ""},
    };
    for (const FrameCase& c : cases) {
        ConnectionHandler* h = handlerFor(c.bytes, c.nxtGen);
        char* text = h->nextRequest();
        EXPECT_EQ(c.accepted, text != nullptr) << c.what;
        if (text != nullptr) {
            EXPECT_EQ(c.text, std::string(text)) << c.what;
            EXPECT_EQ(c.privileges, h->getPrivileges()) << c.what;
            EXPECT_EQ(c.rawReply, h->getRawReply()) << c.what;
            EXPECT_EQ(c.user, std::string(h->getAuditUserName())) << c.what;
            EXPECT_EQ(c.iface, std::string(h->getAuditInterfaceName())) << c.what;
        } else {
            EXPECT_EQ("", replyBytes()) << c.what << ": a rejected frame gets no reply";
            EXPECT_LT(h->getSocket().getDescriptor(), 0) << c.what << ": the connection is closed";
        }
        h->getSocket().close();
        delete h;
        close(peer);
    }
}

TEST_F(Framing, SetAndGetParts)
{
    ConnectionHandler* h = handlerFor("", false);
    RequestTokenizer tokenizer("(),=&:?");
    // request -> "index|name=arg;arg|..." or "throws <message>"
    const std::pair<const char*, std::string> sets[] = {
        {"set=sshPort:22,webTimeout:300", "|sshPort=22|webTimeout=300"},
        {"set=a:,b:&c:\"x,y\"", "|a=|b=|c=\"x,y\""},
        {"x=1,set=f(a,b)", "|f=a;b"},
        {"set=f(,a)", "|f=;a"},
        {"set=f()", "|f="},
        {"set=a:1,a:2", "|a=2|a=2"},
        {"set=adapterIndex:1,enicIndex:2,a:5", "enicIndex|adapterIndex=1|enicIndex=2|a=5"},
        {"target=5", ""},
        {"set=a:1,b", "throws Missing value assignment after: b"},
        {"set=a:1=2", "throws Missing value assignment after: 2"},
        {"set=f(a),x:1", "throws Token is not of type TEXT."},
        {"set=f(a:b)", "throws Missing ',' after a"},
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
        {"get=a(3),b[2],c[1](2)", "a/(3)|b/[2]|c[1]/(2)"},
        {"get=a(1,2)", "a/(1|2)/"},
        {"get=a,,b", "a/|/|b/"},
        {"get=a,", "a/"},
        {"get=", "/"},
        {"target=5", "5/"},
        {"set=x:1", ""},
    };
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
    delete h;
    close(peer);
}

// Which kind of request a text is, and the envelope that goes with it.
TEST(RequestKinds, DocumentsCaptureFilesAndEnvelopes)
{
    AgentHarness h;
    const struct {
        const char* request;
        int word;
        const char* reply;  // the reply, or with a leading '~' a part of it
    } cases[] = {
        // A launch document anywhere in the text; kvm.jnlp needs no privilege
        // and wins over viewer.jnlp, which would.
        {"get=kvm.jnlp", 0x00, "~<jnlp"},
        {"viewer.jnlp,kvm.jnlp", 0x00, "~<jnlp"},
        {"viewer.jnlp", 0x00, ""},
        // Only at the very start: nobody serves the capture file here.
        {"/captureFile.jnlp?id=1", 0x7f, ""},
        {"/x/captureFile.jnlp", 0x7f, "<root><status>ok</status>\n</root>\n"},
        // A raw reply has no envelope, also after an exception.
        {"set=a:1,b", 0x7f, "<root><status>error</status><errorMsg>Bad request format</errorMsg></root>"},
        {"set=a:1,b", 0x01000000, ""},
    };
    for (const auto& c : cases) {
        std::string reply = h.request(c.request, c.word);
        if (c.reply[0] == '~') {
            EXPECT_NE(std::string::npos, reply.find(c.reply + 1)) << c.request << "\n" << reply;
            EXPECT_NE(0u, reply.find("<root>")) << c.request;
        } else {
            EXPECT_EQ(c.reply, reply) << c.request;
        }
    }
}

TEST(GDSProtoHeader, DecodesOnlyWellTypedKeys)
{
    struct Case {
        const char* json;
        int rc;
        int privilege;
        const char* magic;
        const char* command;
    };
    std::vector<Case> cases = {
        {R"({"Magic":"BEEF","Privilege":5,"Command":"get=x"})", 0, 5, "BEEF", "get=x"},
        {R"({"Privilege":-1})", 0, -1, nullptr, nullptr},
        {R"({"Privilege":true,"Command":5})", 0, 0, nullptr, nullptr},
        {R"([1,2,3])", 0, 0, nullptr, nullptr},
        {R"({"Command":"a\u0000b"})", 0, 0, nullptr, "a"},
        {"", -1, 0, nullptr, nullptr},
        {"{", -1, 0, nullptr, nullptr},
    };
    for (const Case& c : cases) {
        gds_params p;
        std::string json = c.json;
        EXPECT_EQ(c.rc, getGDSProtoHeaderFields(&json[0], &p)) << c.json;
        if (c.rc == 0) {
            EXPECT_EQ(c.privilege, p.privilege) << c.json;
            EXPECT_EQ(c.magic == nullptr, p.magic == nullptr) << c.json;
            if (c.magic != nullptr && p.magic != nullptr) {
                EXPECT_STREQ(c.magic, p.magic);
            }
            EXPECT_EQ(c.command == nullptr, p.command == nullptr) << c.json;
            if (c.command != nullptr && p.command != nullptr) {
                EXPECT_STREQ(c.command, p.command);
            }
            freeGDSProtoHeaderFields(&p);
        }
    }
    gds_params p;
    EXPECT_EQ(-1, getGDSProtoHeaderFields(nullptr, &p));
}

}  // namespace
