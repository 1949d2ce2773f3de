// The client of the data server's request ports: frame bytes, reply
// reassembly and header checks, how replies end.
#include "GDSClient.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
using namespace std::string_literals;

// A loopback socket on an ephemeral port. A client's connect() completes
// against its backlog, so the test itself plays the server, without a thread.
struct Listener {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    int port = 0;
    explicit Listener(bool listening = true)
    {
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        EXPECT_EQ(0, bind(fd, reinterpret_cast<sockaddr*>(&a), len));
        EXPECT_TRUE(!listening || listen(fd, 4) == 0);
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
        port = ntohs(a.sin_port);
    }
    ~Listener() { ::close(fd); }
    // Connects `client` and sends it `wire`; returns the server's end of the connection.
    int connect(GDSClient& client, const std::string& wire)
    {
        client.options().port = port;
        client.connect();
        int server = accept(fd, nullptr, nullptr);
        EXPECT_EQ(static_cast<ssize_t>(wire.size()), send(server, wire.data(), wire.size(), MSG_NOSIGNAL));
        return server;
    }
};

// Everything the server end has received so far.
std::string received(int fd)
{
    std::string out;
    char buf[4096];
    for (ssize_t n; (n = recv(fd, buf, sizeof buf, MSG_DONTWAIT)) > 0;) {
        out.append(buf, static_cast<size_t>(n));
    }
    return out;
}

std::string packet(const std::string& data, int last, const std::string& magic = "BEEF", int byte3 = 0,
                   int lengthField = -1)
{
    int len = lengthField >= 0 ? lengthField : static_cast<int>(data.size()) + 2;
    return std::string{static_cast<char>(len >> 8), static_cast<char>(len & 0xFF), static_cast<char>(last),
                       static_cast<char>(byte3)} +
           magic + data;
}

template <typename F>
int errorKind(F call)
{
    try {
        call();
    } catch (const GDSClientError& e) {
        return e.kind();
    }
    return -1;
}
}  // namespace

