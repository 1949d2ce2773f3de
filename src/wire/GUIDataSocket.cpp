#include "GUIDataSocket.h"

#include <sys/socket.h>
#include <sys/uio.h>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

int64_t monotonicMs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}
bool isClean(unsigned char c)
{
    // isprint/isspace of the C locale, without depending on the locale.
    return (c >= 0x20 && c < 0x7f) || (c >= 0x09 && c <= 0x0d);
}
}  // namespace

bool makePrintable(char* data, int length)
{
    bool replaced = false;
    for (int i = 0; data != nullptr && i < length; ++i) {
        unsigned char c = static_cast<unsigned char>(data[i]);
        if (!isClean(c)) {
            if (ALog::takeItemLine()) {  // bounded per request: a reply may hold thousands
                printf(" Found non-printable character (%i) in XML doc.\n", c);
            }
            data[i] = ' ';
            replaced = true;
        }
    }
    return replaced;
}

GUIDataSocket::GUIDataSocket(int fd, sockaddr_in& peer)
    : ASocket(fd, peer),
      m_reply(nullptr),
      m_replyCapacity(kReplyCapacity),
      m_replyLength(0),
      m_scratch(nullptr),
      m_scratchCapacity(0)
{
    m_log.setName("GUIDataSocket");
    m_log.logTrace("Creating a new GUIDataSocket\n");
}

GUIDataSocket::GUIDataSocket(const GUIDataSocket& other)
    : ASocket(other),
      m_reply(nullptr),
      m_replyCapacity(kReplyCapacity),
      m_replyLength(0),
      m_scratch(nullptr),
      m_scratchCapacity(0)
{
    m_log.logTrace("Creating a new GUIDataSocket\n");
}

GUIDataSocket::~GUIDataSocket()
{
    delete[] m_reply;
    delete[] m_scratch;
}

int GUIDataSocket::write(const unsigned char* data, int length)
{
    sendBatch();  // packets collected before go first
    return ASocket::write(data, length);
}

void GUIDataSocket::flush()
{
    sendResponsePacket(false);
    sendBatch();
}

void GUIDataSocket::reserveReply()
{
    if (m_reply == nullptr) {
        m_reply = new char[kReplyCapacity];  // std::bad_alloc ends the connection
    }
}

void GUIDataSocket::releaseBuffers()
{
    if (m_replyLength == 0) {
        delete[] m_reply;
        m_reply = nullptr;
    }
    delete[] m_scratch;
    m_scratch = nullptr;
    m_scratchCapacity = 0;
    if (m_batch.empty()) {
        std::string().swap(m_batch);  // a long reply's packets grew it
    }
}

void GUIDataSocket::send(const char* data, int length)
{
    if (data == nullptr || length <= 0) {
        return;
    }
    reserveReply();
    if (m_log.isEnabled(ALog::kTrace)) {
        m_log.logTrace("GUIDataSocket: send( %.*s, %i )\n", length, data, length);
    }
    int offset = 0;
    while (offset < length) {
        int room = m_replyCapacity - m_replyLength;
        int remaining = length - offset;
        int count = remaining < room ? remaining : room;
        memcpy(m_reply + m_replyLength, data + offset, static_cast<size_t>(count));
        // Cleaned in the reply buffer: the caller's text may be read-only.
        makePrintable(m_reply + m_replyLength, count);
        m_replyLength += count;
        offset += count;
        if (remaining < room) {
            m_log.logTrace("GUIDataSocket: send buffer data length %i, size %i\n", m_replyLength, m_replyCapacity);
        } else {
            sendResponsePacket(false);  // the buffer is exactly full
        }
    }
}

void GUIDataSocket::writeString(const char* text)
{
    if (text != nullptr) {
        send(text, static_cast<int>(strlen(text)));
    }
}

void GUIDataSocket::sendResponsePacket(bool last)
{
    int n = m_replyLength;
    const char* data = m_reply != nullptr ? m_reply : "";
    if (m_log.isEnabled(ALog::kTrace)) {
        m_log.logTrace("sending(len=%i):\n %.*s\n", n + 2, n, data);
        m_log.flush();
    }
    writeWithHeader(n, last, data);
    m_replyLength = 0;
}

void GUIDataSocket::writeWithHeader(int length, bool last, const char* data)
{
    if (length < 1) {
        if (!last) {
            m_log.logTrace("GUIDataSocket::writeWithHeader  Zero length buffer received and ignored.\n");
            return;
        }
        writePacket(0, true, nullptr);
        return;
    }
    int offset = 0;
    while (length - offset >= kMaxBlock) {
        writePacket(kMaxBlock, false, data + offset);
        offset += kMaxBlock;
    }
    // The rest, possibly nothing when the length is a multiple of the block.
    writePacket(length - offset, last, data + offset);
}

