// AgentHarness: a server, a connection manager and one connection handler
// over a socket pair, without threads, so agents can be driven directly and
// their replies read back. Builds a TestRoot seeded from sim/root first.
// One per test, on the test's thread; owns everything it builds.
#pragma once

#include <memory>
#include <string>

#include "ConnectionHandler.h"
#include "ConnectionManager.h"
#include "GUIDataServer.h"
#include "TestRoot.h"

class AgentHarness {
public:
    explicit AgentHarness(int privileges = 0x7f);
    ~AgentHarness();

    TestRoot& root() { return *m_root; }
    GUIDataServer& server() { return *m_server; }
    ConnectionHandler& connection() { return *m_connection; }
    GUIDataSocket& socket() { return m_connection->getSocket(); }
    DataHandler& dataHandler() { return *m_connection->getDataHandlers()[0]; }

    // Runs a request through request processing as the connection would.
    std::string request(const std::string& text, int privileges = 0x7f);
    // The reply data written so far (all packets joined), after a flush.
    std::string reply();

private:
    std::unique_ptr<TestRoot> m_root;
    GUIDataServer* m_server;
    ConnectionManager* m_manager;
    ConnectionHandler* m_connection;
    int m_peer;
};
