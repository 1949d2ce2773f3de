// DeadlineStream: one HTTP connection's socket as the HTTP library reads and
// writes it, with the front door's limits: a request, once its first byte has
// arrived, must be complete within the request deadline, and an answer must
// be written within the same time (the handler's own work does not count);
// the request line and the header block are measured before the library
// sees them. Used by the one thread that serves the connection.
#pragma once

#include <chrono>
#include <string>

#include "HttpLib.h"

class DeadlineStream : public httplib::Stream {
public:
    using Clock = std::chrono::steady_clock;
    DeadlineStream(int fd, std::chrono::milliseconds deadline) : m_fd(fd), m_deadline(deadline) {}

    // Waits up to `idle` for the first byte of the next request. False when
    // none came (time-out, the peer closed, or the socket was shut down).
    bool waitForRequest(std::chrono::milliseconds idle);

    enum class Head { kComplete, kLineTooLong, kHeadersTooLong, kFailed };
    // Starts the request's deadline and buffers its head (request line and
    // headers, up to the empty line): kLineTooLong when the request line
    // exceeds lineLimit, kHeadersTooLong when the header block exceeds
    // headerLimit, kFailed when the peer closed or the deadline passed.
    Head readHead(size_t lineLimit, size_t headerLimit);
    // Writes a complete canned answer (status line, headers, body) that asks
    // to close the connection, then drops what the client still sends for up
    // to a second, until it closes.
    void writeAndClose(int status, const char* reason, const std::string& body);

    // A read of the current request failed (peer closed, error, or the
    // deadline passed): the connection cannot go on.
    bool readFailed() const { return m_readFailed; }

    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char* ptr, size_t size) override;
    ssize_t write(const char* ptr, size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return m_fd; }

private:
    // Milliseconds left until `until` (0 when passed).
    static int msLeft(Clock::time_point until);
    // Reads more bytes into the buffer, waiting up to timeoutMs for them;
    // false on close, error or time-out.
    bool receive(int timeoutMs);
    // receive() within the request's deadline; a failure is remembered.
    bool fill();

    int m_fd;
    std::chrono::milliseconds m_deadline;
    Clock::time_point m_readUntil{};
    Clock::time_point m_writeUntil{};
    bool m_writing = false;
    bool m_readFailed = false;
    std::string m_buffer;  // bytes read but not yet handed on, from m_pos
    size_t m_pos = 0;
};
