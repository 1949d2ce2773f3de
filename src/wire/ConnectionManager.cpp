#include "ConnectionManager.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ConnectionHandler.h"
#include "GUIDataServer.h"
#include "GUIDataSocket.h"

int ConnectionManager::nxtGenPort()
{
    const char* env = getenv("GDS_NXTGEN_PORT");
    if (env == nullptr || *env == '\0') {
        return kNxtGenPort;
    }
    char* end = nullptr;
    long v = strtol(env, &end, 10);
    if (*end != '\0' || v < 1 || v > 65535) {
        return kNxtGenPort;
    }
    return static_cast<int>(v);
}

ConnectionManager::ConnectionManager(GUIDataServer& server)
    : m_server(server), m_legacySocket(0), m_nxtGenSocket(0), m_log("ConnectionManager")
{
}

ConnectionManager::~ConnectionManager()
{
    if (m_legacySocket > 0) {
        close(m_legacySocket);
    }
    if (m_nxtGenSocket > 0) {
        close(m_nxtGenSocket);
    }
}

void ConnectionManager::setLog(ALog& log)
{
    m_log.setBaseLog(log);
}

void ConnectionManager::addDataHandlerFactory(HandlerFactory* factory)
{
    if (factory != nullptr) {
        m_factories.push_back(factory);
    }
}

int ConnectionManager::initialize()
{
    for (auto& entry : m_server.getHandlerTable()) {
        HandlerInfo* info = entry.second;
        if (!loadHandler(info->libFile, info->entryPoint)) {
            printf(" Failed to load handler: %s\n", info->libFile.c_str());
        }
    }
    if (setupServerSocket() != 0) {
        m_log.logError("Failed to setup client socket.\n");
        return 1;
    }
    if (setupServerSocketNxtGen() != 0) {
        m_log.logError("Failed to setup client socket 8197\n");
        return 1;
    }
    return 0;
}

bool ConnectionManager::loadHandler(std::string& libFile, std::string& entryPoint)
{
    printf(" Loading handler: %s\n", libFile.c_str());
    void* lib = dlopen(libFile.c_str(), RTLD_NOW);
    if (lib == nullptr) {
        const char* err = dlerror();
        printf(" Failed to load library \"%s\" with error: %s\n", libFile.c_str(), err != nullptr ? err : "");
        return false;
    }
    dlerror();
    void* sym = dlsym(lib, entryPoint.c_str());
    if (sym == nullptr) {
        printf(" Failed to find entry point \"%s\" in library \"%s\"", entryPoint.c_str(), libFile.c_str());
        fflush(stdout);
        return false;
    }
    printf(" Initializing library: %s\n", libFile.c_str());
    HandlerEntryFunction entry = reinterpret_cast<HandlerEntryFunction>(sym);
    entry(this);
    return true;  // the library stays loaded for the life of the process
}

// The two listening sockets differ only in their port and messages.
int ConnectionManager::setupSocket(int port, bool nxtGen, int& fd)
{
    m_log.logInfo("Setting up server socket on port %i.\n", port);
    int s = socket(AF_INET, SOCK_STREAM, 0);
    if (s < 0) {
        if (nxtGen) {
            m_log.logError("Failed to create socket %i\n", kNxtGenPort);
            perror("failed to create socket 8197");
        } else {
            m_log.logError("Failed to create socket.\n");
            perror("failed to create socket");
        }
        return 1;
    }
    int flags = fcntl(s, F_GETFD);
    if (flags < 0 || fcntl(s, F_SETFD, flags | FD_CLOEXEC) < 0) {
        m_log.logError("Failed to set FD_CLOEXEC on socket.\n");
        perror("failed in fcntl");
        close(s);
        return 1;
    }
    int one = 1;
    setsockopt(s, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);

    sockaddr_in addr;
    memset(&addr, 0, sizeof addr);
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);  // the web server is the only client
    if (bind(s, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0) {
        if (nxtGen) {
            m_log.logError("Failed to bind socket %i\n", kNxtGenPort);
            perror("failed to bind to socket 8197");
        } else {
            m_log.logError("Failed to bind socket.\n");
            perror("failed to bind to socket");
        }
        close(s);
        return 1;
    }
    if (listen(s, 5) < 0) {
        if (nxtGen) {
            m_log.logError("Failed in call to listen for server socket %i\n", kNxtGenPort);
            perror("failure in call to listen for the server socket 8197");
        } else {
            m_log.logError("Failed in call to listen for server socket.\n");
            perror("failure in call to listen for the server socket");
        }
        close(s);
        return 1;
    }
    fd = s;
    if (nxtGen) {
        m_log.logInfo("GUI Data server socket setup complete 8197\n");
    } else {
        m_log.logInfo("GUI Data server socket setup complete.\n");
    }
    return 0;
}

