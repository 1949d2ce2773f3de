// Reply packets and the XML element writer, read back from the other end of
// a socket pair.
#include "GUIDataSocket.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <random>
#include <sys/socket.h>
#include <unistd.h>

namespace {

struct Packet {
    int lengthField;
    int last;
    int zero;
    std::string magic;
    std::string data;
};

class SocketPair : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fds));
        // Room for large replies without a reader thread.
        int size = 4 << 20;
        setsockopt(fds[0], SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
        setsockopt(fds[1], SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
        sockaddr_in peer{};
        sock = new GUIDataSocket(fds[0], peer);
    }
    void TearDown() override
    {
        delete sock;
        close(fds[0]);
        close(fds[1]);
    }

    // Every packet waiting on the reading end.
    std::vector<Packet> packets()
    {
        std::string bytes;
        fcntl(fds[1], F_SETFL, O_NONBLOCK);
        char buf[65536];
        for (ssize_t n; (n = read(fds[1], buf, sizeof buf)) > 0;) {
            bytes.append(buf, static_cast<size_t>(n));
        }
        std::vector<Packet> out;
        size_t at = 0;
        while (at + 8 <= bytes.size()) {
            Packet p;
            p.lengthField = (static_cast<unsigned char>(bytes[at]) << 8) | static_cast<unsigned char>(bytes[at + 1]);
            p.last = bytes[at + 2];
            p.zero = bytes[at + 3];
            p.magic = bytes.substr(at + 4, 4);
            p.data = bytes.substr(at + 8, static_cast<size_t>(p.lengthField - 2));
            at += 8 + static_cast<size_t>(p.lengthField - 2);
            out.push_back(p);
        }
        EXPECT_EQ(at, bytes.size()) << "trailing bytes";
        return out;
    }

    std::string joined()
    {
        std::string all;
        for (const Packet& p : packets()) {
            all += p.data;
        }
        return all;
    }

    int fds[2];
    GUIDataSocket* sock = nullptr;
};

TEST_F(SocketPair, PacketBoundaries)
{
    struct Case {
        int replyBytes;
        std::vector<std::pair<int, int>> packets;  // data length, last flag
    };
    std::vector<Case> cases = {
        {0, {{0, 1}}},
        {10, {{10, 1}}},
        {1023, {{1023, 1}}},
        {1024, {{1024, 0}, {0, 1}}},
        {1500, {{1024, 0}, {476, 1}}},
        {2048, {{1024, 0}, {1024, 0}, {0, 1}}},
    };
    for (const Case& c : cases) {
        sock->writeString(std::string(static_cast<size_t>(c.replyBytes), 'x').c_str());
        sock->sendResponsePacket(true);
        std::vector<Packet> got = packets();
        ASSERT_EQ(c.packets.size(), got.size()) << c.replyBytes;
        for (size_t i = 0; i < got.size(); ++i) {
            EXPECT_EQ(c.packets[i].first + 2, got[i].lengthField) << c.replyBytes << " packet " << i;
            EXPECT_EQ(c.packets[i].second, got[i].last) << c.replyBytes << " packet " << i;
            EXPECT_EQ(0, got[i].zero);
            EXPECT_EQ("BEEF", got[i].magic);
        }
    }
}

TEST_F(SocketPair, FlushSendsRestAsNonFinalAndNothingWhenEmpty)
{
    sock->flush();
    EXPECT_TRUE(packets().empty());
    sock->writeString("abc");
    sock->flush();
    std::vector<Packet> got = packets();
    ASSERT_EQ(1u, got.size());
    EXPECT_EQ(0, got[0].last);
    EXPECT_EQ("abc", got[0].data);
}

TEST_F(SocketPair, LargeBlocksSplitAt32765)
{
    struct Case {
        int length;
        std::vector<int> sizes;
    };
    for (const Case& c : std::vector<Case>{{32765, {32765, 0}}, {32766, {32765, 1}}, {70000, {32765, 32765, 4470}}}) {
        std::string data(static_cast<size_t>(c.length), 'y');
        sock->writeWithHeader(c.length, true, data.data());
        std::vector<Packet> got = packets();
        ASSERT_EQ(c.sizes.size(), got.size()) << c.length;
        for (size_t i = 0; i < got.size(); ++i) {
            EXPECT_EQ(c.sizes[i], static_cast<int>(got[i].data.size()));
            EXPECT_EQ(i + 1 == got.size() ? 1 : 0, got[i].last);
        }
    }
}

