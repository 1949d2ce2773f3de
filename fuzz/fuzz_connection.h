// Shared by the fuzz targets that need the server's side of a connection: a
// platform root in the working folder (seeded from the simulated controller
// when asked), one server, and connections over socket pairs whose client
// end the target writes to and reads from. Single-threaded, like a fuzzer;
// everything set up here lives until the process ends.
#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ConnectionHandler.h"
#include "ConnectionManager.h"
#include "GUIDataServer.h"

namespace fuzzconn {

inline ConnectionManager* manager = nullptr;

// Creates the platform root "<name>-root-XXXXXX" in the working folder (a
// copy of `seed` when it is not null), points GDS_ROOT at it and creates the
// server. Once per process.
inline void setUp(const char* name, const char* seed = nullptr)
{
    std::string dir = std::string(name) + "-root-XXXXXX";
    if (mkdtemp(&dir[0]) == nullptr) {
        abort();
    }
    char* cwd = getcwd(nullptr, 0);
    std::string root = std::string(cwd) + "/" + dir;
    free(cwd);
    if (seed != nullptr) {
        // Fixed texts only: the seed is a build path, the root made above.
        std::string copy = std::string("cp -a '") + seed + "/.' '" + root + "/'";
        if (system(copy.c_str()) != 0) {
            abort();
        }
    }
    setenv("GDS_ROOT", root.c_str(), 1);
    GUIDataServer* server = new GUIDataServer();
    manager = new ConnectionManager(*server);
}

// A connection over a socket pair: the server's handler and the client end
// (non-blocking, with room for every reply a fuzz input can cause).
struct Connection {
    ConnectionHandler* handler = nullptr;
    int client = -1;
};

inline Connection connect(bool nxtGenPort)
{
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) {
        abort();
    }
    int size = 4 << 20;
    for (int option : {SO_RCVBUF, SO_SNDBUF}) {
        setsockopt(fds[0], SOL_SOCKET, option, &size, sizeof size);
        setsockopt(fds[1], SOL_SOCKET, option, &size, sizeof size);
    }
    fcntl(fds[1], F_SETFL, O_NONBLOCK);
    sockaddr_in addr;
    memset(&addr, 0, sizeof addr);
    GUIDataSocket socket(fds[0], addr);
    return {new ConnectionHandler(*manager, socket, nxtGenPort), fds[1]};
}

// The reply bytes waiting at the client end, as packets checked like a
// client checks them (length field at least 2, byte 3 zero, last flag 0 or
// 1, magic "BEEF", no partial packet) and joined; aborts on a broken packet
// or on a data byte the socket should have cleaned. `lastFlags` counts the
// packets flagged as last.
inline std::string drain(int client, int* lastFlags = nullptr)
{
    std::string bytes;
    char buf[65536];
    for (ssize_t n; (n = read(client, buf, sizeof buf)) > 0;) {
        bytes.append(buf, static_cast<size_t>(n));
    }
    std::string text;
    size_t at = 0;
    while (at < bytes.size()) {
        if (bytes.size() - at < 8) {
            abort();
        }
        const unsigned char* h = reinterpret_cast<const unsigned char*>(bytes.data() + at);
        size_t field = (static_cast<size_t>(h[0]) << 8) | h[1];
        if (field < 2 || h[2] > 1 || h[3] != 0 || memcmp(h + 4, "BEEF", 4) != 0 || bytes.size() - at - 8 < field - 2) {
            abort();
        }
        if (lastFlags != nullptr) {
            *lastFlags += h[2];
        }
        text.append(bytes, at + 8, field - 2);
        at += 8 + field - 2;
    }
    for (unsigned char c : text) {
        if (!((c >= 0x20 && c < 0x7f) || (c >= 0x09 && c <= 0x0d))) {
            abort();
        }
    }
    return text;
}

// One agent of class A on its own connection (made when this is), and the
// reply data it wrote since the last drain(), checked as drain() checks it.
template <class A>
struct AgentConnection {
    Connection c = connect(false);
    A* agent = new A(*c.handler->getDataHandlers()[0]);

    GUIDataSocket& socket() { return c.handler->getSocket(); }
    std::string drain()
    {
        socket().flush();
        return fuzzconn::drain(c.client);
    }
};

// One answered request: its text, the reply text, the number of packets flagged as
// last, and the raw-reply byte the request carried.
struct Answer {
    std::string request;
    std::string text;
    int lastFlags = 0;
    int rawReply = 0;
};

// Serves `bytes` as everything a client sends on one connection, then the
// client's end of sending: the request loop of the connection thread, run
// here, with each reply drained and checked. Returns what each request got.
inline std::vector<Answer> serve(Connection& c, const std::string& bytes)
{
    if (!bytes.empty() && write(c.client, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
        abort();
    }
    shutdown(c.client, SHUT_WR);
    std::vector<Answer> answers;
    // At most one request per 8 bytes sent, so a loop that failed to stop
    // at the end of the input shows up as a hang, not as silent spinning.
    for (size_t round = 0; round <= bytes.size() / 8 + 1; ++round) {
        if (c.handler->nextRequest() == nullptr) {
            // The connection's loop takes one more pass after a refused
            // frame: whatever followed it must not come out as a request
            // (it would reach the agents).
            if (c.handler->nextRequest() != nullptr) {
                abort();
            }
            break;
        }
        Answer answer;
        answer.request = c.handler->getRequest();
        answer.rawReply = c.handler->getRawReply();
        c.handler->processRequest();
        c.handler->getSocket().flush();
        answer.text = drain(c.client, &answer.lastFlags);
        answers.push_back(answer);
    }
    c.handler->getSocket().flush();
    if (!drain(c.client).empty()) {
        abort();  // a failed read must not leave anything to send
    }
    return answers;
}

// Ends a connection as its thread would: the handler and its agents go.
inline void hangUp(Connection& c)
{
    c.handler->getSocket().close();
    delete c.handler;
    close(c.client);
    c = Connection();
}

}  // namespace fuzzconn
