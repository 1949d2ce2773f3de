// ASocket: a connected stream socket seen as a descriptor plus read and write
// primitives; integers travel most significant byte first. Used by the one
// thread that owns the connection. Copies share the descriptor; no ASocket
// closes it implicitly: close() is explicit.
#pragma once

#include <netinet/in.h>

#include "AComponentLog.h"

class ASocket {
public:
    ASocket(int fd, const sockaddr_in& peer);
    ASocket(const ASocket& other);
    ASocket& operator=(const ASocket&) = delete;

    // Writes every byte (short writes are completed, EINTR retried); a peer
    // that went away yields -1 and never a SIGPIPE. Returns `length` or -1.
    virtual int write(const unsigned char* data, int length);
    virtual int writeInt(int value);
    virtual int writeString(const unsigned char* text);
    virtual void flush();
    // Closes the descriptor once; later reads and writes fail with -1.
    virtual void close();
    virtual ~ASocket();
    virtual int writeByte(unsigned char value);
    virtual int writeShort(int value);
    // Reads at most `length` bytes into data + offset; returns the count,
    // 0 at end of stream, -1 on error (ETIMEDOUT past the read deadline).
    virtual int read(unsigned char* data, int offset, int length);
    // The fixed-size reads return 0 on success and -1 on failure (error, or
    // the stream ended before the value was complete).
    virtual int readInt(int& value);
    virtual int readShort(short& value);
    virtual int readByte(unsigned char& value);
    virtual int readFully(unsigned char* data, int offset, int length);

    // A deadline for the reads that follow: `ms` milliseconds from now
    // (0 removes it). A read still waiting at the deadline fails with
    // errno ETIMEDOUT.
    void setReadDeadline(int ms);
    // True once a read found the stream ended by the peer before any byte
    // of the value it was reading (a clean close, not an error).
    bool peerClosed() const { return m_peerClosed; }

    int getDescriptor() const { return m_fd; }
    const sockaddr_in& getPeerAddress() const { return m_peer; }
    AComponentLog& getLog() { return m_log; }

protected:
    int m_fd;
    sockaddr_in m_peer;
    AComponentLog m_log;
    long long m_readDeadline = 0;  // CLOCK_MONOTONIC milliseconds; 0: none
    bool m_peerClosed = false;
};
