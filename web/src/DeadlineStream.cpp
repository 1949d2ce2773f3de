#include "DeadlineStream.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

bool waitFd(int fd, short events, int timeoutMs)
{
    pollfd p{fd, events, 0};
    for (;;) {
        int r = poll(&p, 1, timeoutMs);
        if (r < 0 && errno == EINTR) {
            continue;
        }
        return r > 0 && (p.revents & (events | POLLHUP | POLLERR)) != 0;
    }
}

void addressOf(const sockaddr_storage& a, std::string& ip, int& port)
{
    char buf[INET6_ADDRSTRLEN] = "";
    if (a.ss_family == AF_INET) {
        const auto* in = reinterpret_cast<const sockaddr_in*>(&a);
        inet_ntop(AF_INET, &in->sin_addr, buf, sizeof buf);
        port = ntohs(in->sin_port);
    } else if (a.ss_family == AF_INET6) {
        const auto* in6 = reinterpret_cast<const sockaddr_in6*>(&a);
        inet_ntop(AF_INET6, &in6->sin6_addr, buf, sizeof buf);
        port = ntohs(in6->sin6_port);
    }
    ip = buf;
}

}  // namespace

int DeadlineStream::msLeft(Clock::time_point until)
{
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

bool DeadlineStream::receive(int timeoutMs)
{
    if (m_pos > 0 && m_pos == m_buffer.size()) {
        m_buffer.clear();
        m_pos = 0;
    }
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(timeoutMs);
    char chunk[4096];
    for (;;) {
        // Try first: the bytes are usually there already, and a poll costs a call.
        ssize_t n = recv(m_fd, chunk, sizeof chunk, MSG_DONTWAIT);
        if (n > 0) {
            m_buffer.append(chunk, static_cast<size_t>(n));
            return true;
        }
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
            return false;
        }
        int left = msLeft(until);
        if (left == 0 || !waitFd(m_fd, POLLIN, left)) {
            return false;
        }
    }
}

bool DeadlineStream::fill()
{
    int left = msLeft(m_readUntil);
    if (left == 0 || !receive(left)) {
        m_readFailed = true;
        return false;
    }
    return true;
}

bool DeadlineStream::waitForRequest(std::chrono::milliseconds idle)
{
    return m_pos < m_buffer.size() || receive(static_cast<int>(idle.count()));
}

DeadlineStream::Head DeadlineStream::readHead(size_t lineLimit, size_t headerLimit)
{
    m_readUntil = Clock::now() + m_deadline;
    m_writing = false;
    m_readFailed = false;
    m_buffer.erase(0, m_pos);  // offsets below are from the head's first byte
    m_pos = 0;
    size_t scanned = 0;
    size_t lineEnd = std::string::npos;
    for (;;) {
        if (lineEnd == std::string::npos) {
            lineEnd = m_buffer.find('\n', m_pos);
            if (lineEnd == std::string::npos && m_buffer.size() - m_pos > lineLimit) {
                return Head::kLineTooLong;
            }
            if (lineEnd != std::string::npos && lineEnd - m_pos > lineLimit) {
                return Head::kLineTooLong;
            }
        }
        if (lineEnd != std::string::npos) {
            // The header block ends at an empty line ("\n\n" or "\n\r\n").
            size_t from = scanned > lineEnd + 2 ? scanned - 2 : lineEnd;
            for (size_t i = from; i < m_buffer.size(); ++i) {
                if (m_buffer[i] != '\n') {
                    continue;
                }
                if ((i + 1 < m_buffer.size() && m_buffer[i + 1] == '\n') ||
                    (i + 2 < m_buffer.size() && m_buffer[i + 1] == '\r' && m_buffer[i + 2] == '\n')) {
                    return i - lineEnd > headerLimit ? Head::kHeadersTooLong : Head::kComplete;
                }
            }
            scanned = m_buffer.size();
            if (m_buffer.size() - lineEnd > headerLimit + 2) {
                return Head::kHeadersTooLong;
            }
        }
        if (!fill()) {
            return Head::kFailed;
        }
    }
}

void DeadlineStream::writeAndClose(int status, const char* reason, const std::string& body)
{
    std::string text =
        "HTTP/1.1 " + std::to_string(status) + " " + reason +
        "\r\nContent-Type: text/plain\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) +
        "\r\n\r\n" + body;
    if (write(text.data(), text.size()) < 0) {
        return;
    }
    // A lingering close: what the client still sends is read and dropped for
    // a moment, since closing with it unread would reset the connection and
    // the client could lose the answer.
    shutdown(m_fd, SHUT_WR);
    const Clock::time_point until = Clock::now() + std::chrono::milliseconds(1000);
    for (size_t dropped = 0; dropped < (1u << 20) && receive(msLeft(until));) {
        dropped += m_buffer.size() - m_pos;
        m_pos = m_buffer.size();
    }
}

bool DeadlineStream::is_readable() const
{
    return m_pos < m_buffer.size() || waitFd(m_fd, POLLIN, msLeft(m_readUntil));
}

bool DeadlineStream::is_writable() const
{
    // write() waits for room itself, within the deadline.
    return !m_writing || Clock::now() < m_writeUntil;
}

ssize_t DeadlineStream::read(char* ptr, size_t size)
{
    if (m_pos >= m_buffer.size() && !fill()) {
        return -1;
    }
    size_t n = std::min(size, m_buffer.size() - m_pos);
    memcpy(ptr, m_buffer.data() + m_pos, n);
    m_pos += n;
    return static_cast<ssize_t>(n);
}

ssize_t DeadlineStream::write(const char* ptr, size_t size)
{
    if (!m_writing) {
        m_writing = true;
        m_writeUntil = Clock::now() + m_deadline;
    }
    size_t done = 0;
    while (done < size) {
        ssize_t n = send(m_fd, ptr + done, size - done, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            done += static_cast<size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            int left = msLeft(m_writeUntil);
            if (left > 0 && waitFd(m_fd, POLLOUT, left)) {
                continue;
            }
        }
        return -1;
    }
    return static_cast<ssize_t>(done);
}

void DeadlineStream::get_remote_ip_and_port(std::string& ip, int& port) const
{
    sockaddr_storage a{};
    socklen_t len = sizeof a;
    if (getpeername(m_fd, reinterpret_cast<sockaddr*>(&a), &len) == 0) {
        addressOf(a, ip, port);
    }
}

void DeadlineStream::get_local_ip_and_port(std::string& ip, int& port) const
{
    sockaddr_storage a{};
    socklen_t len = sizeof a;
    if (getsockname(m_fd, reinterpret_cast<sockaddr*>(&a), &len) == 0) {
        addressOf(a, ip, port);
    }
}