TEST_F(SocketPair, Elements)
{
    struct Case {
        std::function<void(GUIDataSocket&)> write;
        std::string expected;
    };
    short s = -12;
    int i = -70000;
    std::vector<Case> cases = {
        {[](GUIDataSocket& g) { g.writeSimpleElement("name", "a<b & 'c'"); },
         "<name>a&lt;b &amp; &apos;c&apos;</name>\n"},
        {[](GUIDataSocket& g) { g.writeSimpleElement("q", "\"x\">"); }, "<q>&quot;x&quot;&gt;</q>\n"},
        {[](GUIDataSocket& g) { g.writeSimpleElement("name", static_cast<const char*>(nullptr)); },
         "<name></name>\n"},
        {[](GUIDataSocket& g) { g.writeSimpleElement("n", -5); }, "<n>-5</n>\n"},
        {[](GUIDataSocket& g) { g.writeSimpleElement("n", 4294967295u); }, "<n>4294967295</n>\n"},
        {[](GUIDataSocket& g) { g.writeSimpleElement("n", 18446744073709551615ul); }, "<n>18446744073709551615</n>\n"},
        {[](GUIDataSocket& g) { g.writeSimpleElement("f", 2.5f); }, "<f>2.500000</f>\n"},
        {[](GUIDataSocket& g) { g.writeSimpleElement("f", 3.0e38f); },
         "<f>300000000549775575777803994281145270272.000000</f>\n"},
        {[&](GUIDataSocket& g) { g.writeShortElement("s", reinterpret_cast<unsigned char*>(&s)); }, "<s>-12</s>\n"},
        {[&](GUIDataSocket& g) { g.writeIntElement("i", reinterpret_cast<unsigned char*>(&i)); }, "<i>-70000</i>\n"},
    };
    for (const Case& c : cases) {
        c.write(*sock);
        sock->sendResponsePacket(true);
        EXPECT_EQ(c.expected, joined());
    }
}

TEST_F(SocketPair, LongEscapedTextIsSentWhole)
{
    std::string quotes(1000, '"');
    std::string expected = "<v>";
    for (int k = 0; k < 1000; ++k) {
        expected += "&quot;";
    }
    expected += "</v>\n";
    testing::internal::CaptureStdout();
    sock->writeSimpleElement("v", quotes.c_str());
    sock->sendResponsePacket(true);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(expected, joined());
    // Element names longer than the warning threshold still go out whole.
    std::string longName(5000, 'n');
    testing::internal::CaptureStdout();
    sock->writeSimpleElement(longName.c_str(), 7);
    sock->sendResponsePacket(true);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ("<" + longName + ">7</" + longName + ">\n", joined());
    EXPECT_NE(std::string::npos, out.find("WARNING: Request exceeds max internal buffer size 10040>8192\n"));
}

TEST_F(SocketPair, NonPrintableBytesBecomeBlanks)
{
    const char raw[] = {'a', 0x01, 'b', static_cast<char>(0x80), static_cast<char>(0xff), '\t', '\n', 0x7f, 'c', 0};
    testing::internal::CaptureStdout();
    sock->writeString(raw);
    sock->sendResponsePacket(true);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::string("a b  \t\n c"), joined());
    EXPECT_EQ(
        " Found non-printable character (1) in XML doc.\n Found non-printable character (128) in XML doc.\n"
        " Found non-printable character (255) in XML doc.\n Found non-printable character (127) in XML doc.\n",
        out);
    EXPECT_EQ('\x01', raw[1]) << "the caller's bytes are left alone";
}

// Any sequence of writes, of any sizes, reassembles to the same text.
TEST_F(SocketPair, AnyWriteSequenceReassembles)
{
    std::mt19937 rng(12345);
    for (int round = 0; round < 50; ++round) {
        std::string expected;
        int writes = static_cast<int>(rng() % 40);
        for (int w = 0; w < writes; ++w) {
            std::string piece(rng() % 3000, 'a' + static_cast<char>(rng() % 26));
            if (rng() % 3 == 0) {
                sock->writeSimpleElement("e", piece.c_str());
                expected += "<e>" + piece + "</e>\n";
            } else {
                sock->writeString(piece.c_str());
                expected += piece;
            }
            if (rng() % 5 == 0) {
                sock->flush();
            }
        }
        sock->sendResponsePacket(true);
        std::vector<Packet> got = packets();
        std::string all;
        for (size_t k = 0; k < got.size(); ++k) {
            all += got[k].data;
            EXPECT_EQ(k + 1 == got.size() ? 1 : 0, got[k].last);
            EXPECT_LE(got[k].data.size(), 1024u);
        }
        ASSERT_EQ(expected, all) << "round " << round;
    }
}

TEST_F(SocketPair, WritingToVanishedPeerDoesNotKill)
{
    close(fds[1]);
    fds[1] = open("/dev/null", O_RDONLY);
    sock->writeString(std::string(5000, 'z').c_str());
    sock->sendResponsePacket(true);  // EPIPE, never SIGPIPE
    SUCCEED();
}

}  // namespace
