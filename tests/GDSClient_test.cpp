#include "GDSClient.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <thread>

namespace {

// One step of the fake server's script for its single connection.
struct Step {
    enum Kind { kRecv, kSend, kHold } kind;
    std::string bytes;  // kSend
    size_t count = 0;   // kRecv: bytes to read
};
Step recvBytes(size_t n)
{
    return {Step::kRecv, "", n};
}
Step sendBytes(const std::string& b)
{
    return {Step::kSend, b, 0};
}
// Keeps the connection open until the client closes it (at most 3 s).
Step hold()
{
    return {Step::kHold, "", 0};
}

// A server on an ephemeral loopback port that accepts one connection, plays
// its script, then closes. Every wait is bounded so a broken client cannot
// hang the test.
class FakeServer {
public:
    explicit FakeServer(std::vector<Step> steps) : m_steps(std::move(steps))
    {
        m_listen = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(0, bind(m_listen, reinterpret_cast<sockaddr*>(&a), sizeof a));
        EXPECT_EQ(0, listen(m_listen, 1));
        socklen_t len = sizeof a;
        getsockname(m_listen, reinterpret_cast<sockaddr*>(&a), &len);
        m_port = ntohs(a.sin_port);
        m_thread = std::thread([this] { run(); });
    }
    ~FakeServer()
    {
        join();
        ::close(m_listen);
    }
    int port() const { return m_port; }
    // Waits for the script to end; then received() is complete.
    void join()
    {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }
    const std::string& received() const { return m_received; }

private:
    static bool readable(int fd)
    {
        pollfd p{fd, POLLIN, 0};
        return poll(&p, 1, 3000) == 1;
    }
    void run()
    {
        if (!readable(m_listen)) {
            return;
        }
        int fd = accept(m_listen, nullptr, nullptr);
        for (const Step& s : m_steps) {
            if (s.kind == Step::kSend) {
                ASSERT_EQ(static_cast<ssize_t>(s.bytes.size()), send(fd, s.bytes.data(), s.bytes.size(), MSG_NOSIGNAL));
                continue;
            }
            size_t want = s.kind == Step::kRecv ? s.count : SIZE_MAX;
            for (size_t got = 0; got < want;) {
                char buf[4096];
                ssize_t n = readable(fd) ? recv(fd, buf, std::min(sizeof buf, want - got), 0) : 0;
                if (n <= 0) {
                    break;
                }
                if (s.kind == Step::kRecv) {
                    m_received.append(buf, static_cast<size_t>(n));
                }
                got += static_cast<size_t>(n);
            }
        }
        ::close(fd);
    }