int ConnectionManager::setupServerSocket()
{
    return setupSocket(m_server.getPort(), false, m_legacySocket);
}

int ConnectionManager::setupServerSocketNxtGen()
{
    return setupSocket(nxtGenPort(), true, m_nxtGenSocket);
}

bool ConnectionManager::acceptOne(int listenFd, bool nxtGen)
{
    sockaddr_in client;
    memset(&client, 0, sizeof client);
    socklen_t len = sizeof client;
    int fd = accept(listenFd, reinterpret_cast<sockaddr*>(&client), &len);
    if (fd < 0) {
        perror("Error in socket accept call");
        sleep(5);
        return false;
    }
    if (fd > 0) {
        int flags = fcntl(fd, F_GETFD);
        if (flags < 0 || fcntl(fd, F_SETFD, flags | FD_CLOEXEC) < 0) {
            m_log.logError("Failed to set FD_CLOEXEC on socket.\n");
            perror("failed in fcntl");
        }
    }
    m_log.logTrace("ConnectionManager: Setting up a handler for a new client connection.\n");
    // The console lines of a new connection; each on a line of its own.
    puts("Creating data socket.");
    GUIDataSocket socket(fd, client);
    puts("Creating handler.");
    ConnectionHandler* handler = new ConnectionHandler(*this, socket, nxtGen);
    puts("Setting parent log");
    handler->setLog(m_log.getParentLog());
    if (!handler->startProcessing()) {
        // No thread could be made (resources exhausted): drop this client
        // and keep serving the others.
        m_log.logError("ConnectionManager: could not start a connection thread.\n");
        handler->getSocket().close();
        delete handler;
    }
    return true;
}

void ConnectionManager::acceptConnections()
{
    int maxFd = m_legacySocket > m_nxtGenSocket ? m_legacySocket : m_nxtGenSocket;
    for (;;) {
        fd_set readSet;
        fd_set exceptSet;
        FD_ZERO(&readSet);
        FD_ZERO(&exceptSet);
        FD_SET(m_legacySocket, &readSet);
        FD_SET(m_nxtGenSocket, &readSet);
        FD_SET(m_legacySocket, &exceptSet);
        FD_SET(m_nxtGenSocket, &exceptSet);
        if (select(maxFd + 1, &readSet, nullptr, &exceptSet, nullptr) < 0) {
            perror("select");
            sleep(5);
            continue;
        }
        m_log.logTrace("ConnectionManager: waiting for next connection.\n");
        if (FD_ISSET(m_legacySocket, &exceptSet)) {
            m_log.logTrace("Exception has occured on socket(1) continue listening...\n");
            continue;
        }
        if (FD_ISSET(m_nxtGenSocket, &exceptSet)) {
            m_log.logTrace("Exception has occured on socket(2) continue listening...\n");
            continue;
        }
        if (FD_ISSET(m_legacySocket, &readSet)) {
            m_log.logTrace("GDS Server socket(1) select out\n");
            if (!acceptOne(m_legacySocket, false)) {
                continue;  // the next-generation client waits for the next pass
            }
        }
        if (FD_ISSET(m_nxtGenSocket, &readSet)) {
            m_log.logTrace("GDS Server socket(2) select out\n");
            acceptOne(m_nxtGenSocket, true);
        }
    }
}
