// Raw bytes against the real server: every bad frame ends only its own
// connection, silently, and the server still answers afterwards.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include "GDSClient.h"
#include "GdsProcess.h"
#include "TestRoot.h"

namespace {

const char kEmptyEnvelope[] = "<root><status>ok</status>\n</root>\n";

std::string be32(int v)
{
    unsigned int u = static_cast<unsigned int>(v);
    return std::string{static_cast<char>(u >> 24), static_cast<char>(u >> 16), static_cast<char>(u >> 8),
                       static_cast<char>(u)};
}

class Protocol : public testing::Test {
protected:
    void SetUp() override
    {
        root = std::make_unique<TestRoot>(true);
        gds = std::make_unique<GdsProcess>(*root);
        gds->setConfig("addHandler=test\n[test]\nlibFile=" + TestRoot::libDir() +
                       "/libtesthandler.so\nentryPoint=testhandler_init\n");
        ASSERT_TRUE(gds->start()) << gds->output();
    }

    GDSClient::Options options(bool nxtGen)
    {
        GDSClient::Options o;
        o.layout = nxtGen ? GDSClient::Layout::kNxtGen : GDSClient::Layout::kLegacy;
        o.port = nxtGen ? gds->nxtGenPort() : gds->legacyPort();
        o.replyTimeoutMs = 5000;
        return o;
    }

    // The server answers a normal request on both ports.
    void expectServing()
    {
        for (bool nxtGen : {false, true}) {
            GDSClient client(options(nxtGen));
            client.connect();
            EXPECT_EQ(kEmptyEnvelope, client.request("get=").text) << (nxtGen ? "8197" : "legacy");
        }
    }

    std::unique_ptr<TestRoot> root;
    std::unique_ptr<GdsProcess> gds;
};

std::string json(const std::string& text)
{
    return be32(static_cast<int>(text.size())) + text;
}

struct BadFrame {
    const char* what;
    bool nxtGen;
    std::string bytes;
    bool halfClose;  // the client stops sending after the bytes
};

TEST_F(Protocol, BadFramesCloseTheirConnectionSilently)
{
    std::vector<BadFrame> cases = {
        {"length 0", false, be32(0), false},
        {"negative length", false, be32(-1), false},
        {"length 1", false, be32(1) + "B", false},
        {"length 3", false, be32(3) + be32(0) + "BEE", false},
        {"length 8097", false, be32(8097) + be32(0) + "BEEF", false},
        {"huge length", false, be32(0x7fffffff), false},
        {"bad magic", false, be32(9) + be32(0) + "BEEXhello", false},
        {"short magic then close", false, be32(9) + be32(0) + "BE", true},
        {"truncated text then close", false, be32(100) + be32(0) + "BEEFabc", true},
        {"truncated length then close", false, std::string("\x00\x00", 2), true},
        {"json length 0", true, be32(0), false},
        {"json length 8097", true, be32(8097), false},
        {"json invalid", true, json("{\"Magic"), false},
        {"json of the wrong types", true, json("{\"Magic\":1,\"Command\":[1,2]}"), false},
        {"json not an object", true, json("[]"), false},
        {"json bad magic", true, json("{\"Magic\":\"BEEX\",\"Command\":\"a\"}"), false},
        {"json truncated then close", true, be32(50) + "{\"Magic\":\"BEEF\"", true},
    };
    for (const BadFrame& c : cases) {
        GDSClient client(options(c.nxtGen));
        client.connect();
        client.sendRaw(c.bytes);
        if (c.halfClose) {
            shutdown(client.fd(), SHUT_WR);
        }
        try {
            GDSPacket p = client.readPacket();
            ADD_FAILURE() << c.what << ": got a reply packet: " << p.data;
        } catch (const GDSClientError& e) {
            // Closed, or reset when the server closed with our bytes unread.
            EXPECT_TRUE(e.kind() == GDSClientError::kClosed || e.kind() == GDSClientError::kIo)
                << c.what << ": " << e.what();
        }
        expectServing();
    }
}

TEST_F(Protocol, LargestFramesAreAccepted)
{
    GDSClient legacy(options(false));
    legacy.connect();
    // L = 8096: 8092 bytes of text.
    std::string text = "get=testEcho(" + std::string(8092 - 14, 'a') + ")";
    ASSERT_EQ(8092u, text.size());
    GDSReply r = legacy.request(text);
    EXPECT_NE(std::string::npos, r.text.find("<status>ok</status>")) << r.text.substr(0, 200);
    EXPECT_GE(r.packets.size(), 8u);
}

TEST_F(Protocol, ManyRequestsOnOneConnectionAnsweredInOrder)
{
    for (bool nxtGen : {false, true}) {
        GDSClient client(options(nxtGen));
        client.connect();
        // Several requests sent back to back before reading any reply.
        std::string burst;
        for (int i = 0; i < 20; ++i) {
            burst += client.frame("get=testEcho(" + std::to_string(i) + ")");
        }
        client.sendRaw(burst);
        for (int i = 0; i < 20; ++i) {
            GDSReply r = client.readReply();
            EXPECT_EQ("<root><testEcho>(" + std::to_string(i) + ")</testEcho>\n<status>ok</status>\n</root>\n", r.text);
        }
    }
}

TEST_F(Protocol, StalledConnectionDoesNotBlockOthers)
{
    GDSClient stalled(options(false));
    stalled.connect();
    stalled.sendRaw(be32(100) + be32(0) + "BEEF" + "only part");  // never finished
    expectServing();
}

TEST_F(Protocol, PeerVanishingMidReplyLeavesServerRunning)
{
    for (int i = 0; i < 5; ++i) {
        GDSClient client(options(false));
        client.connect();
        client.sendRaw(client.frame("get=testEcho(" + std::string(6000, 'z') + ")"));
        client.close();  // before the reply is read
    }
    expectServing();
    EXPECT_TRUE(gds->isRunning());
}

TEST_F(Protocol, NonPrintableBytesReachTheWireAsBlanks)
{
    GDSClient client(options(false));
    client.connect();
    GDSReply r = client.request(std::string("get=testEcho(a\x01") + "\x7f\xc3\xa9)");
    EXPECT_EQ("<root><testEcho>(a    )</testEcho>\n<status>ok</status>\n</root>\n", r.text);
}

TEST_F(Protocol, RawReplyHasNoEnvelopeAndNoLastPacket)
{
    GDSClient::Options o = options(false);
    o.rawReply = 1;
    o.replyEnd = GDSClient::ReplyEnd::kIdle;
    o.idleMs = 300;
    GDSClient client(o);
    client.connect();
    GDSReply r = client.request("get=testEcho(x)");
    EXPECT_EQ("<testEcho>(x)</testEcho>\n", r.text);
    for (const GDSPacket& p : r.packets) {
        EXPECT_EQ(0, p.last);
    }
}

}  // namespace
