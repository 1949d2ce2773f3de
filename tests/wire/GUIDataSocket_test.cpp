// Reply packets and the XML element writer, read back from the other end of
// a socket pair.
#include "GUIDataSocket.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <random>
#include <regex>

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
    int fds[2];
    std::unique_ptr<GUIDataSocket> sock;
};

TEST_F(SocketPair, PacketBoundaries)
{
    // reply bytes (-1: a flush of "abc"; 70000: one large block) -> "length/last" of each packet
    const std::pair<int, std::string> cases[] = {
        {0, "2/1 "},           {1023, "1025/1 "},
        {1024, "1026/0 2/1 "}, {1500, "1026/0 478/1 "},
        {-1, "5/0 "},          {70000, "32767/0 32767/0 4472/1 "},
    };
    for (const auto& [bytes, expected] : cases) {
        std::string text(static_cast<size_t>(std::max(bytes, 0)), 'x');
        if (bytes < 0) {
            sock->flush();  // nothing buffered: nothing sent
            sock->writeString("abc");
            sock->flush();
        } else if (bytes == 70000) {
            sock->writeWithHeader(bytes, true, text.data());
        } else {
            sock->writeString(text.c_str());
            sock->sendResponsePacket(true);
        }
        std::string got;
        for (const Packet& p : packets()) {
            got += std::to_string(p.length) + "/" + std::to_string(p.last) + " ";
        }
        EXPECT_EQ(expected, got) << bytes;
    }
}

TEST_F(SocketPair, ElementsAreEscapedAndSanitized)
{
    const char raw[] = {'a', 0x01, static_cast<char>(0x80), static_cast<char>(0xff), '\t', '\n', 0x7f, 'c', 0};
    short s = -12;
    int i = -70000;
    std::string longName(5000, 'n'), all;
    testing::internal::CaptureStdout();
    sock->writeSimpleElement("name", "a<b & 'c'\">");
    sock->writeSimpleElement("null", static_cast<const char*>(nullptr));
    sock->writeSimpleElement("u", 4294967295u);
    sock->writeShortElement("s", reinterpret_cast<unsigned char*>(&s));
    sock->writeIntElement("i", reinterpret_cast<unsigned char*>(&i));
    sock->writeSimpleElement("v", std::string(1000, '"').c_str());  // escaped through an allocated area
    sock->writeSimpleElement(longName.c_str(), 7);                  // above the internal buffer
    sock->writeString(raw);                                         // non-printable bytes become blanks
    sock->sendResponsePacket(true);
    testing::internal::GetCapturedStdout();
    for (const Packet& p : packets()) {
        all += p.data;
    }
    EXPECT_EQ(
        "<name>a&lt;b &amp; &apos;c&apos;&quot;&gt;</name>\n<null></null>\n<u>4294967295</u>\n"
        "<s>-12</s>\n<i>-70000</i>\n<v>" +
            std::regex_replace(std::string(1000, '"'), std::regex("\""), "&quot;") + "</v>\n<" + longName + ">7</" +
            longName + ">\na   \t\n c",
        all);
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
