// DefaultPropertyAgent: serves every user-interface property that no other
// agent claims, through a table read from the property map file: a get reads
// the property-service value behind the name, a set checks the privilege
// bits and integer bounds and writes it. One per connection (and one inside
// each ServiceAgent); used on its connection's thread. The table is shared
// read-only by all agents (sharedTable); each agent owns its request entries.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "DataAgent.h"
#include "PropertyInfo.h"

class AIMClient;

class DefaultPropertyAgent : public DataAgent {
public:
    explicit DefaultPropertyAgent(DataHandler& handler, const char* name = "DefaultPropertyAgent");
    ~DefaultPropertyAgent() override;

    int initialize() override;
    int preProcessGet(std::string& name, std::string& extra) override;
    int processGet() override;
    int postProcessGet(ConnectionHandler& connection) override;
    int preProcessSet(std::string& name, TokenMap& arguments) override;
    int processSet() override;
    int postProcessSet(ConnectionHandler& connection, TokenMap& arguments) override;

    bool getAimName(std::string& name, std::string& aimName);
    void loadPropertyFile(FILE* file, std::vector<std::string>& names, std::vector<std::string>& aimNames,
                          std::vector<std::string>& types, std::vector<int>& privileges,
                          std::vector<std::string>& maxValues, std::vector<std::string>& minValues);

    typedef std::map<std::string, PropertyInfo> PropertyTable;
    const PropertyTable& getPropertyTable() const { return *m_propertyTable; }

    // The property map file's table, parsed once and shared by every agent
    // of every connection. Each call checks with one stat whether the file
    // changed (modification time, size, inode, name); a changed file is
    // parsed again (its messages written through `agent`'s log) and serves
    // the agents created from then on, while older agents keep the table
    // they started with. Thread-safe.
    static std::shared_ptr<const PropertyTable> sharedTable(DefaultPropertyAgent& agent);

protected:
    AIMClient& aim();
    // The request entry for `info`: a per-request copy, so that the shared
    // table is never written.
    PropertyInfo* queue(const PropertyInfo& info);

    std::vector<PropertyInfo*> m_requestList;
    std::shared_ptr<const PropertyTable> m_propertyTable;
    std::list<PropertyInfo> m_requestEntries;  // what m_requestList points into (empty: no memory)
};
