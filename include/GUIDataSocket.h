// GUIDataSocket: the client connection as the data server sees it. Reads go
// through ASocket; replies are cleaned of non-printable bytes, collected in a
// 1024-byte buffer (taken at the first write) and sent as framed packets ([N+2][last][0]["BEEF"][data]);
// the packets of a longer reply leave together (up to 16 KiB per write).
// Belongs to one connection thread. Owns its two buffers; copies share the
// descriptor but get fresh buffers; the destructor never closes the
// descriptor (close() does).
#pragma once

#include <netinet/in.h>
#include <cstdint>
#include <string>

#include "ASocket.h"

class GUIDataSocket : public ASocket {
public:
    static const int kReplyCapacity = 1024;
    static const int kMaxBlock = 32765;       // data bytes of the largest packet
    static const int kScratchWarning = 8192;  // elements above this are warned about

    GUIDataSocket(int fd, sockaddr_in& peer);
    GUIDataSocket(const GUIDataSocket& other);
    GUIDataSocket& operator=(const GUIDataSocket&) = delete;
    ~GUIDataSocket() override;

    int write(const unsigned char* data, int length) override;
    void flush() override;

    // Cleans and buffers `length` bytes; every full buffer leaves as a
    // non-final packet. The caller's bytes are not modified.
    virtual void send(const char* data, int length);
    virtual void writeString(const char* text);
    using ASocket::writeString;
    virtual void writeShortElement(const char* name, const unsigned char* value);
    virtual void writeIntElement(const char* name, const unsigned char* value);
    virtual void writeSimpleElement(const char* name, const char* value);
    virtual void writeSimpleElement(const char* name, float value);
    virtual void writeSimpleElement(const char* name, int value);
    virtual void writeSimpleElement(const char* name, unsigned long value);
    virtual void writeSimpleElement(const char* name, unsigned int value);

    // Sends the buffered bytes as a packet; `last` marks the end of a reply.
    void sendResponsePacket(bool last);
    void writeWithHeader(int length, bool last, const char* data);
    bool checkTmpBuffer(int size);
    // Frees the reply buffer (when nothing is waiting in it) and the scratch
    // buffer of long elements; the next write takes a new one. A connection
    // idle between requests holds neither.
    void releaseBuffers();
    int getReplyLength() const { return m_replyLength; }

    // Writes `in` with the five XML escapes into `out`, which must hold
    // 6 * strlen(in) + 1 zeroed bytes; returns the length written.
    static int doXMLEscape(const char* in, char* out);

    // The errno of the first reply write that failed (ETIMEDOUT when the
    // peer read nothing for the send time-out); 0 while writes succeed.
    int getWriteError() const { return m_writeError; }

    // Starts the write budget of one reply: the time spent writing its
    // packets (not the time spent preparing them) is at most `deadlineMs`
    // (0: no budget). The send time-out alone does not catch a peer that
    // reads a few bytes now and then, which would hold the connection's
    // thread for ever.
    void beginReply(int deadlineMs);

private:
    void reserveReply();
    void sendFormatted(int needed, const char* format, ...) __attribute__((format(printf, 3, 4)));
    // One packet: header, magic and data leave in one gathered write, so a
    // reply never waits on the peer's delayed acknowledgement.
    void writePacket(int length, bool last, const char* data);
    // Sends the collected packets of a longer reply (nothing when none).
    void sendBatch();
    // One gathered write of `first` and `second` (which may be null),
    // completing short writes; failures go to m_writeError.
    void sendParts(const char* first, size_t firstLength, const char* second, size_t secondLength);
    static const size_t kBatchLimit = 16 * 1024;
    std::string m_batch;  // packets not yet sent (a longer reply's)

    char* m_reply;
    int m_replyCapacity;
    int m_replyLength;
    char* m_scratch;
    int m_scratchCapacity;
    int m_writeError = 0;
    int64_t m_replyBudgetMs = 0;  // 0: writes are not timed
    int64_t m_replyWriteMs = 0;   // time spent writing the current reply
};

// Replaces, in place, every byte that is neither printable nor white space
// (C locale) by a blank, printing one line per byte; true when any was.
bool makePrintable(char* data, int length);
