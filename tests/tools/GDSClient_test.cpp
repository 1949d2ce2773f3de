// The client of the data server's request ports: reply reassembly and header checks, reply ends (its
// frames are what every end-to-end test sends).
#include "GDSClient.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "RawWire.h"

namespace {
using namespace std::string_literals;

// Plays the server on loopback without a thread: connects `client`, sends `wire`, returns the server's end.
int serve(GDSClient& client, const std::string& wire)
{
    int port = 0;
    int listener = listenOnLoopback(port);
    EXPECT_GE(listener, 0);
    client.options().port = port;
    client.connect();
    int server = accept(listener, nullptr, nullptr);
    ::close(listener);
    EXPECT_EQ(static_cast<ssize_t>(wire.size()), send(server, wire.data(), wire.size(), MSG_NOSIGNAL));
    return server;
}

std::string packet(const std::string& data, int last, const std::string& magic = "BEEF", int byte3 = 0, int len = -1)
{
    len = len >= 0 ? len : static_cast<int>(data.size()) + 2;
    return std::string{char(len >> 8), char(len & 0xFF), char(last), char(byte3)} + magic + data;
}

template <typename F>
int errorKind(F call)  // the kind of GDSClientError that `call` throws; -1: none
{
    try {
        call();
        return -1;
    } catch (const GDSClientError& e) {
        return e.kind();
    }
}
}  // namespace

TEST(GDSClientReply, ReassemblyHeaderChecksAndEndRules)
{
    using End = GDSClient::ReplyEnd;
    using Seen = GDSReplyEnd;
    const std::string k1024(1024, 'a');
    const int kProtocol = GDSClientError::kProtocol, kClosed = GDSClientError::kClosed;
    const struct {
        const char* name;
        std::string wire, text;  // text: on success
        size_t packets;          // on success
        int error;               // -1: success, otherwise a GDSClientError::Kind
        End mode = End::kLastFlag;
        Seen end = Seen::kLastPacket;
    } cases[] = {
        {"three packets", packet(k1024, 0) + packet("", 0) + packet("b", 1), k1024 + "b", 3, -1},
        {"bad magic", packet("x", 1, "BEEX"), "", 0, kProtocol},
        {"length field 1", packet("", 1, "BEEF", 0, 1), "", 0, kProtocol},
        {"byte 3 not 0", packet("x", 1, "BEEF", 7), "", 0, kProtocol},
        {"flag 2", packet("x", 2), "", 0, kProtocol},
        {"EOF in header", packet("abc", 1).substr(0, 5), "", 0, kClosed},
        {"flag only: silence times out", packet("ab", 0), "", 0, GDSClientError::kTimeout},
        {"idle after packets", packet("ab", 0) + packet("cd", 0), "abcd", 2, -1, End::kIdle, Seen::kIdle},
        {"peer close after packets", packet("ab", 0), "ab", 1, -1, End::kPeerClose, Seen::kPeerClosed},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        GDSClient client;
        client.options().replyEnd = c.mode;
        client.options().idleMs = 100;
        client.options().replyTimeoutMs = 300;
        int fd = serve(client, c.wire);
        if (c.error == kClosed || c.mode == End::kPeerClose) {  // cases about closing; the rest meet silence
            shutdown(fd, SHUT_WR);
        }
        GDSReply reply;
        EXPECT_EQ(c.error, errorKind([&] { reply = client.readReply(); }));
        EXPECT_TRUE(c.error == -1 || !client.isOpen());  // a failure closes the connection
        EXPECT_EQ(c.text, reply.text);
        EXPECT_EQ(c.end, reply.end);
        ASSERT_EQ(c.packets, reply.packets.size());
        EXPECT_TRUE(c.packets == 0 || (c.end == Seen::kLastPacket) == (reply.packets.back().last == 1));
        ::close(fd);
    }
}

TEST(GDSClientRequest, BufferedRepliesStayApartAndOverlongFramesAreRefused)
{
    GDSClient client;
    const std::string longest(GDSClient::kMaxFrameLength - 4, 'x');
    EXPECT_EQ(GDSClientError::kRequest, errorKind([&] { client.request(longest + "x"); }));  // before connecting
    // All three replies are waiting at once: none may take another's bytes.
    int fd = serve(client, packet("one", 1) + packet("tw", 0) + packet("o", 1) + packet("three", 1));
    EXPECT_EQ("one", client.request(longest).text);
    EXPECT_EQ("two", client.request("get=b,c").text);
    EXPECT_EQ("three", client.readReply().text);
    ::close(fd);
}