void GUIDataSocket::writePacket(int length, bool last, const char* data)
{
    unsigned int field = static_cast<unsigned int>(length) + 2;
    unsigned char header[8] = {static_cast<unsigned char>((field >> 8) & 0xff),
                               static_cast<unsigned char>(field & 0xff),
                               static_cast<unsigned char>(last ? 1 : 0),
                               0,
                               'B',
                               'E',
                               'E',
                               'F'};
    size_t dataLength = data != nullptr && length > 0 ? static_cast<size_t>(length) : 0;
    if (last && m_batch.empty()) {
        // A one-packet reply: header and data in one gathered write.
        sendParts(reinterpret_cast<const char*>(header), sizeof header, data, dataLength);
        return;
    }
    // Beyond the original, which writes each packet as it is full: the
    // packets of a longer reply are collected and leave together, up to
    // kBatchLimit bytes at a time (a 9 KB inventory page in one write
    // instead of nine). The packets themselves are unchanged.
    m_batch.append(reinterpret_cast<const char*>(header), sizeof header);
    if (dataLength > 0) {
        m_batch.append(data, dataLength);
    }
    if (last || m_batch.size() >= kBatchLimit) {
        sendBatch();
    }
}

void GUIDataSocket::sendBatch()
{
    if (m_batch.empty()) {
        return;
    }
    sendParts(m_batch.data(), m_batch.size(), nullptr, 0);
    std::string().swap(m_batch);  // an idle connection keeps none of it
}

void GUIDataSocket::sendParts(const char* first, size_t firstLength, const char* second, size_t secondLength)
{
    iovec parts[2];
    parts[0].iov_base = const_cast<char*>(first);
    parts[0].iov_len = firstLength;
    parts[1].iov_base = const_cast<char*>(second);
    parts[1].iov_len = second != nullptr ? secondLength : 0;
    int count = parts[1].iov_len > 0 ? 2 : 1;
    size_t total = parts[0].iov_len + parts[1].iov_len;
    size_t sent = 0;
    // Short writes are completed. A failed write (a vanished peer, or one
    // that read nothing for the send time-out) is remembered: the rest of
    // the reply is dropped and the connection handler ends the connection.
    while (sent < total && m_fd >= 0 && m_writeError == 0) {
        if (m_replyBudgetMs > 0 && m_replyWriteMs > m_replyBudgetMs) {
            // The peer reads, but too slowly to take the reply within its
            // budget.
            m_writeError = ETIMEDOUT;
            return;
        }
        int64_t started = m_replyBudgetMs > 0 ? monotonicMs() : 0;
        msghdr msg;
        memset(&msg, 0, sizeof msg);
        msg.msg_iov = parts;
        msg.msg_iovlen = static_cast<size_t>(count);
        ssize_t n = sendmsg(m_fd, &msg, MSG_NOSIGNAL);
        if (n < 0 && errno == ENOTSOCK) {
            n = writev(m_fd, parts, count);
        }
        if (m_replyBudgetMs > 0) {
            m_replyWriteMs += monotonicMs() - started;
        }
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            m_writeError = (errno == EAGAIN || errno == EWOULDBLOCK) ? ETIMEDOUT : errno;
            return;
        }
        sent += static_cast<size_t>(n);
        // Drop what went out from the front of the parts.
        size_t skip = static_cast<size_t>(n);
        for (int i = 0; i < count && skip > 0; ++i) {
            size_t take = skip < parts[i].iov_len ? skip : parts[i].iov_len;
            parts[i].iov_base = static_cast<char*>(parts[i].iov_base) + take;
            parts[i].iov_len -= take;
            skip -= take;
        }
    }
}

void GUIDataSocket::beginReply(int deadlineMs)
{
    m_replyBudgetMs = deadlineMs;
    m_replyWriteMs = 0;
}

bool GUIDataSocket::checkTmpBuffer(int size)
{
    if (size > kScratchWarning) {
        printf("WARNING: Request exceeds max internal buffer size %i>%i\n", size, kScratchWarning);
        m_log.logWarning("WARNING: Request exceeds max internal buffer size %i>%i\n", size, kScratchWarning);
    }
    if (m_scratch != nullptr && m_scratchCapacity >= size) {
        return true;
    }
    // Made at the first element too long for the reply buffer's free room.
    if (size < kReplyCapacity) {
        size = kReplyCapacity;
    }
    m_log.logTrace("Allocating new buffer of size %i\n", size);
    delete[] m_scratch;
    m_scratch = new char[static_cast<size_t>(size) + 1];
    m_scratchCapacity = size;
    return true;
}

