#include "GDSClient.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

namespace {

const char kMagic[] = "BEEF";
const size_t kHeaderSize = 8;

void putInt32(std::string& out, uint32_t v)
{
    out.push_back(static_cast<char>(v >> 24));
    out.push_back(static_cast<char>(v >> 16));
    out.push_back(static_cast<char>(v >> 8));
    out.push_back(static_cast<char>(v));
}

std::string hexBytes(const char* p, size_t n)
{
    std::string out;
    char b[4];
    for (size_t i = 0; i < n; ++i) {
        snprintf(b, sizeof b, i == 0 ? "%02x" : " %02x", static_cast<unsigned char>(p[i]));
        out += b;
    }
    return out;
}

std::string errnoText(int err)
{
    return strerror(err);
}

using Clock = std::chrono::steady_clock;

}  // namespace

GDSClient::~GDSClient()
{
    close();
}

int GDSClient::effectivePort() const
{
    if (m_options.port > 0) {
        return m_options.port;
    }
    return m_options.layout == Layout::kNxtGen ? kNxtGenPort : kLegacyPort;
}

uint32_t GDSClient::privilegeWord() const
{
    return (static_cast<uint32_t>(m_options.rawReply) << 24) | (m_options.privileges & 0xFFFFFFu);
}

void GDSClient::close()
{
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
    m_rx.clear();
    m_rxPos = 0;
}

void GDSClient::fail(GDSClientError::Kind kind, const std::string& message)
{
    // After a failed read or write the position in the byte stream is
    // unknown, so the connection cannot be used for another request.
    close();
    throw GDSClientError(kind, message);
}

void GDSClient::connect()
{
    close();
    const std::string where = m_options.host + ":" + std::to_string(effectivePort());

    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    int rc = getaddrinfo(m_options.host.c_str(), std::to_string(effectivePort()).c_str(), &hints, &list);
    if (rc != 0) {
        throw GDSClientError(GDSClientError::kConnect,
                             "cannot resolve " + m_options.host + ": " + std::string(gai_strerror(rc)));
    }

    std::string lastError = "no address";
    for (addrinfo* ai = list; ai != nullptr; ai = ai->ai_next) {
        int fd = socket(ai->ai_family, ai->ai_socktype | SOCK_CLOEXEC, ai->ai_protocol);
        if (fd < 0) {
            lastError = errnoText(errno);
            continue;
        }
        int flags = fcntl(fd, F_GETFL, 0);
        fcntl(fd, F_SETFL, flags | O_NONBLOCK);
        int err = 0;
        if (::connect(fd, ai->ai_addr, ai->ai_addrlen) != 0) {
            err = errno;
            if (err == EINPROGRESS) {
                pollfd p{fd, POLLOUT, 0};
                int n;
                do {
                    n = poll(&p, 1, m_options.connectTimeoutMs);
                } while (n < 0 && errno == EINTR);
                if (n == 0) {
                    err = ETIMEDOUT;
                } else if (n < 0) {
                    err = errno;
                } else {
                    socklen_t len = sizeof err;
                    err = 0;
                    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len) != 0) {
                        err = errno;
                    }
                }
            }
        }
        if (err != 0) {
            lastError = err == ETIMEDOUT ? "no answer within " + std::to_string(m_options.connectTimeoutMs) + " ms"
                                         : errnoText(err);
            ::close(fd);
            continue;
        }
        fcntl(fd, F_SETFL, flags);
        int one = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        if (m_options.replyTimeoutMs > 0) {
            timeval tv{};
            tv.tv_sec = m_options.replyTimeoutMs / 1000;
            tv.tv_usec = (m_options.replyTimeoutMs % 1000) * 1000;
            setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
        }
        m_fd = fd;
        break;
    }
    freeaddrinfo(list);
    if (m_fd < 0) {
        throw GDSClientError(GDSClientError::kConnect, "cannot connect to " + where + ": " + lastError);
    }
}

std::string GDSClient::frameLegacy(const std::string& text, uint32_t privilegeWord)
{
    std::string out;
    out.reserve(12 + text.size());
    putInt32(out, static_cast<uint32_t>(4 + text.size()));
    putInt32(out, privilegeWord);
    out.append(kMagic, 4);
    out += text;
    return out;
}

