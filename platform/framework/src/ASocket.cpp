#include "ASocket.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <ctime>

ASocket::ASocket(int fd, const sockaddr_in& peer) : m_fd(fd), m_peer(peer), m_log("ASocket") {}

ASocket::ASocket(const ASocket& other)
    : m_fd(other.m_fd),
      m_peer(other.m_peer),
      m_log(other.m_log),
      m_readDeadline(other.m_readDeadline),
      m_peerClosed(other.m_peerClosed)
{
}

namespace {
long long monotonicMs()
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}
}  // namespace

void ASocket::setReadDeadline(int ms)
{
    m_readDeadline = ms > 0 ? monotonicMs() + ms : 0;
}

ASocket::~ASocket() = default;

int ASocket::write(const unsigned char* data, int length)
{
    if (m_fd < 0 || length < 0 || (data == nullptr && length > 0)) {
        return -1;
    }
    int done = 0;
    while (done < length) {
        ssize_t n = ::send(m_fd, data + done, static_cast<size_t>(length - done), MSG_NOSIGNAL);
        if (n < 0 && errno == ENOTSOCK) {
            n = ::write(m_fd, data + done, static_cast<size_t>(length - done));
        }
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                errno = ETIMEDOUT;  // the send time-out passed without progress
            }
            return -1;
        }
        done += static_cast<int>(n);
    }
    return length;
}

int ASocket::writeInt(int value)
{
    unsigned int v = static_cast<unsigned int>(value);
    unsigned char b[4] = {static_cast<unsigned char>(v >> 24), static_cast<unsigned char>(v >> 16),
                          static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v)};
    return write(b, 4) == 4 ? 4 : -1;
}

int ASocket::writeShort(int value)
{
    unsigned char b[2] = {static_cast<unsigned char>((value >> 8) & 0xff), static_cast<unsigned char>(value & 0xff)};
    return write(b, 2) == 2 ? 2 : -1;
}

int ASocket::writeByte(unsigned char value)
{
    return write(&value, 1);
}

int ASocket::writeString(const unsigned char* text)
{
    if (text == nullptr) {
        return 0;
    }
    return write(text, static_cast<int>(strlen(reinterpret_cast<const char*>(text))));
}

void ASocket::flush() {}

void ASocket::close()
{
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
}

int ASocket::read(unsigned char* data, int offset, int length)
{
    if (m_fd < 0 || data == nullptr || offset < 0 || length < 0) {
        return -1;
    }
    for (;;) {
        // With a deadline, the bytes already there are taken without
        // waiting; only an empty socket costs a poll.
        ssize_t n = ::recv(m_fd, data + offset, static_cast<size_t>(length), m_readDeadline != 0 ? MSG_DONTWAIT : 0);
        if (n < 0 && errno == ENOTSOCK) {
            n = ::read(m_fd, data + offset, static_cast<size_t>(length));
        }
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 && m_readDeadline != 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            long long left = m_readDeadline - monotonicMs();
            if (left <= 0) {
                errno = ETIMEDOUT;
                return -1;
            }
            struct pollfd p = {m_fd, POLLIN, 0};
            int rc = ::poll(&p, 1, left > 60000 ? 60000 : static_cast<int>(left));
            if (rc < 0 && errno != EINTR) {
                return -1;
            }
            continue;
        }
        return n < 0 ? -1 : static_cast<int>(n);
    }
}

int ASocket::readFully(unsigned char* data, int offset, int length)
{
    if (data == nullptr || offset < 0 || length < 0) {
        return -1;
    }
    int done = 0;
    while (done < length) {
        int n = read(data, offset + done, length - done);
        if (n <= 0) {
            if (n == 0 && done == 0) {
                m_peerClosed = true;  // a clean close between values
                errno = 0;
            } else if (n == 0) {
                errno = ECONNRESET;  // the stream ended inside a value
            }
            return -1;
        }
        done += n;
    }
    return 0;
}

int ASocket::readInt(int& value)
{
    unsigned char b[4];
    if (readFully(b, 0, 4) != 0) {
        return -1;
    }
    value = static_cast<int>((static_cast<unsigned int>(b[0]) << 24) | (static_cast<unsigned int>(b[1]) << 16) |
                             (static_cast<unsigned int>(b[2]) << 8) | b[3]);
    return 0;
}

int ASocket::readShort(short& value)
{
    unsigned char b[2];
    if (readFully(b, 0, 2) != 0) {
        return -1;
    }
    value = static_cast<short>((b[0] << 8) | b[1]);
    return 0;
}

int ASocket::readByte(unsigned char& value)
{
    return readFully(&value, 0, 1);
}
