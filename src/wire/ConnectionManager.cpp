#include "ConnectionManager.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "ConnectionHandler.h"
#include "ConnectionThreads.h"
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

namespace {
// A positive whole number from the environment, or `fallback`.
int positiveEnv(const char* name, int fallback, int max)
{
    const char* env = getenv(name);
    if (env == nullptr || *env == '\0') {
        return fallback;
    }
    char* end = nullptr;
    long v = strtol(env, &end, 10);
    if (*end != '\0' || v < 1 || v > max) {
        return fallback;
    }
    return static_cast<int>(v);
}

long long monotonicMs()
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}
}  // namespace

int ConnectionManager::frameDeadlineSeconds()
{
    return positiveEnv("GDS_FRAME_DEADLINE", kDefaultFrameDeadline, 3600);
}

int ConnectionManager::maxConnectionsSetting()
{
    return positiveEnv("GDS_MAX_CONNECTIONS", kDefaultMaxConnections, 65536);
}

ConnectionManager::ConnectionManager(GUIDataServer& server)
    : m_server(server),
      m_legacySocket(0),
      m_nxtGenSocket(0),
      m_log("ConnectionManager"),
      m_frameDeadlineMs(frameDeadlineSeconds() * 1000),
      m_maxConnections(maxConnectionsSetting())
{
}

void ConnectionManager::fitDescriptorLimit()
{
    // Beyond the original design, which has no limit: idle clients must
    // never use up the descriptors (accept would then fail for everyone).
    struct rlimit lim;
    if (getrlimit(RLIMIT_NOFILE, &lim) != 0) {
        return;
    }
    if (lim.rlim_cur < lim.rlim_max) {
        lim.rlim_cur = lim.rlim_max;
        setrlimit(RLIMIT_NOFILE, &lim);
        getrlimit(RLIMIT_NOFILE, &lim);
    }
    // Each connection holds one descriptor; tools started for a request
    // need a few pipes, the libraries and logs a few more.
    rlim_t room = lim.rlim_cur > 96 ? (lim.rlim_cur - 64) / 2 : 16;
    if (lim.rlim_cur != RLIM_INFINITY && static_cast<rlim_t>(m_maxConnections) > room) {
        m_maxConnections = static_cast<int>(room);
    }
    m_log.logInfo("ConnectionManager: at most %i connections at once, frame deadline %i s.\n", m_maxConnections,
                  m_frameDeadlineMs / 1000);
}

void ConnectionManager::connectionStarted(const void* handler, int fd)
{
    std::lock_guard<std::mutex> lock(m_connMutex);
    m_connections[handler] = ConnectionSlot{fd, monotonicMs(), false, false};
    if (m_connections.size() > m_peakSinceTrim) {
        m_peakSinceTrim = m_connections.size();
    }
}

void ConnectionManager::connectionBusy(const void* handler, bool busy)
{
    std::lock_guard<std::mutex> lock(m_connMutex);
    auto it = m_connections.find(handler);
    if (it != m_connections.end()) {
        it->second.busy = busy;
        if (!busy) {
            it->second.idleSince = monotonicMs();
        }
    }
}

void ConnectionManager::connectionClosing(const void* handler)
{
    // Under the lock, so an eviction never shuts down a descriptor number
    // that the handler has closed and something else has reused.
    std::lock_guard<std::mutex> lock(m_connMutex);
    auto it = m_connections.find(handler);
    if (it != m_connections.end()) {
        it->second.fd = -1;
    }
}

void ConnectionManager::connectionEnded(const void* handler)
{
    bool trim = false;
    {
        std::lock_guard<std::mutex> lock(m_connMutex);
        m_connections.erase(handler);
        // After a burst has mostly closed, the memory of its connections
        // goes back to the system (the controller's memory is small, and
        // free() alone keeps it in the process).
        if (m_peakSinceTrim >= kTrimAfterBurst && m_connections.size() <= m_peakSinceTrim / 4) {
            m_peakSinceTrim = m_connections.size();
            trim = true;
            m_trimAtLast = true;
        }
        // The burst's last connections free their memory after that trim,
        // some of it only when their threads have ended: once none is left,
        // the accept loop trims once more a second later.
        if (m_connections.empty() && m_trimAtLast) {
            m_trimAtLast = false;
            m_trimOwed = true;
        }
    }
    if (trim) {
        malloc_trim(0);
    }
}

int ConnectionManager::openConnections()
{
    std::lock_guard<std::mutex> lock(m_connMutex);
    int n = 0;
    for (auto& entry : m_connections) {
        if (!entry.second.evicted && entry.second.fd >= 0) {
            ++n;
        }
    }
    return n;
}

