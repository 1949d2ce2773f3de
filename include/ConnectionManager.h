// ConnectionManager: owns the two listening sockets (legacy port and the
// next-generation port), loads the handler libraries and runs the accept
// loop, giving each client its own ConnectionHandler thread. Main thread
// only, except the connection table (connection*), which connection threads
// update under its mutex; the factory list is filled before the first
// connection and read-only afterwards. Does not own the factories (the
// libraries do) nor the handlers (each deletes itself).
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "AComponentLog.h"
#include "HandlerFactory.h"

class GUIDataServer;

class ConnectionManager {
public:
    // The next-generation port is fixed at 8197; GDS_NXTGEN_PORT may move it
    // so that tests and development servers can run side by side.
    static const int kNxtGenPort = 8197;
    static int nxtGenPort();
    // Limits against hostile or broken local clients (docs/wire-protocol.md):
    // a frame once begun must be whole within GDS_FRAME_DEADLINE seconds
    // (default 15), and a reply write may make no progress for as long;
    // at most GDS_MAX_CONNECTIONS connections (default 256) are open at once.
    static const int kDefaultFrameDeadline = 15;
    static const int kDefaultMaxConnections = 256;
    static int frameDeadlineSeconds();
    static int maxConnectionsSetting();
    static const int kListenBacklog = 64;

    explicit ConnectionManager(GUIDataServer& server);
    virtual ~ConnectionManager();
    ConnectionManager(const ConnectionManager&) = delete;
    ConnectionManager& operator=(const ConnectionManager&) = delete;

    void setLog(ALog& log);
    // 0 when both sockets listen; 1 when either fails.
    int initialize();
    bool loadHandler(std::string& libFile, std::string& entryPoint);
    int setupServerSocket();
    int setupServerSocketNxtGen();
    // Never returns.
    void acceptConnections();

    void addDataHandlerFactory(HandlerFactory* factory);
    std::vector<HandlerFactory*>& getHandlerFactoryList() { return m_factories; }
    GUIDataServer& getServer() { return m_server; }

    // One pass of the accept loop for one listening socket: false after an
    // accept error (and its pause). Never throws: a connection that cannot
    // be set up is closed with a log line.
    bool acceptOne(int listenFd, bool nxtGen);

    int getFrameDeadlineMs() const { return m_frameDeadlineMs; }
    int getMaxConnections() const { return m_maxConnections; }
    void setMaxConnections(int n) { m_maxConnections = n > 0 ? n : 1; }

    // The connection table, called by connection handlers (any thread).
    // Started on construction, busy while a request is processed, closing
    // just before the handler closes its descriptor, ended on destruction.
    void connectionStarted(const void* handler, int fd);
    void connectionBusy(const void* handler, bool busy);
    void connectionClosing(const void* handler);
    void connectionEnded(const void* handler);
    // Open connections that have not been asked to close.
    int openConnections();
    // At the cap, closes (shuts down) the connection idle longest between
    // requests so that a new client is served; false when every connection
    // is busy with a request and none could be closed.
    bool makeRoomForConnection();

private:
    struct ConnectionSlot {
        int fd;               // -1 once the handler closes it
        long long idleSince;  // CLOCK_MONOTONIC milliseconds
        bool busy;
        bool evicted;
    };

    int setupSocket(int port, bool nxtGen, int& fd);
    // Raises the soft descriptor limit to the hard one and keeps the
    // connection cap well below it.
    void fitDescriptorLimit();
    // Shuts down the connection idle longest; false when there is none.
    bool evictIdleLocked();

    GUIDataServer& m_server;
    int m_legacySocket;
    int m_nxtGenSocket;
    AComponentLog m_log;
    std::vector<HandlerFactory*> m_factories;
    int m_frameDeadlineMs;
    int m_maxConnections;
    std::mutex m_connMutex;
    std::map<const void*, ConnectionSlot> m_connections;
    // Connections open at the most since memory was last handed back.
    size_t m_peakSinceTrim = 0;
    bool m_trimAtLast = false;            // trim once more when the last connection ends
    std::atomic<bool> m_trimOwed{false};  // that trim, done by the accept loop when idle
    static const size_t kTrimAfterBurst = 16;
};
