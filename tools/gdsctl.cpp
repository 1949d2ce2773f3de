// gdsctl: sends one request to the data server and prints its reply.
// Single-threaded command-line tool; see docs/tools.md ("gdsctl").
#include <unistd.h>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "GDSClient.h"

namespace {

const int kExitOk = 0;
const int kExitError = 1;
const int kExitUsage = 2;

void usage()
{
    printf(
        "usage: gdsctl [options] 'request'\n"
        "  Sends the request (e.g. 'get=sshPort,sshTimeout') to the data server and prints the reply.\n"
        "options:\n"
        "  -H host       server address (default 127.0.0.1)\n"
        "  -p port       server port (default 8195, or 8197 with -n)\n"
        "  -n            use the next-generation port and its JSON request header\n"
        "  -P privmask   privilege mask, low 24 bits, hex (0x..) or decimal (default 0x7F)\n"
        "  -r rawbyte    top 8 bits of the privilege word, 0-255 (default 0)\n"
        "  -u user       user name (JSON header only)\n"
        "  -i interface  interface name (JSON header only)\n"
        "  -t seconds    connect and reply time-out (default 10)\n"
        "  -e end        what ends a reply: flag (the last-packet flag; default),\n"
        "                idle[=ms] (also silence for ms, default 1000; default when -r is not 0),\n"
        "                close (also the server closing the connection)\n"
        "  -x            show each packet's header and data instead of the joined text\n"
        "  -c count      send the request count times on one connection (default 1)\n"
        "  -h            this help\n"
        "exit status: 0 complete reply, 1 connection or protocol error, 2 bad usage\n");
}

bool parseUnsigned(const char* text, unsigned long max, unsigned long& out)
{
    if (text == nullptr || *text == '\0' || *text == '-' || *text == '+') {
        return false;
    }
    int base = 10;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text += 2;
        if (*text == '\0') {
            return false;
        }
    }
    errno = 0;
    char* end = nullptr;
    unsigned long v = strtoul(text, &end, base);
    if (errno != 0 || *end != '\0' || v > max) {
        return false;
    }
    out = v;
    return true;
}

bool parseEnd(const char* text, GDSClient::Options& options)
{
    std::string s = text;
    if (s == "flag") {
        options.replyEnd = GDSClient::ReplyEnd::kLastFlag;
    } else if (s == "close") {
        options.replyEnd = GDSClient::ReplyEnd::kPeerClose;
    } else if (s == "idle") {
        options.replyEnd = GDSClient::ReplyEnd::kIdle;
    } else if (s.compare(0, 5, "idle=") == 0) {
        unsigned long ms = 0;
        if (!parseUnsigned(s.c_str() + 5, 3600000, ms) || ms == 0) {
            return false;
        }
        options.replyEnd = GDSClient::ReplyEnd::kIdle;
        options.idleMs = static_cast<int>(ms);
    } else {
        return false;
    }
    return true;
}

const char* endName(GDSReplyEnd end)
{
    switch (end) {
        case GDSReplyEnd::kLastPacket:
            return "last-packet flag";
        case GDSReplyEnd::kIdle:
            return "idle time-out";
        case GDSReplyEnd::kPeerClosed:
            return "connection closed";
    }
    return "?";
}

void writeAll(const std::string& s)
{
    fwrite(s.data(), 1, s.size(), stdout);
}

void printPackets(const GDSReply& reply, int requestNo, int count)
{
    if (count > 1) {
        printf("== reply %d\n", requestNo);
    }
    int i = 0;
    for (const GDSPacket& p : reply.packets) {
        printf("-- packet %d: length field %u, last %u, data %zu bytes\n", ++i, p.lengthField, p.last, p.data.size());
        writeAll(p.data);
        if (!p.data.empty() && p.data.back() != '\n') {
            putchar('\n');
        }
    }
    printf("-- end: %s, %zu packets, %zu bytes\n", endName(reply.end), reply.packets.size(), reply.text.size());
}

}  // namespace

