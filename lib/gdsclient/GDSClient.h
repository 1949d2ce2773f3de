// GDSClient: a client of the data server's two request ports (legacy binary
// header on 8195, JSON header on 8197) and of its framed reply packets.
// One object is one connection, used by one thread at a time; it owns its
// socket and closes it when destroyed. Every failure is reported by throwing
// GDSClientError (never by a return value); its kind() tells what went wrong.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

class GDSClientError : public std::runtime_error {
public:
    enum Kind {
        kConnect,   // the connection could not be set up (refused, unreachable, connect time-out)
        kTimeout,   // no further reply bytes within the reply time-out
        kClosed,    // the peer closed the connection before the reply was complete
        kProtocol,  // a reply packet header is malformed
        kIo,        // a send or receive failed for another reason (or no connection is open)
        kRequest,   // the request cannot be framed (too long for the port)
    };
    GDSClientError(Kind kind, const std::string& message) : std::runtime_error(message), m_kind(kind) {}
    Kind kind() const { return m_kind; }

private:
    Kind m_kind;
};

// One reply packet as it came off the wire: header fields and data.
struct GDSPacket {
    uint16_t lengthField = 0;  // bytes 0-1: data length + 2
    uint8_t last = 0;          // byte 2: 1 on the packet that ends a reply
    uint8_t byte3 = 0;         // byte 3: always 0
    std::string magic;         // bytes 4-7: "BEEF"
    std::string data;          // lengthField - 2 bytes
};

// How a reply was seen to end.
enum class GDSReplyEnd {
    kLastPacket,  // a packet carried the last-packet flag
    kIdle,        // ReplyEnd::kIdle: no new packet began within the idle time
    kPeerClosed,  // ReplyEnd::kPeerClose: the peer closed between two packets
};

struct GDSReply {
    std::string text;                // the data of all packets, joined
    std::vector<GDSPacket> packets;  // every packet in order
    GDSReplyEnd end = GDSReplyEnd::kLastPacket;
};

class GDSClient {
public:
    // Largest L of a request frame the server accepts, on either port.
    static const int kMaxFrameLength = 8096;
    static const int kLegacyPort = 8195;
    static const int kNxtGenPort = 8197;

    enum class Layout { kLegacy, kNxtGen };

    // What ends a reply besides a packet with the last-packet flag. A reply
    // asked for with a non-zero rawReply byte never carries that flag, so it
    // needs kIdle or kPeerClose.
    enum class ReplyEnd {
        kLastFlag,   // only the last-packet flag; silence is a time-out error
        kIdle,       // also idleMs without the start of a new packet
        kPeerClose,  // also the peer closing the connection between packets
    };

    struct Options {
        std::string host = "127.0.0.1";
        int port = 0;  // 0: kLegacyPort or kNxtGenPort, after the layout
        Layout layout = Layout::kLegacy;
        uint32_t privileges = 0x7F;  // low 24 bits of the privilege word
        uint8_t rawReply = 0;        // top 8 bits of the privilege word
        std::string user;            // next-generation port only
        std::string interface;       // next-generation port only
        std::string magic = "BEEF";  // next-generation port only
        int connectTimeoutMs = 3000;
        int replyTimeoutMs = 10000;  // longest wait for any further byte of a reply
        ReplyEnd replyEnd = ReplyEnd::kLastFlag;
        int idleMs = 300;  // for ReplyEnd::kIdle
    };

    GDSClient() = default;
    explicit GDSClient(const Options& options) : m_options(options) {}
    ~GDSClient();
    GDSClient(const GDSClient&) = delete;
    GDSClient& operator=(const GDSClient&) = delete;

    Options& options() { return m_options; }
    const Options& options() const { return m_options; }
    // The port connect() uses: the option, or the layout's default.
    int effectivePort() const;
    // The privilege word: rawReply in bits 24-31, privileges in bits 0-23.
    uint32_t privilegeWord() const;

    // Opens the connection (closing any earlier one). Throws kConnect.
    void connect();
    void close();
    bool isOpen() const { return m_fd >= 0; }
    int fd() const { return m_fd; }

    // Legacy frame: L (= 4 + text length, big-endian int32), the privilege
    // word (big-endian), "BEEF", the text. No limit is applied.
    static std::string frameLegacy(const std::string& text, uint32_t privilegeWord);
    // Next-generation frame: L (big-endian int32) and the JSON object
    // {"Magic":..,"Privilege":..,"Command":..,"Username":..,"Interface":..}.
    // Privilege is written as the word's signed 32-bit value, so that a JSON
    // reader storing it in an int gets all 32 bits back. No limit is applied.
    static std::string frameNxtGen(const std::string& text, uint32_t privilegeWord, const std::string& user,
                                   const std::string& interface, const std::string& magic = "BEEF");
    // A JSON string literal (quotes included): ", \ and control bytes are
    // escaped; every other byte is copied as it is.
    static std::string jsonString(const std::string& text);
    // The frame of `text` for the configured layout and options.
    std::string frame(const std::string& text) const;

    // Sends every byte. Throws kIo (also when not connected).
    void sendRaw(const std::string& bytes);
    // Reads one packet and checks its header (length field >= 2, byte 3 == 0,
    // last flag 0 or 1, magic "BEEF"). Throws kTimeout, kClosed, kProtocol, kIo.
    // Any failure while sending or reading closes the connection.
    GDSPacket readPacket();
    // Reads packets until the reply ends (see ReplyEnd). Throws as readPacket.
    GDSReply readReply();
    // frame + sendRaw + readReply. Throws kRequest, before sending anything,
    // when the frame's L would exceed kMaxFrameLength.
    GDSReply request(const std::string& text);

private:
    enum class Wait { kData, kEof, kTimeout };
    // Waits until at least n unconsumed bytes are buffered; a negative
    // time-out waits for ever. Throws kIo on socket errors.
    Wait waitFor(size_t n, int timeoutMs);
    // One packet into `packet`. kEof/kTimeout are returned only when not a
    // byte of it arrived (within firstByteTimeoutMs); later they throw.
    Wait readPacketFrom(int firstByteTimeoutMs, GDSPacket& packet);
    // Closes the connection (its stream position is lost) and throws.
    [[noreturn]] void fail(GDSClientError::Kind kind, const std::string& message);

    Options m_options;
    int m_fd = -1;
    std::string m_rx;  // received bytes not yet consumed, from m_rxPos
    size_t m_rxPos = 0;
};
