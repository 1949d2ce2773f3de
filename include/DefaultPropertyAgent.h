// DefaultPropertyAgent: serves every user-interface property that no other
// agent claims, through a table read from the property map file: a get reads
// the property-service value behind the name, a set checks the privilege
// bits and integer bounds and writes it. One per connection (and one inside
// each ServiceAgent); used on its connection's thread; owns its table.
#pragma once

#include <cstdio>
#include <map>
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

    const std::map<std::string, PropertyInfo*>& getPropertyTable() const { return m_propertyTable; }

protected:
    AIMClient& aim();

    std::vector<PropertyInfo*> m_requestList;
    std::map<std::string, PropertyInfo*> m_propertyTable;
};
