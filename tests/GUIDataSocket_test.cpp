// Reply packets and the XML element writer, read back from the other end of
// a socket pair.
#include "GUIDataSocket.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <random>

namespace {

struct Packet {
    int length;  // the length field
    int last;
    std::string data;
};

class SocketPair : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fds));
        int size = 4 << 20;  // room for large replies without a reader thread
        setsockopt(fds[0], SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
        setsockopt(fds[1], SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
        sockaddr_in peer{};
        sock = std::make_unique<GUIDataSocket>(fds[0], peer);
        fcntl(fds[1], F_SETFL, O_NONBLOCK);
    }
    void TearDown() override
    {
        sock.reset();
        close(fds[0]);
        close(fds[1]);
    }

    // Every packet waiting on the reading end; checks the fixed header bytes.
    std::vector<Packet> packets()
    {
        std::string b;
        char buf[65536];
        for (ssize_t n; (n = read(fds[1], buf, sizeof buf)) > 0;) {
            b.append(buf, static_cast<size_t>(n));
        }
        std::vector<Packet> out;
        size_t at = 0;
        while (at + 8 <= b.size()) {
            int length = (static_cast<unsigned char>(b[at]) << 8) | static_cast<unsigned char>(b[at + 1]);
            EXPECT_EQ(0, b[at + 3]);
            EXPECT_EQ("BEEF", b.substr(at + 4, 4));
            out.push_back({length, b[at + 2], b.substr(at + 8, static_cast<size_t>(length - 2))});
            at += 8 + static_cast<size_t>(length - 2);
        }
        EXPECT_EQ(at, b.size()) << "trailing bytes";
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
    std::unique_ptr<GUIDataSocket> sock;
};

TEST_F(SocketPair, PacketBoundaries)
{
    // reply bytes (-1: a flush of what is buffered) -> data length and last flag of each packet
    std::vector<std::pair<int, std::vector<std::pair<int, int>>>> cases = {
        {0, {{0, 1}}},
        {10, {{10, 1}}},
        {1023, {{1023, 1}}},
        {1024, {{1024, 0}, {0, 1}}},
        {1500, {{1024, 0}, {476, 1}}},
        {2048, {{1024, 0}, {1024, 0}, {0, 1}}},
        {-1, {{3, 0}}},
    };
    for (const auto& c : cases) {
        if (c.first < 0) {
            sock->flush();  // nothing buffered: nothing sent
            sock->writeString("abc");
            sock->flush();
        } else {
            sock->writeString(std::string(static_cast<size_t>(c.first), 'x').c_str());
            sock->sendResponsePacket(true);
        }
        std::vector<Packet> got = packets();
        ASSERT_EQ(c.second.size(), got.size()) << c.first;
        for (size_t i = 0; i < got.size(); ++i) {
            EXPECT_EQ(c.second[i].first + 2, got[i].length) << c.first << " packet " << i;
            EXPECT_EQ(c.second[i].second, got[i].last) << c.first << " packet " << i;
        }
    }
    std::string big(70000, 'y');  // blocks of 32765 bytes
    sock->writeWithHeader(70000, true, big.data());
    std::vector<Packet> got = packets();
    ASSERT_EQ(3u, got.size());
    EXPECT_EQ(32767, got[0].length);
    EXPECT_EQ(4472, got[2].length);
    EXPECT_EQ(1, got[2].last);
    sock->writeWithHeader(32765, true, big.data());
    got = packets();
    ASSERT_EQ(2u, got.size());
    EXPECT_EQ(2, got[1].length);
}

TEST_F(SocketPair, Elements)
{
    short s = -12;
    int i = -70000;
    sock->writeSimpleElement("name", "a<b & 'c'");
    sock->writeSimpleElement("q", "\"x\">");
    sock->writeSimpleElement("null", static_cast<const char*>(nullptr));
    sock->writeSimpleElement("n", -5);
    sock->writeSimpleElement("u", 4294967295u);
    sock->writeSimpleElement("l", 18446744073709551615ul);
    sock->writeSimpleElement("f", 2.5f);
    sock->writeSimpleElement("g", 3.0e38f);
    sock->writeShortElement("s", reinterpret_cast<unsigned char*>(&s));
    sock->writeIntElement("i", reinterpret_cast<unsigned char*>(&i));
    sock->sendResponsePacket(true);
    EXPECT_EQ(
        "<name>a&lt;b &amp; &apos;c&apos;</name>\n<q>&quot;x&quot;&gt;</q>\n<null></null>\n<n>-5</n>\n"
        "<u>4294967295</u>\n<l>18446744073709551615</l>\n<f>2.500000</f>\n"
        "<g>300000000549775575777803994281145270272.000000</g>\n<s>-12</s>\n<i>-70000</i>\n",
        joined());
}

TEST_F(SocketPair, LongTextsAreSentWhole)
{
    std::string expected = "<v>";
    for (int k = 0; k < 1000; ++k) {
        expected += "&quot;";
    }
    std::string longName(5000, 'n');
    testing::internal::CaptureStdout();
    sock->writeSimpleElement("v", std::string(1000, '"').c_str());  // escaped through an allocated area
    sock->writeSimpleElement(longName.c_str(), 7);                  // above the warning threshold
    sock->sendResponsePacket(true);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(expected + "</v>\n<" + longName + ">7</" + longName + ">\n", joined());
    EXPECT_NE(std::string::npos, out.find("WARNING: Request exceeds max internal buffer size 10040>8192\n"));
}

TEST_F(SocketPair, NonPrintableBytesBecomeBlanks)
{
    const char raw[] = {'a', 0x01, 'b', static_cast<char>(0x80), static_cast<char>(0xff), '\t', '\n', 0x7f, 'c', 0};
    testing::internal::CaptureStdout();
    sock->writeString(raw);
    sock->sendResponsePacket(true);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ("a b  \t\n c", joined());
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
        for (int w = static_cast<int>(rng() % 40); w > 0; --w) {
            std::string piece(rng() % 3000, static_cast<char>('a' + rng() % 26));
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

}  // namespace
