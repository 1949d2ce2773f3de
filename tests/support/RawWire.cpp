#include "RawWire.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "ProjectBinary.h"

std::string be32(int v)
{
    unsigned int u = static_cast<unsigned int>(v);
    return std::string{static_cast<char>(u >> 24), static_cast<char>(u >> 16), static_cast<char>(u >> 8),
                       static_cast<char>(u)};
}

std::string legacyFrame(const std::string& text, int word)
{
    return be32(static_cast<int>(text.size()) + 4) + be32(word) + "BEEF" + text;
}

int connectTo(int port)
{
    int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(s, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        close(s);
        return -1;
    }
    return s;
}

int listenOnLoopback(int& port)
{
    int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    if (bind(s, reinterpret_cast<sockaddr*>(&addr), len) != 0 || listen(s, 4) != 0 ||
        getsockname(s, reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
        close(s);
        return -1;
    }
    port = ntohs(addr.sin_port);
    return s;
}

bool closedByServer(int fd, int waitMs)
{
    pollfd p = {fd, POLLIN, 0};
    if (poll(&p, 1, waitMs) != 1) {
        return false;
    }
    char c;
    return recv(fd, &c, 1, MSG_DONTWAIT) <= 0;
}

bool waitFor(const std::function<bool()>& done, int seconds)
{
    for (int i = 0; i < seconds * 10 * ProjectBinary::slowdown() && !done(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return done();
}
