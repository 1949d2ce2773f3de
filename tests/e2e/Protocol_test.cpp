// Raw bytes against the real server: every bad frame ends only its own
// connection, silently, and the server still answers afterwards.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <tuple>

#include "GDSClient.h"
#include "GdsProcess.h"
#include "RawWire.h"
#include "ReplyText.h"
#include "TestRoot.h"

namespace {

std::string json(const std::string& text)
{
    return be32(static_cast<int>(text.size())) + text;
}

class Protocol : public testing::Test {
protected:
    void SetUp() override
    {
        gds.setConfig("addHandler=test\n[test]\nlibFile=" + TestRoot::libDir() +
                      "/libtesthandler.so\nentryPoint=testhandler_init\n");
        ASSERT_TRUE(gds.start()) << gds.output();
    }

    // The server answers a normal request on both ports.
    void expectServing()
    {
        for (bool nxtGen : {false, true}) {
            GDSClient client(gds.options(nxtGen));
            client.connect();
            EXPECT_EQ("<root><status>ok</status>\n</root>\n", client.request("get=").text) << nxtGen;
        }
    }

    TestRoot root{true};
    GdsProcess gds{root};
};

TEST_F(Protocol, BadFramesAndPeersEndOnlyTheirConnection)
{
    // A stalled peer and peers vanishing mid-reply stop nothing either.
    GDSClient stalled(gds.options(false));
    stalled.connect();
    stalled.sendRaw(be32(100) + be32(0) + "BEEF" + "only part");  // never finished
    for (int i = 0; i < 5; ++i) {
        GDSClient client(gds.options(false));
        client.connect();
        client.sendRaw(client.frame("get=testEcho(" + std::string(6000, 'z') + ")"));
        client.close();  // before the reply is read
    }
    // what, next-generation port, bytes, whether the client then stops sending
    const std::tuple<const char*, bool, std::string, bool> cases[] = {
        {"length 0", false, be32(0), false},
        {"length 8097", false, be32(8097) + be32(0) + "BEEF", false},
        {"bad magic", false, be32(9) + be32(0) + "BEEXhello", false},
        {"truncated text then close", false, be32(100) + be32(0) + "BEEFabc", true},
        {"truncated length then close", false, std::string("\x00\x00", 2), true},
        {"json length 8097", true, be32(8097), false},
        {"json invalid", true, json("{\"Magic"), false},
        {"json bad magic", true, json("{\"Magic\":\"BEEX\",\"Command\":\"a\"}"), false},
        {"json truncated then close", true, be32(50) + "{\"Magic\":\"BEEF\"", true},
        // What follows a refused length in the same write is never parsed.
        {"length 8097 then a frame", false, be32(8097) + legacyFrame("set=testEcho:afterRefusal"), false},
        {"length 2 then a frame", false, be32(2) + legacyFrame("set=testEcho:afterRefusal"), false},
        {"length 8098 then blanks", false, be32(8098) + std::string(1020, ' '), false},
        {"json length 9000 then a frame", true,
         be32(9000) + json("{\"Magic\":\"BEEF\",\"Privilege\":127,\"Command\":\"set=testEcho:afterRefusal\"}"), false},
    };
    for (const auto& [what, nxtGen, bytes, halfClose] : cases) {
        GDSClient client(gds.options(nxtGen));
        client.connect();
        client.sendRaw(bytes);
        if (halfClose) {
            shutdown(client.fd(), SHUT_WR);
        }
        try {
            GDSPacket p = client.readPacket();
            ADD_FAILURE() << what << ": got a reply packet: " << p.data;
        } catch (const GDSClientError& e) {
            // Closed, or reset when the server closed with our bytes unread.
            EXPECT_TRUE(e.kind() == GDSClientError::kClosed || e.kind() == GDSClientError::kIo)
                << what << ": " << e.what();
        }
        expectServing();
    }
    EXPECT_TRUE(gds.isRunning());
    EXPECT_EQ(std::string::npos, root.readFile("/tmp/testhandler.calls").find("afterRefusal"));
    // One line per refused length (six rows): the blanks behind one are not
    // read as further lengths.
    EXPECT_EQ(6u, occurrences(gds.output(), "Invalid message length of: ")) << gds.output();
}

TEST_F(Protocol, ManyRequestsOnOneConnectionAnsweredInOrder)
{
    for (bool nxtGen : {false, true}) {
        GDSClient client(gds.options(nxtGen));
        client.connect();
        std::string burst;  // sent back to back before reading any reply
        for (int i = 0; i < 20; ++i) {
            burst += client.frame("get=testEcho(" + std::to_string(i) + ")");
        }
        client.sendRaw(burst);
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ("<root><testEcho>(" + std::to_string(i) + ")</testEcho>\n<status>ok</status>\n</root>\n",
                      client.readReply().text);
        }
        // Idle past the point where the connection hands back its buffers and stack pages (100 ms):
        // the next frame, arriving in two pieces, is read into new ones.
        const std::string frame = client.frame("get=testEcho(late)");
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        client.sendRaw(frame.substr(0, 6));
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        client.sendRaw(frame.substr(6));
        EXPECT_EQ("<root><testEcho>(late)</testEcho>\n<status>ok</status>\n</root>\n", client.readReply().text);
    }
}

}  // namespace