void GUIDataSocket::sendFormatted(int needed, const char* format, ...)
{
    va_list args;
    reserveReply();
    // An element that fits in the reply buffer's free room is formatted in
    // place: no copy, and no scratch buffer for most connections. The bytes
    // and the packets are those send() would make.
    const int room = m_replyCapacity - m_replyLength;
    if (needed < room) {
        va_start(args, format);
        int n = vsnprintf(m_reply + m_replyLength, static_cast<size_t>(room), format, args);
        va_end(args);
        if (n >= 0 && n < room) {
            if (n > 0 && m_log.isEnabled(ALog::kTrace)) {
                m_log.logTrace("GUIDataSocket: send( %.*s, %i )\n", n, m_reply + m_replyLength, n);
            }
            makePrintable(m_reply + m_replyLength, n);
            m_replyLength += n;
            return;
        }
    }
    checkTmpBuffer(needed);
    va_start(args, format);
    // The array always has one byte more than the capacity, for the terminator.
    int n = vsnprintf(m_scratch, static_cast<size_t>(m_scratchCapacity) + 1, format, args);
    va_end(args);
    if (n < 0) {
        return;
    }
    if (n > m_scratchCapacity) {
        n = m_scratchCapacity;  // cannot happen with the sizes asked for; never overrun
    }
    send(m_scratch, n);
}

void GUIDataSocket::writeShortElement(const char* name, const unsigned char* value)
{
    short v = 0;
    if (value != nullptr) {
        memcpy(&v, value, sizeof v);
    }
    sendFormatted((static_cast<int>(strlen(name)) + 20) * 2, "<%s>%i</%s>\n", name, v, name);
}

void GUIDataSocket::writeIntElement(const char* name, const unsigned char* value)
{
    int v = 0;
    if (value != nullptr) {
        memcpy(&v, value, sizeof v);
    }
    sendFormatted((static_cast<int>(strlen(name)) + 20) * 2, "<%s>%i</%s>\n", name, v, name);
}

void GUIDataSocket::writeSimpleElement(const char* name, int value)
{
    sendFormatted((static_cast<int>(strlen(name)) + 20) * 2, "<%s>%i</%s>\n", name, value, name);
}

void GUIDataSocket::writeSimpleElement(const char* name, unsigned long value)
{
    sendFormatted((static_cast<int>(strlen(name)) + 20) * 2, "<%s>%lu</%s>\n", name, value, name);
}

void GUIDataSocket::writeSimpleElement(const char* name, unsigned int value)
{
    sendFormatted((static_cast<int>(strlen(name)) + 20) * 2, "<%s>%u</%s>\n", name, value, name);
}

void GUIDataSocket::writeSimpleElement(const char* name, float value)
{
    // "%f" of a large float has up to 39 digits before the point: room for
    // them is added to the usual element size.
    sendFormatted((static_cast<int>(strlen(name)) + 20) * 2 + 48, "<%s>%f</%s>\n", name, static_cast<double>(value),
                  name);
}

void GUIDataSocket::writeSimpleElement(const char* name, const char* value)
{
    char stackArea[256];
    char* escaped = stackArea;
    char* allocated = nullptr;
    int escapedLength = 0;
    memset(stackArea, 0, sizeof stackArea);
    if (value != nullptr) {
        size_t worst = 6 * strlen(value);
        if (worst > sizeof stackArea - 1) {
            m_log.logTrace("%s:: Callocing buffer of size %d\n", "writeSimpleElement", static_cast<int>(worst + 1));
            allocated = static_cast<char*>(calloc(worst + 1, 1));
            if (allocated == nullptr) {
                m_log.logError("Calloc failed in %s\n", "writeSimpleElement");
                return;
            }
            escaped = allocated;
        }
        escapedLength = doXMLEscape(value, escaped);
    }
    int needed = 2 * static_cast<int>(strlen(name)) + escapedLength + 6;
    sendFormatted(needed, "<%s>%s</%s>\n", name, escaped, name);
    free(allocated);
}

int GUIDataSocket::doXMLEscape(const char* in, char* out)
{
    int n = 0;
    for (const char* p = in; p != nullptr && *p != '\0'; ++p) {
        const char* rep = nullptr;
        switch (*p) {
            case '"':
                rep = "&quot;";
                break;
            case '&':
                rep = "&amp;";
                break;
            case '\'':
                rep = "&apos;";
                break;
            case '<':
                rep = "&lt;";
                break;
            case '>':
                rep = "&gt;";
                break;
            default:
                out[n++] = *p;
                continue;
        }
        size_t len = strlen(rep);
        memcpy(out + n, rep, len);
        n += static_cast<int>(len);
    }
    out[n] = '\0';
    return n;
}