    std::vector<Step> m_steps;
    int m_listen = -1;
    int m_port = 0;
    std::thread m_thread;
    std::string m_received;
};

std::string packet(const std::string& data, int last, const std::string& magic = "BEEF", int byte3 = 0,
                   int lengthField = -1)
{
    int len = lengthField >= 0 ? lengthField : static_cast<int>(data.size()) + 2;
    std::string p;
    p.push_back(static_cast<char>(len >> 8));
    p.push_back(static_cast<char>(len & 0xFF));
    p.push_back(static_cast<char>(last));
    p.push_back(static_cast<char>(byte3));
    return p + magic + data;
}

GDSClient::Options fastOptions(int port)
{
    GDSClient::Options o;
    o.port = port;
    o.connectTimeoutMs = 2000;
    o.replyTimeoutMs = 2000;
    return o;
}

const std::string k1024(1024, 'a');

TEST(GDSClientFrame, ExactBytes)
{
    using namespace std::string_literals;
    struct Case {
        std::string frame, expected;
    } cases[] = {
        {GDSClient::frameLegacy("get=sshPort,sshTimeout", 0x0100007F),
         "\x00\x00\x00\x1a\x01\x00\x00\x7f"s
         "BEEFget=sshPort,sshTimeout"},
        {GDSClient::frameLegacy("", 0),
         "\x00\x00\x00\x04\x00\x00\x00\x00"s
         "BEEF"},
        {GDSClient::frameNxtGen("get=", 0x7F, "admin", "web"),
         "\x00\x00\x00\x56"s
         R"({"Magic":"BEEF","Privilege":127,"Command":"get=","Username":"admin","Interface":"web"})"},
        // The top byte set: the word goes out as its signed 32-bit value.
        {GDSClient::frameNxtGen("", 0xFF00007F, "", "", "BEEFCAKE"),
         "\x00\x00\x00\x54"s
         R"({"Magic":"BEEFCAKE","Privilege":-16777089,"Command":"","Username":"","Interface":""})"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.expected, c.frame);
    }
}

TEST(GDSClientFrame, JsonEscaping)
{
    struct Case {
        std::string in, out;
    } cases[] = {
        {"plain", R"("plain")"},
        {"say \"hi\"", R"("say \"hi\"")"},
        {"C:\\dir\\", R"("C:\\dir\\")"},
        {"a\nb\rc\td\be\ff", R"("a\nb\rc\td\be\ff")"},
        {std::string("\x01\x1f\x00z", 4), R"("\u0001\u001f\u0000z")"},
        {"\x7f\xc3\xa9/</x>", "\"\x7f\xc3\xa9/</x>\""},  // DEL, UTF-8 and slashes pass as they are
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.out, GDSClient::jsonString(c.in)) << c.in;
    }
    std::string f = GDSClient::frameNxtGen("set=x(\"1\\\")", 1, "o'\"neil\n", "if\t1");
    EXPECT_NE(std::string::npos, f.find(R"j("Command":"set=x(\"1\\\")")j"));
    EXPECT_NE(std::string::npos, f.find(R"("Username":"o'\"neil\n","Interface":"if\t1"})"));
}

TEST(GDSClientReply, Reassembly)
{
    struct Case {
        const char* name;
        std::string wire;
        std::string text;  // on success
        std::vector<int> lengthFields;
        int error;  // -1: success, otherwise a GDSClientError::Kind
    } cases[] = {
        {"one final packet", packet("<root/>\n", 1), "<root/>\n", {10}, -1},
        {"empty final packet", packet("", 1), "", {2}, -1},
        {"exactly 1024 bytes", packet(k1024, 0) + packet("", 1), k1024, {1026, 2}, -1},
        {"1500 bytes",
         packet(k1024, 0) + packet(std::string(476, 'b'), 1),
         k1024 + std::string(476, 'b'),
         {1026, 478},
         -1},
        {"three packets", packet("a", 0) + packet("bc", 0) + packet("d", 1), "abcd", {3, 4, 3}, -1},
        {"bad magic", packet("x", 1, "BEEX"), "", {}, GDSClientError::kProtocol},
        {"length field 0", packet("", 1, "BEEF", 0, 0), "", {}, GDSClientError::kProtocol},
        {"length field 1", packet("", 1, "BEEF", 0, 1), "", {}, GDSClientError::kProtocol},
        {"byte 3 not 0", packet("x", 1, "BEEF", 7), "", {}, GDSClientError::kProtocol},
        {"flag 2", packet("x", 2), "", {}, GDSClientError::kProtocol},
        {"bad second packet", packet("a", 0) + packet("b", 1, "FEEB"), "", {}, GDSClientError::kProtocol},
        {"EOF in header", packet("abc", 1).substr(0, 5), "", {}, GDSClientError::kClosed},
        {"EOF in data", packet("0123456789", 1).substr(0, 11), "", {}, GDSClientError::kClosed},
        {"EOF before last packet", packet("a", 0), "", {}, GDSClientError::kClosed},
        {"EOF at once", "", "", {}, GDSClientError::kClosed},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FakeServer server({sendBytes(c.wire)});
        GDSClient client(fastOptions(server.port()));
        client.connect();
        try {
            GDSReply reply = client.readReply();
            ASSERT_EQ(-1, c.error) << "no error raised";
            EXPECT_EQ(c.text, reply.text);
            EXPECT_EQ(GDSReplyEnd::kLastPacket, reply.end);
            ASSERT_EQ(c.lengthFields.size(), reply.packets.size());
            for (size_t i = 0; i < reply.packets.size(); ++i) {
                EXPECT_EQ(c.lengthFields[i], reply.packets[i].lengthField);
                EXPECT_EQ(i + 1 == reply.packets.size() ? 1 : 0, reply.packets[i].last);
                EXPECT_EQ("BEEF", reply.packets[i].magic);
            }
        } catch (const GDSClientError& e) {
            EXPECT_EQ(c.error, e.kind()) << e.what();
            EXPECT_FALSE(client.isOpen());
        }
    }
}

TEST(GDSClientReply, EndRules)
{
    using End = GDSClient::ReplyEnd;
    struct Case {
        const char* name;
        End mode;
        std::vector<Step> script;
        std::string text;
        GDSReplyEnd end;
        int error;
    } cases[] = {
        {"idle after unflagged packets",
         End::kIdle,
         {sendBytes(packet("ab", 0) + packet("cd", 0)), hold()},
         "abcd",
         GDSReplyEnd::kIdle,
         -1},
        {"idle with no data", End::kIdle, {hold()}, "", GDSReplyEnd::kIdle, -1},
        {"idle mode still ends at the flag",
         End::kIdle,
         {sendBytes(packet("x", 1)), hold()},
         "x",
         GDSReplyEnd::kLastPacket,
         -1},
        {"peer close after unflagged packets",
         End::kPeerClose,
         {sendBytes(packet("ab", 0))},
         "ab",
         GDSReplyEnd::kPeerClosed,
         -1},
        {"peer close in a packet",
         End::kPeerClose,
         {sendBytes(packet("ab", 0).substr(0, 9))},
         "",
         GDSReplyEnd::kPeerClosed,
         GDSClientError::kClosed},
        {"flag only: silence times out",
         End::kLastFlag,
         {sendBytes(packet("ab", 0)), hold()},
         "",
         GDSReplyEnd::kLastPacket,
         GDSClientError::kTimeout},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        FakeServer server(c.script);
        GDSClient::Options o = fastOptions(server.port());
        o.replyEnd = c.mode;
        o.idleMs = 100;
        o.replyTimeoutMs = c.mode == End::kLastFlag ? 150 : 2000;
        GDSClient client(o);
        client.connect();
        try {
            GDSReply reply = client.readReply();
            ASSERT_EQ(-1, c.error) << "no error raised";
            EXPECT_EQ(c.text, reply.text);
            EXPECT_EQ(c.end, reply.end);
        } catch (const GDSClientError& e) {
            EXPECT_EQ(c.error, e.kind()) << e.what();
        }
        client.close();
    }
}

TEST(GDSClientRequest, SendsFramesAndReadsRepliesInOrder)
{
    for (GDSClient::Layout layout : {GDSClient::Layout::kLegacy, GDSClient::Layout::kNxtGen}) {
        GDSClient::Options o = fastOptions(0);
        o.layout = layout;
        o.privileges = 0x12345;
        o.rawReply = 2;
        o.user = "admin";
        o.interface = "web";
        const std::string f1 = GDSClient(o).frame("get=a");
        const std::string f2 = GDSClient(o).frame("get=b,c");
        // Both replies of the second pair arrive in one segment with the next
        // reply's first packet: the buffered bytes must not leak between replies.
        FakeServer server({recvBytes(f1.size()), sendBytes(packet("one", 1)), recvBytes(f2.size()),
                           sendBytes(packet("tw", 0) + packet("o", 1) + packet("three", 1))});
        o.port = server.port();
        GDSClient client(o);
        client.connect();
        EXPECT_EQ("one", client.request("get=a").text);
        EXPECT_EQ("two", client.request("get=b,c").text);
        EXPECT_EQ("three", client.readReply().text);
        server.join();
        EXPECT_EQ(f1 + f2, server.received());
    }
}

TEST(GDSClientRequest, FrameLengthLimit)
{
    const std::string longest(GDSClient::kMaxFrameLength - 4, 'x');
    FakeServer server({recvBytes(12 + longest.size()), sendBytes(packet("ok", 1))});
    GDSClient client(fastOptions(server.port()));
    // Refused before anything is sent, so even without a connection.
    try {
        client.request(longest + "x");
        FAIL() << "no error raised";
    } catch (const GDSClientError& e) {
        EXPECT_EQ(GDSClientError::kRequest, e.kind());
    }
    client.connect();
    EXPECT_EQ("ok", client.request(longest).text);

    GDSClient::Options o;
    o.layout = GDSClient::Layout::kNxtGen;
    GDSClient nxt(o);
    EXPECT_THROW(nxt.request(longest), GDSClientError);
}

TEST(GDSClientConnect, RefusedAndNotConnected)
{
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(0, bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a));
    socklen_t len = sizeof a;
    getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    // Bound but not listening: connections are refused.
    GDSClient client(fastOptions(ntohs(a.sin_port)));
    try {
        client.connect();
        FAIL() << "connected";
    } catch (const GDSClientError& e) {
        EXPECT_EQ(GDSClientError::kConnect, e.kind()) << e.what();
    }
    ::close(fd);
    try {
        client.sendRaw("x");
        FAIL() << "sent without a connection";
    } catch (const GDSClientError& e) {
        EXPECT_EQ(GDSClientError::kIo, e.kind());
    }
}

}  // namespace
