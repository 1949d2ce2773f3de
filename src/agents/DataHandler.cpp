#include "DataHandler.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <mutex>

#include "DataAgent.h"

namespace {

// The name tables in use, one per distinct content (in practice one per
// handler library); a table lives as long as a connection holds it.
std::mutex g_tablesMutex;
std::vector<std::weak_ptr<const DataHandler::NameTable>> g_tables;
// More distinct tables than this and new ones stay private: a handler that
// registers names of its own per connection must not grow the list.
const size_t kMaxSharedTables = 64;

}  // namespace

DataHandler::DataHandler(ConnectionHandler& connection)
    : m_names(std::make_shared<NameTable>()), m_connection(&connection), m_log("")
{
}

DataHandler::~DataHandler()
{
    m_log.logTrace("DataHandler:: Destructor Start\n");
    for (const Slot& slot : m_agents) {
        if (slot.agent != nullptr) {
            m_log.logTrace("DataHandler.Destructor:: Deleting DataAgent=%s\n", slot.agent->getName());
            delete slot.agent;
        }
    }
    m_agents.clear();
    m_log.logTrace("DataHandler:: Destructor End.\n");
}

void DataHandler::addAgent(const char* name, DataAgent* agent)
{
    if (name == nullptr || agent == nullptr) {
        return;
    }
    auto it = std::find_if(m_agents.begin(), m_agents.end(), [&](const Slot& s) { return s.agent == agent; });
    if (it == m_agents.end()) {
        m_agents.push_back({agent, nullptr});
        it = m_agents.end() - 1;
    }
    addName(name, static_cast<size_t>(it - m_agents.begin()));
}

void DataHandler::addAgent(const char* name, AgentMaker make)
{
    if (name == nullptr || make == nullptr) {
        return;
    }
    auto it = std::find_if(m_agents.begin(), m_agents.end(), [&](const Slot& s) { return s.make == make; });
    if (it == m_agents.end()) {
        m_agents.push_back({nullptr, make});
        it = m_agents.end() - 1;
    }
    addName(name, static_cast<size_t>(it - m_agents.begin()));
}

void DataHandler::addName(const char* name, size_t slot)
{
    if (slot > UINT16_MAX) {
        m_log.logError("too many agents on one handler, %s not registered\n", name);
        return;
    }
    // Copy on write: once shared, other connections may be reading the
    // table. Until then it is this handler's own (made non-const by the
    // constructor or here), changed in place.
    if (m_namesShared) {
        m_names = std::make_shared<NameTable>(*m_names);
        m_namesShared = false;
    }
    NameTable& table = const_cast<NameTable&>(*m_names);
    auto it = std::lower_bound(table.names.begin(), table.names.end(), name,
                               [](const std::string& e, const char* n) { return e < n; });
    size_t at = static_cast<size_t>(it - table.names.begin());
    if (it != table.names.end() && *it == name) {
        m_log.logWarning("!!!!!!!!!prop name %s already registered!!!!!!!!! \n", name);
        table.agents[at] = static_cast<uint16_t>(slot);
    } else {
        table.names.insert(it, name);
        table.agents.insert(table.agents.begin() + static_cast<std::ptrdiff_t>(at), static_cast<uint16_t>(slot));
    }
}

DataAgent* DataHandler::agentAt(size_t slot)
{
    Slot& s = m_agents[slot];
    if (s.agent == nullptr) {
        s.agent = s.make(*this);  // std::bad_alloc ends the connection
    }
    return s.agent;
}

void DataHandler::shareNames()
{
    if (m_namesShared) {
        return;
    }
    m_namesShared = true;
    std::lock_guard<std::mutex> lock(g_tablesMutex);
    size_t live = 0;
    for (auto& weak : g_tables) {
        std::shared_ptr<const NameTable> held = weak.lock();
        if (held && *held == *m_names) {
            m_names = std::move(held);
            return;
        }
        if (held) {
            g_tables[live++] = weak;
        }
    }
    g_tables.resize(live);
    if (g_tables.size() < kMaxSharedTables) {
        g_tables.push_back(m_names);
    }
}

DataAgent* DataHandler::getDataAgentFor(std::string& name)
{
    const NameTable& table = *m_names;
    auto it = std::lower_bound(table.names.begin(), table.names.end(), name);
    if (it == table.names.end() || *it != name) {
        return nullptr;
    }
    return agentAt(table.agents[static_cast<size_t>(it - table.names.begin())]);
}

DataHandler::AgentTable DataHandler::getAgentMap()
{
    AgentTable copy;
    copy.reserve(m_names->names.size());
    for (size_t i = 0; i < m_names->names.size(); ++i) {
        copy.emplace_back(m_names->names[i], agentAt(m_names->agents[i]));
    }
    return copy;
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
