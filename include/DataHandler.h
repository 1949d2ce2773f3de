// DataHandler: one connection's registry from property name to the agent
// that serves it, plus user-interface to property-service name mappings.
// Used only on its connection's thread. Owns every agent registered through
// addAgent (each deleted once, however many names it has).
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "AComponentLog.h"

class ConnectionHandler;
class DataAgent;

class DataHandler {
public:
    explicit DataHandler(ConnectionHandler& connection);
    virtual ~DataHandler();
    DataHandler(const DataHandler&) = delete;
    DataHandler& operator=(const DataHandler&) = delete;

    void initialize() {}
    // Registers `agent` under `name` (a later registration of the name wins,
    // with a warning) and takes ownership of it.
    void addAgent(const char* name, DataAgent* agent);
    DataAgent* getDataAgentFor(std::string& name);
    // Every registered name with its agent, sorted by name (read-only), for
    // tools that list what a connection serves.
    using AgentTable = std::vector<std::pair<std::string, DataAgent*>>;
    const AgentTable& getAgentMap() const { return m_agentMap; }
    void addPropertyMap(std::string& name, std::string& aimName);
    std::string getAIMPropertyFor(std::string& name);
    ConnectionHandler* getConnectionHandler() { return m_connection; }
    void setLog(ALog& log);
    AComponentLog& getLog() { return m_log; }
    void log(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Splits "name(a,b,...)": `name` (a buffer of at least 256 characters)
    // gets the text before "(", `arguments` the comma-separated pieces
    // (always at least one). 1 on success, 0 for a malformed call.
    int parseFunction(std::string& text, char*& name, std::vector<std::string>& arguments);

protected:
    std::map<std::string, std::string> m_propertyMap;
    // Sorted by name: every connection holds one, and a sorted vector costs
    // about half the memory of a map's nodes.
    AgentTable m_agentMap;
    std::set<DataAgent*> m_agents;
    ConnectionHandler* m_connection;
    AComponentLog m_log;
};
