#include "DataHandler.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>

#include "DataAgent.h"

DataHandler::DataHandler(ConnectionHandler& connection) : m_connection(&connection), m_log("") {}

DataHandler::~DataHandler()
{
    m_log.logTrace("DataHandler:: Destructor Start\n");
    for (DataAgent* agent : m_agents) {
        m_log.logTrace("DataHandler.Destructor:: Deleting DataAgent=%s\n", agent->getName());
        delete agent;
    }
    m_agentMap.clear();
    m_agents.clear();
    m_log.logTrace("DataHandler:: Destructor End.\n");
}

void DataHandler::addAgent(const char* name, DataAgent* agent)
{
    if (name == nullptr || agent == nullptr) {
        return;
    }
    auto it = std::lower_bound(m_agentMap.begin(), m_agentMap.end(), name,
                               [](const AgentTable::value_type& e, const char* n) { return e.first < n; });
    if (it != m_agentMap.end() && it->first == name) {
        m_log.logWarning("!!!!!!!!!prop name %s already registered!!!!!!!!! \n", name);
        it->second = agent;
    } else {
        m_agentMap.emplace(it, name, agent);
    }
    m_agents.insert(agent);
}

DataAgent* DataHandler::getDataAgentFor(std::string& name)
{
    auto it = std::lower_bound(m_agentMap.begin(), m_agentMap.end(), name,
                               [](const AgentTable::value_type& e, const std::string& n) { return e.first < n; });
    return it != m_agentMap.end() && it->first == name ? it->second : nullptr;
}

void DataHandler::addPropertyMap(std::string& name, std::string& aimName)
{
    m_propertyMap[name] = aimName;
}

std::string DataHandler::getAIMPropertyFor(std::string& name)
{
    auto it = m_propertyMap.find(name);
    return it != m_propertyMap.end() ? it->second : std::string();
}

void DataHandler::setLog(ALog& log)
{
    m_log.setBaseLog(log);
}

void DataHandler::log(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    m_log.vlog(ALog::kInfo, format, args);
    va_end(args);
}

int DataHandler::parseFunction(std::string& text, char*& name, std::vector<std::string>& arguments)
{
    arguments.clear();
    size_t open = text.find('(');
    size_t close = open == std::string::npos ? std::string::npos : text.find(')', open + 1);
    if (close == std::string::npos) {
        log("Function call missing \"(\": %s\n", text.c_str());
        return 0;
    }
    if (close > 256) {
        log(" Error parsing function, name appears to be longer that %i\n", static_cast<int>(close));
        return 0;
    }
    // The name is at most 255 characters here, since "(" lies before ")".
    memcpy(name, text.data(), open);
    name[open] = '\0';
    std::string inner = text.substr(open + 1, close - open - 1);
    size_t start = 0;
    for (;;) {
        size_t comma = inner.find(',', start);
        if (comma == std::string::npos) {
            arguments.push_back(inner.substr(start));
            break;
        }
        arguments.push_back(inner.substr(start, comma - start));
        start = comma + 1;
    }
    return 1;
}