TEST(GDSClientFrame, ExactBytesAndJsonEscaping)
{
    const std::pair<std::string, std::string> frames[] = {
        {GDSClient::frameLegacy("get=sshPort", 0x0100007F), "\x00\x00\x00\x0f\x01\x00\x00\x7f"s + "BEEFget=sshPort"},
        {GDSClient::frameLegacy("", 0), "\x00\x00\x00\x04\x00\x00\x00\x00"s + "BEEF"},
        {GDSClient::frameNxtGen("get=", 0x7F, "admin", "web"),
         "\x00\x00\x00\x56"s +
             R"({"Magic":"BEEF","Privilege":127,"Command":"get=","Username":"admin","Interface":"web"})"},
        // The top byte set: the word goes out as its signed 32-bit value.
        {GDSClient::frameNxtGen("", 0xFF00007F, "", "", "BEEFCAKE"),
         "\x00\x00\x00\x54"s +
             R"({"Magic":"BEEFCAKE","Privilege":-16777089,"Command":"","Username":"","Interface":""})"},
    };
    for (const auto& [frame, expected] : frames) {
        EXPECT_EQ(expected, frame);
    }
    const std::pair<std::string, std::string> escapes[] = {
        {"a\nb\rc\td\be\ff", R"("a\nb\rc\td\be\ff")"},
        {"\x01\x1f\x00z"s, R"("\u0001\u001f\u0000z")"},
        {"\x7f\xc3\xa9/</x>", "\"\x7f\xc3\xa9/</x>\""},  // DEL, UTF-8 and slashes pass as they are
    };
    for (const auto& [in, out] : escapes) {
        EXPECT_EQ(out, GDSClient::jsonString(in)) << in;
    }
    std::string f = GDSClient::frameNxtGen("set=x(\"1\\\")", 1, "o'\"neil\n", "if\t1");
    EXPECT_NE(std::string::npos, f.find(R"j("Command":"set=x(\"1\\\")")j"));
    EXPECT_NE(std::string::npos, f.find(R"("Username":"o'\"neil\n","Interface":"if\t1"})"));
}

TEST(GDSClientReply, ReassemblyHeaderChecksAndEndRules)
{
    using End = GDSClient::ReplyEnd;
    using Seen = GDSReplyEnd;
    const std::string k1024(1024, 'a');
    const struct {
        const char* name;
        std::string wire, text;              // text: on success
        std::vector<uint16_t> lengthFields;  // on success
        int error;                           // -1: success, otherwise a GDSClientError::Kind
        End mode = End::kLastFlag;
        Seen end = Seen::kLastPacket;
    } cases[] = {
        {"one final packet", packet("<root/>\n", 1), "<root/>\n", {10}, -1},
        {"empty final packet", packet("", 1), "", {2}, -1},
        {"three packets", packet(k1024, 0) + packet("", 0) + packet("b", 1), k1024 + "b", {1026, 2, 3}, -1},
        {"bad magic", packet("x", 1, "BEEX"), "", {}, GDSClientError::kProtocol},
        {"length field 1", packet("", 1, "BEEF", 0, 1), "", {}, GDSClientError::kProtocol},
        {"byte 3 not 0", packet("x", 1, "BEEF", 7), "", {}, GDSClientError::kProtocol},
        {"flag 2", packet("x", 2), "", {}, GDSClientError::kProtocol},
        {"bad second packet", packet("a", 0) + packet("b", 1, "FEEB"), "", {}, GDSClientError::kProtocol},
        {"EOF in header", packet("abc", 1).substr(0, 5), "", {}, GDSClientError::kClosed},
        {"EOF in data", packet("0123456789", 1).substr(0, 11), "", {}, GDSClientError::kClosed},
        {"EOF before last packet", packet("a", 0), "", {}, GDSClientError::kClosed},
        {"EOF at once", "", "", {}, GDSClientError::kClosed},
        {"flag only: silence times out", packet("ab", 0), "", {}, GDSClientError::kTimeout},
        {"idle after packets", packet("ab", 0) + packet("cd", 0), "abcd", {4, 4}, -1, End::kIdle, Seen::kIdle},
        {"idle with no data", "", "", {}, -1, End::kIdle, Seen::kIdle},
        {"idle mode ends at the flag", packet("x", 1), "x", {3}, -1, End::kIdle},
        {"peer close after packets", packet("ab", 0), "ab", {4}, -1, End::kPeerClose, Seen::kPeerClosed},
        {"peer close in a packet", packet("ab", 0).substr(0, 9), "", {}, GDSClientError::kClosed, End::kPeerClose},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Listener server;
        GDSClient client;
        client.options().replyEnd = c.mode;
        client.options().idleMs = 100;
        client.options().replyTimeoutMs = 300;
        int fd = server.connect(client, c.wire);
        // The server closes when the case is about its closing, else stays silent.
        const bool closes = c.error == GDSClientError::kClosed || c.mode == End::kPeerClose;
        if (closes) {
            ::close(fd);
        }
        GDSReply reply;
        EXPECT_EQ(c.error, errorKind([&] { reply = client.readReply(); }));
        EXPECT_TRUE(c.error == -1 || !client.isOpen());  // a failure closes the connection
        EXPECT_EQ(c.text, reply.text);
        EXPECT_EQ(c.end, reply.end);
        ASSERT_EQ(c.lengthFields.size(), reply.packets.size());
        for (size_t i = 0; i < reply.packets.size(); ++i) {
            EXPECT_EQ(c.lengthFields[i], reply.packets[i].lengthField);
            EXPECT_EQ(c.end == Seen::kLastPacket && i + 1 == reply.packets.size(), reply.packets[i].last == 1);
            EXPECT_EQ("BEEF", reply.packets[i].magic);
        }
        if (!closes) {
            ::close(fd);
        }
    }
}

TEST(GDSClientRequest, SendsFramesAndKeepsBufferedRepliesApart)
{
    for (GDSClient::Layout layout : {GDSClient::Layout::kLegacy, GDSClient::Layout::kNxtGen}) {
        GDSClient::Options o;
        o.layout = layout;
        o.privileges = 0x12345;
        o.rawReply = 2;
        o.user = "admin";
        o.interface = "web";
        GDSClient client(o);
        Listener server;
        // All three replies are waiting at once: none may take another's bytes.
        int fd = server.connect(client, packet("one", 1) + packet("tw", 0) + packet("o", 1) + packet("three", 1));
        EXPECT_EQ("one", client.request("get=a").text);
        EXPECT_EQ("two", client.request("get=b,c").text);
        EXPECT_EQ("three", client.readReply().text);
        EXPECT_EQ(client.frame("get=a") + client.frame("get=b,c"), received(fd));
        ::close(fd);
    }
}

TEST(GDSClientRequest, FrameLengthLimitAndConnectionErrors)
{
    const std::string longest(GDSClient::kMaxFrameLength - 4, 'x');
    GDSClient client;
    // Refused before anything is sent, so even without a connection.
    EXPECT_EQ(GDSClientError::kRequest, errorKind([&] { client.request(longest + "x"); }));
    Listener server;
    int fd = server.connect(client, packet("ok", 1));
    EXPECT_EQ("ok", client.request(longest).text);
    EXPECT_EQ(12 + longest.size(), received(fd).size());
    ::close(fd);
    client.options().layout = GDSClient::Layout::kNxtGen;
    EXPECT_EQ(GDSClientError::kRequest, errorKind([&] { client.request(longest); }));

    Listener notListening(false);
    client.options().port = notListening.port;
    EXPECT_EQ(GDSClientError::kConnect, errorKind([&] { client.connect(); }));
    EXPECT_EQ(GDSClientError::kIo, errorKind([&] { client.sendRaw("x"); }));
}