std::string GDSClient::jsonString(const std::string& text)
{
    std::string out;
    out.reserve(text.size() + 2);
    out.push_back('"');
    for (char ch : text) {
        unsigned char c = static_cast<unsigned char>(ch);
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\b':
                out += "\\b";
                break;
            case '\f':
                out += "\\f";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char b[8];
                    snprintf(b, sizeof b, "\\u%04x", c);
                    out += b;
                } else {
                    out.push_back(ch);
                }
        }
    }
    out.push_back('"');
    return out;
}

std::string GDSClient::frameNxtGen(const std::string& text, uint32_t privilegeWord, const std::string& user,
                                   const std::string& interface, const std::string& magic)
{
    std::string json = "{\"Magic\":" + jsonString(magic) +
                       ",\"Privilege\":" + std::to_string(static_cast<int32_t>(privilegeWord)) +
                       ",\"Command\":" + jsonString(text) + ",\"Username\":" + jsonString(user) +
                       ",\"Interface\":" + jsonString(interface) + "}";
    std::string out;
    out.reserve(4 + json.size());
    putInt32(out, static_cast<uint32_t>(json.size()));
    out += json;
    return out;
}

std::string GDSClient::frame(const std::string& text) const
{
    if (m_options.layout == Layout::kNxtGen) {
        return frameNxtGen(text, privilegeWord(), m_options.user, m_options.interface, m_options.magic);
    }
    return frameLegacy(text, privilegeWord());
}

void GDSClient::sendRaw(const std::string& bytes)
{
    if (m_fd < 0) {
        throw GDSClientError(GDSClientError::kIo, "not connected");
    }
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = ::send(m_fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n < 0) {
            int err = errno;
            if (err == EINTR) {
                continue;
            }
            if (err == EAGAIN || err == EWOULDBLOCK) {
                fail(GDSClientError::kTimeout, "send stalled for " + std::to_string(m_options.replyTimeoutMs) + " ms");
            }
            fail(GDSClientError::kIo, "send failed: " + errnoText(err));
        }
        done += static_cast<size_t>(n);
    }
}

GDSClient::Wait GDSClient::waitFor(size_t n, int timeoutMs)
{
    if (m_fd < 0) {
        throw GDSClientError(GDSClientError::kIo, "not connected");
    }
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs < 0 ? 0 : timeoutMs);
    while (m_rx.size() - m_rxPos < n) {
        int waitMs = -1;
        if (timeoutMs >= 0) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            waitMs = left < 0 ? 0 : static_cast<int>(left);
        }
        pollfd p{m_fd, POLLIN, 0};
        int rc = poll(&p, 1, waitMs);
        if (rc < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail(GDSClientError::kIo, "poll failed: " + errnoText(errno));
        }
        if (rc == 0) {
            return Wait::kTimeout;
        }
        // Drop what has been consumed before appending, so the buffer stays small.
        if (m_rxPos > 0) {
            m_rx.erase(0, m_rxPos);
            m_rxPos = 0;
        }
        char buf[16384];
        ssize_t got = recv(m_fd, buf, sizeof buf, 0);
        if (got < 0) {
            if (errno == EINTR || errno == EAGAIN) {
                continue;
            }
            fail(GDSClientError::kIo, "receive failed: " + errnoText(errno));
        }
        if (got == 0) {
            return Wait::kEof;
        }
        m_rx.append(buf, static_cast<size_t>(got));
    }
    return Wait::kData;
}