int main(int argc, char** argv)
{
    GDSClient::Options options;
    options.idleMs = 1000;
    bool showPackets = false;
    bool endGiven = false;
    long count = 1;
    double timeoutSeconds = 10.0;

    int opt;
    opterr = 0;
    while ((opt = getopt(argc, argv, ":H:p:nP:r:u:i:t:e:xc:h")) != -1) {
        unsigned long v = 0;
        switch (opt) {
            case 'H':
                options.host = optarg;
                break;
            case 'p':
                if (!parseUnsigned(optarg, 65535, v) || v == 0) {
                    fprintf(stderr, "gdsctl: bad port '%s'\n", optarg);
                    return kExitUsage;
                }
                options.port = static_cast<int>(v);
                break;
            case 'n':
                options.layout = GDSClient::Layout::kNxtGen;
                break;
            case 'P':
                if (!parseUnsigned(optarg, 0xFFFFFF, v)) {
                    fprintf(stderr, "gdsctl: bad privilege mask '%s' (0 to 0xFFFFFF)\n", optarg);
                    return kExitUsage;
                }
                options.privileges = static_cast<uint32_t>(v);
                break;
            case 'r':
                if (!parseUnsigned(optarg, 255, v)) {
                    fprintf(stderr, "gdsctl: bad raw-reply byte '%s' (0 to 255)\n", optarg);
                    return kExitUsage;
                }
                options.rawReply = static_cast<uint8_t>(v);
                break;
            case 'u':
                options.user = optarg;
                break;
            case 'i':
                options.interface = optarg;
                break;
            case 't': {
                char* end = nullptr;
                timeoutSeconds = strtod(optarg, &end);
                if (end == optarg || *end != '\0' || !std::isfinite(timeoutSeconds) || timeoutSeconds <= 0 ||
                    timeoutSeconds > 86400) {
                    fprintf(stderr, "gdsctl: bad time-out '%s' (seconds, above 0)\n", optarg);
                    return kExitUsage;
                }
                break;
            }
            case 'e':
                if (!parseEnd(optarg, options)) {
                    fprintf(stderr, "gdsctl: bad reply end '%s' (flag, idle, idle=ms or close)\n", optarg);
                    return kExitUsage;
                }
                endGiven = true;
                break;
            case 'x':
                showPackets = true;
                break;
            case 'c':
                if (!parseUnsigned(optarg, 1000000000, v) || v == 0) {
                    fprintf(stderr, "gdsctl: bad count '%s'\n", optarg);
                    return kExitUsage;
                }
                count = static_cast<long>(v);
                break;
            case 'h':
                usage();
                return kExitOk;
            case ':':
                fprintf(stderr, "gdsctl: option -%c needs a value (gdsctl -h for help)\n", optopt);
                return kExitUsage;
            default:
                fprintf(stderr, "gdsctl: unknown option -%c (gdsctl -h for help)\n", optopt);
                return kExitUsage;
        }
    }
    if (argc - optind != 1) {
        fprintf(stderr, "gdsctl: give exactly one request text (gdsctl -h for help)\n");
        return kExitUsage;
    }
    const std::string text = argv[optind];
    if (!endGiven && options.rawReply != 0) {
        // Such a reply never carries the last-packet flag.
        options.replyEnd = GDSClient::ReplyEnd::kIdle;
    }
    if (options.replyEnd == GDSClient::ReplyEnd::kPeerClose && count > 1) {
        fprintf(stderr, "gdsctl: -e close ends the connection, so -c must be 1\n");
        return kExitUsage;
    }
    options.connectTimeoutMs = static_cast<int>(std::lround(timeoutSeconds * 1000));
    options.replyTimeoutMs = options.connectTimeoutMs;

    GDSClient client(options);
    try {
        client.connect();
        for (long i = 1; i <= count; ++i) {
            GDSReply reply = client.request(text);
            if (showPackets) {
                printPackets(reply, static_cast<int>(i), static_cast<int>(count));
            } else {
                writeAll(reply.text);
            }
            fflush(stdout);
        }
    } catch (const GDSClientError& e) {
        fflush(stdout);
        fprintf(stderr, "gdsctl: %s\n", e.what());
        return e.kind() == GDSClientError::kRequest ? kExitUsage : kExitError;
    }
    return kExitOk;
}
