// ConnectionManager: owns the two listening sockets (legacy port and the
// next-generation port), loads the handler libraries and runs the accept
// loop, giving each client its own ConnectionHandler thread. Main thread
// only; the factory list is filled before the first connection and read-only
// afterwards. Does not own the factories (the libraries do) nor the handlers
// (each deletes itself).
#pragma once

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

private:
    int setupSocket(int port, bool nxtGen, int& fd);
    // False after an accept error (and its pause).
    bool acceptOne(int listenFd, bool nxtGen);

    GUIDataServer& m_server;
    int m_legacySocket;
    int m_nxtGenSocket;
    AComponentLog m_log;
    std::vector<HandlerFactory*> m_factories;
};