GDSClient::Wait GDSClient::readPacketFrom(int firstByteTimeoutMs, GDSPacket& packet)
{
    Wait w = waitFor(1, firstByteTimeoutMs);
    if (w != Wait::kData) {
        return w;
    }
    const int timeoutMs = m_options.replyTimeoutMs;
    w = waitFor(kHeaderSize, timeoutMs);
    if (w != Wait::kData) {
        size_t have = m_rx.size() - m_rxPos;
        if (w == Wait::kEof) {
            fail(GDSClientError::kClosed,
                 "connection closed in a packet header (" + std::to_string(have) + " of 8 bytes)");
        }
        fail(GDSClientError::kTimeout, "packet header incomplete after " + std::to_string(timeoutMs) + " ms (" +
                                           std::to_string(have) + " of 8 bytes)");
    }

    const char* h = m_rx.data() + m_rxPos;
    packet.lengthField =
        static_cast<uint16_t>((static_cast<unsigned char>(h[0]) << 8) | static_cast<unsigned char>(h[1]));
    packet.last = static_cast<uint8_t>(h[2]);
    packet.byte3 = static_cast<uint8_t>(h[3]);
    packet.magic.assign(h + 4, 4);
    packet.data.clear();

    std::string problem;
    if (packet.lengthField < 2) {
        problem = "length field " + std::to_string(packet.lengthField) + " is below 2";
    } else if (packet.last > 1) {
        problem = "last-packet flag is " + std::to_string(packet.last) + ", not 0 or 1";
    } else if (packet.byte3 != 0) {
        problem = "byte 3 is " + std::to_string(packet.byte3) + ", not 0";
    } else if (packet.magic != kMagic) {
        problem = "magic is not \"BEEF\"";
    }
    if (!problem.empty()) {
        fail(GDSClientError::kProtocol, "bad reply packet header [" + hexBytes(h, kHeaderSize) + "]: " + problem);
    }

    const size_t dataSize = packet.lengthField - 2u;
    w = waitFor(kHeaderSize + dataSize, timeoutMs);
    if (w != Wait::kData) {
        std::string got = std::to_string(m_rx.size() - m_rxPos - kHeaderSize) + " of " + std::to_string(dataSize);
        if (w == Wait::kEof) {
            fail(GDSClientError::kClosed, "connection closed in the data of a packet (" + got + " bytes)");
        }
        fail(GDSClientError::kTimeout,
             "packet data incomplete after " + std::to_string(timeoutMs) + " ms (" + got + " bytes)");
    }
    packet.data.assign(m_rx, m_rxPos + kHeaderSize, dataSize);
    m_rxPos += kHeaderSize + dataSize;
    if (m_rxPos == m_rx.size()) {
        m_rx.clear();
        m_rxPos = 0;
    }
    return Wait::kData;
}

GDSPacket GDSClient::readPacket()
{
    GDSPacket packet;
    Wait w = readPacketFrom(m_options.replyTimeoutMs, packet);
    if (w == Wait::kEof) {
        fail(GDSClientError::kClosed, "connection closed by the server");
    }
    if (w == Wait::kTimeout) {
        fail(GDSClientError::kTimeout, "no reply within " + std::to_string(m_options.replyTimeoutMs) + " ms");
    }
    return packet;
}

GDSReply GDSClient::readReply()
{
    GDSReply reply;
    const ReplyEnd mode = m_options.replyEnd;
    const int firstByteTimeoutMs = mode == ReplyEnd::kIdle ? m_options.idleMs : m_options.replyTimeoutMs;
    for (;;) {
        GDSPacket packet;
        Wait w = readPacketFrom(firstByteTimeoutMs, packet);
        if (w == Wait::kTimeout) {
            if (mode == ReplyEnd::kIdle) {
                reply.end = GDSReplyEnd::kIdle;
                return reply;
            }
            fail(GDSClientError::kTimeout, "reply incomplete after " + std::to_string(m_options.replyTimeoutMs) +
                                               " ms without data (" + std::to_string(reply.packets.size()) +
                                               " packets, none flagged as last)");
        }
        if (w == Wait::kEof) {
            if (mode == ReplyEnd::kPeerClose) {
                reply.end = GDSReplyEnd::kPeerClosed;
                close();
                return reply;
            }
            fail(GDSClientError::kClosed, "connection closed before the end of the reply (" +
                                              std::to_string(reply.packets.size()) + " packets, none flagged as last)");
        }
        reply.text += packet.data;
        bool last = packet.last == 1;
        reply.packets.push_back(std::move(packet));
        if (last) {
            reply.end = GDSReplyEnd::kLastPacket;
            return reply;
        }
    }
}

GDSReply GDSClient::request(const std::string& text)
{
    std::string bytes = frame(text);
    // Both layouts start with L; the legacy L counts the magic, not the privilege word.
    size_t length = m_options.layout == Layout::kNxtGen ? bytes.size() - 4 : bytes.size() - 8;
    if (length > static_cast<size_t>(kMaxFrameLength)) {
        throw GDSClientError(GDSClientError::kRequest, "request frame length " + std::to_string(length) +
                                                           " exceeds the limit of " + std::to_string(kMaxFrameLength));
    }
    sendRaw(bytes);
    return readReply();
}