bool ConnectionManager::evictIdleLocked()
{
    ConnectionSlot* oldest = nullptr;
    for (auto& entry : m_connections) {
        ConnectionSlot& slot = entry.second;
        if (slot.busy || slot.evicted || slot.fd < 0) {
            continue;
        }
        if (oldest == nullptr || slot.idleSince < oldest->idleSince) {
            oldest = &slot;
        }
    }
    if (oldest == nullptr) {
        return false;
    }
    // shutdown, not close: the connection's thread wakes up from its read,
    // ends and closes its own descriptor.
    shutdown(oldest->fd, SHUT_RDWR);
    oldest->evicted = true;
    m_log.logWarning("ConnectionManager: closing the connection idle for %i s to admit a new client.\n",
                     static_cast<int>((monotonicMs() - oldest->idleSince) / 1000));
    return true;
}

bool ConnectionManager::makeRoomForConnection()
{
    std::lock_guard<std::mutex> lock(m_connMutex);
    int open = 0;
    for (auto& entry : m_connections) {
        if (!entry.second.evicted && entry.second.fd >= 0) {
            ++open;
        }
    }
    while (open >= m_maxConnections) {
        if (!evictIdleLocked()) {
            return false;
        }
        --open;
    }
    return true;
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
    fitDescriptorLimit();
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
    // dlopen of an empty name returns the program itself, whose every
    // symbol (abort, exit) could then be called as the entry point.
    if (libFile.empty()) {
        printf(" Failed to load library \"\" with error: the handler has no libFile\n");
        return false;
    }
    if (entryPoint.empty()) {
        printf(" Failed to find entry point \"\" in library \"%s\": the handler has no entryPoint\n", libFile.c_str());
        return false;
    }
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
    // A page's burst of connections must not overflow the queue (beyond the
    // original backlog of 5, which made clients wait for SYN retries).
    if (listen(s, kListenBacklog) < 0) {
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
    // Close-on-exec from the start: tools started for a request never inherit it.
    int fd = accept4(listenFd, reinterpret_cast<sockaddr*>(&client), &len, SOCK_CLOEXEC);
    if (fd < 0) {
        int err = errno;
        perror("Error in socket accept call");
        if (err == EMFILE || err == ENFILE) {
            // Out of descriptors (tools may hold some): free one by closing
            // the connection idle longest rather than locking everyone out.
            {
                std::lock_guard<std::mutex> lock(m_connMutex);
                evictIdleLocked();
            }
            usleep(100 * 1000);
        } else {
            sleep(5);
        }
        return false;
    }
    if (!makeRoomForConnection()) {
        // Every connection is in the middle of a request: none is idle.
        m_log.logWarning("ConnectionManager: %i connections busy, refusing a new client.\n", m_maxConnections);
        close(fd);
        return true;
    }
    // A peer that stops reading cannot hold a reply writer for ever.
    struct timeval sendTimeout = {m_frameDeadlineMs / 1000, (m_frameDeadlineMs % 1000) * 1000};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &sendTimeout, sizeof sendTimeout);
    // A long reply leaves in several packets of at most 1024 bytes: without
    // TCP_NODELAY each packet after the first waits for the web server's
    // delayed acknowledgement (about 40 ms on loopback). Every packet is
    // already one gathered write, so nothing is gained by Nagle's delay.
    int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    m_log.logTrace("ConnectionManager: Setting up a handler for a new client connection.\n");
    ConnectionHandler* handler = nullptr;
    try {
        // The console lines of a new connection; each on a line of its own.
        puts("Creating data socket.");
        GUIDataSocket socket(fd, client);
        puts("Creating handler.");
        handler = new ConnectionHandler(*this, socket, nxtGen);
        puts("Setting parent log");
        handler->setLog(m_log.getParentLog());
        if (handler->startProcessing()) {
            return true;
        }
        // No thread could be made (resources exhausted): drop this client
        // and keep serving the others.
        m_log.logError("ConnectionManager: could not start a connection thread.\n");
    } catch (const std::bad_alloc&) {
        // No memory for the connection (the controller's address space is
        // small): this client is dropped, the server goes on.
        m_log.logError("ConnectionManager: out of memory for a new connection, closing it.\n");
    } catch (...) {
        m_log.logError("ConnectionManager: a new connection could not be set up, closing it.\n");
    }
    if (handler != nullptr) {
        handler->closeSocket();
        delete handler;
    } else {
        close(fd);
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
        // Wakes once a second when idle, for the trim owed after a burst.
        struct timeval second = {1, 0};
        int ready = select(maxFd + 1, &readSet, nullptr, &exceptSet, &second);
        if (ready < 0) {
            perror("select");
            sleep(5);
            continue;
        }
        if (ready == 0) {
            // The thread that ended last waits to be joined by the next one
            // to end; when none ends for a second, its stack comes back here.
            ConnectionThreads::joinEnded();
            if (m_trimOwed.exchange(false)) {
                malloc_trim(0);
            }
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
