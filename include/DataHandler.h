// DataHandler: one connection's registry from property name to the agent
// that serves it, plus user-interface to property-service name mappings.
// Used only on its connection's thread. Owns every agent registered through
// addAgent (each deleted once, however many names it has); the name table
// itself may be shared, read-only, with other connections (shareNames).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
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
    // Registers `name` for an agent that `make` builds on the first request
    // that names it (the handler then owns it). Names registered with the
    // same `make` share one agent. A connection pays only for the agents
    // its requests use.
    using AgentMaker = DataAgent* (*)(DataHandler& handler);
    void addAgent(const char* name, AgentMaker make);
    DataAgent* getDataAgentFor(std::string& name);
    // Every registered name with its agent, sorted by name: a copy, for
    // tools that list what a connection serves (it builds every agent).
    using AgentTable = std::vector<std::pair<std::string, DataAgent*>>;
    AgentTable getAgentMap();
    // Called once the handler is built. Every connection of a handler
    // library registers the same names in the same order, so the name table
    // is held once per process instead of once per connection: a handler
    // whose registrations repeat those of a table already in use takes that
    // table (checking them costs a comparison each, no copy); other tables
    // are kept to be shared with later connections. A later addAgent
    // copies the table back first.
    void shareNames();
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

    // Sorted names, each with the index of its agent in the handler's
    // agents (in first-registration order), and the registrations that
    // made it. Immutable once shared.
    struct NameTable {
        std::vector<std::string> names;
        std::vector<uint16_t> agents;
        std::vector<std::string> order;
        std::vector<uint16_t> orderSlots;
    };

protected:
    // One agent of the handler: built (agent) or still to be built (make).
    struct Slot {
        DataAgent* agent;
        AgentMaker make;
    };
    DataAgent* agentAt(size_t slot);
    size_t slotOf(const Slot& key);  // its index, added when new
    void addName(const char* name, size_t slot);
    // The table, settled first if the handler is still being built.
    const NameTable& names();

    std::map<std::string, std::string> m_propertyMap;
    std::shared_ptr<const NameTable> m_names;
    // While the registrations repeat those of m_candidate, m_names stays
    // empty and only m_matched counts them; then the table is this
    // handler's own until shareNames, and shared (read-only) after it.
    enum class TableState { kMatching, kOwn, kShared } m_namesState = TableState::kMatching;
    std::shared_ptr<const NameTable> m_candidate;
    size_t m_matched = 0;
    std::vector<Slot> m_agents;  // distinct, in first-registration order; owned
    ConnectionHandler* m_connection;
    AComponentLog m_log;
};
