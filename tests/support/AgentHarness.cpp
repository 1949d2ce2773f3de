#include "AgentHarness.h"
#include "RawWire.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <cstring>

AgentHarness::AgentHarness(int privileges) : m_root(new TestRoot(true))
{
    m_server = new GUIDataServer();
    m_manager = new ConnectionManager(*m_server);
    int fds[2];
    socketpair(AF_UNIX, SOCK_STREAM, 0, fds);
    int size = 4 << 20;
    setsockopt(fds[1], SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    setsockopt(fds[0], SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    m_peer = fds[1];
    sockaddr_in addr;
    memset(&addr, 0, sizeof addr);
    GUIDataSocket sock(fds[0], addr);
    m_connection = new ConnectionHandler(*m_manager, sock, false);
    request("", privileges);  // sets the privileges of the connection
    reply();
}

AgentHarness::~AgentHarness()
{
    m_connection->getSocket().close();
    delete m_connection;
    delete m_manager;
    delete m_server;
    close(m_peer);
}

std::string AgentHarness::request(const std::string& text, int privileges)
{
    std::string frame = be32(static_cast<int>(text.size()) + 4) + be32(privileges) + "BEEF" + text;
    if (write(m_peer, frame.data(), frame.size()) != static_cast<ssize_t>(frame.size())) {
        return "";
    }
    if (m_connection->nextRequest() == nullptr) {
        return "";
    }
    m_connection->processRequest();
    return reply();
}

std::string AgentHarness::reply()
{
    m_connection->getSocket().flush();
    std::string bytes;
    fcntl(m_peer, F_SETFL, O_NONBLOCK);
    char buf[65536];
    for (ssize_t n; (n = read(m_peer, buf, sizeof buf)) > 0;) {
        bytes.append(buf, static_cast<size_t>(n));
    }
    std::string text;
    size_t at = 0;
    while (at + 8 <= bytes.size()) {
        size_t len = ((static_cast<unsigned char>(bytes[at]) << 8) | static_cast<unsigned char>(bytes[at + 1])) - 2;
        text += bytes.substr(at + 8, len);
        at += 8 + len;
    }
    return text;
}
