// Shared by the two conversion fuzz targets: one agent on a connection over
// a socket pair, fed tool output as prepared text (as queryBackend reads it)
// and as a stream, with the reply read back from the other end.
#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "ConnectionHandler.h"
#include "ConnectionManager.h"
#include "DataAgent.h"
#include "DataHandler.h"
#include "GUIDataServer.h"
#include "StubAgent.h"

namespace xmlizefuzz {

using Agent = StubAgent;

inline ConnectionHandler* connection = nullptr;
inline Agent* agent = nullptr;
inline int peer = -1;

// A platform root in the working folder, a server and one connection.
inline void setUp(const char* name)
{
    std::string dir = std::string(name) + "-root-XXXXXX";
    if (mkdtemp(&dir[0]) == nullptr) {
        abort();
    }
    char* cwd = getcwd(nullptr, 0);
    setenv("GDS_ROOT", (std::string(cwd) + "/" + dir).c_str(), 1);
    free(cwd);
    GUIDataServer* server = new GUIDataServer();
    ConnectionManager* manager = new ConnectionManager(*server);
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) {
        abort();
    }
    int size = 4 << 20;
    setsockopt(fds[1], SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    setsockopt(fds[0], SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    fcntl(fds[1], F_SETFL, O_NONBLOCK);
    peer = fds[1];
    sockaddr_in addr;
    memset(&addr, 0, sizeof addr);
    GUIDataSocket socket(fds[0], addr);
    connection = new ConnectionHandler(*manager, socket, false);
    agent = new Agent(*connection->getDataHandlers()[0]);
}

// The reply data written since the last call; aborts on a byte that the
// socket should have cleaned.
inline std::string drain()
{
    connection->getSocket().flush();
    std::string bytes;
    char buf[65536];
    for (ssize_t n; (n = read(peer, buf, sizeof buf)) > 0;) {
        bytes.append(buf, static_cast<size_t>(n));
    }
    std::string text;
    for (size_t at = 0; at + 8 <= bytes.size();) {
        size_t len = ((static_cast<unsigned char>(bytes[at]) << 8) | static_cast<unsigned char>(bytes[at + 1])) - 2;
        text += bytes.substr(at + 8, len);
        at += 8 + len;
    }
    for (unsigned char c : text) {
        if (!((c >= 0x20 && c < 0x7f) || (c >= 0x09 && c <= 0x0d))) {
            abort();
        }
    }
    return text;
}

// A stream over `text`; null for the empty text (fmemopen needs a byte).
inline FILE* streamOf(const std::string& text)
{
    return text.empty() ? nullptr : fmemopen(const_cast<char*>(text.data()), text.size(), "r");
}

// One fuzz input: the raw bytes and the text up to the first NUL byte (what
// prepared text can hold). Sets the connection up on first use; false for
// inputs above 64 KiB, which add nothing but time.
struct Input {
    std::string raw;
    std::string text;
};

inline bool begin(const char* name, const uint8_t* data, size_t size, Input& input)
{
    if (connection == nullptr) {
        setUp(name);
    }
    if (size > 65536) {
        return false;
    }
    input.raw.assign(reinterpret_cast<const char*>(data), size);
    input.text = input.raw.substr(0, strnlen(input.raw.c_str(), input.raw.size()));
    return true;
}

}  // namespace xmlizefuzz
