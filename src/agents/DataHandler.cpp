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

const std::shared_ptr<const DataHandler::NameTable>& emptyTable()
{
    static const std::shared_ptr<const DataHandler::NameTable> empty = std::make_shared<DataHandler::NameTable>();
    return empty;
}

// Enters one registration into a table that is not shared.
void insertName(DataHandler::NameTable& table, const std::string& name, uint16_t slot, AComponentLog& log)
{
    auto it = std::lower_bound(table.names.begin(), table.names.end(), name);
    size_t at = static_cast<size_t>(it - table.names.begin());
    if (it != table.names.end() && *it == name) {
        log.logWarning("!!!!!!!!!prop name %s already registered!!!!!!!!! \n", name.c_str());
        table.agents[at] = slot;
    } else {
        table.names.insert(it, name);
        table.agents.insert(table.agents.begin() + static_cast<std::ptrdiff_t>(at), slot);
    }
    table.order.push_back(name);
    table.orderSlots.push_back(slot);
}

}  // namespace

DataHandler::DataHandler(ConnectionHandler& connection) : m_names(emptyTable()), m_connection(&connection), m_log("") {}

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
    if (name != nullptr && agent != nullptr) {
        addName(name, slotOf({agent, nullptr}));
    }
}

void DataHandler::addAgent(const char* name, AgentMaker make)
{
    if (name != nullptr && make != nullptr) {
        addName(name, slotOf({nullptr, make}));
    }
}

size_t DataHandler::slotOf(const Slot& key)
{
    // An agent made by a maker is known by its maker, a given one by itself.
    auto it = std::find_if(m_agents.begin(), m_agents.end(), [&](const Slot& s) {
        return key.make != nullptr ? s.make == key.make : s.make == nullptr && s.agent == key.agent;
    });
    if (it == m_agents.end()) {
        m_agents.push_back(key);
        return m_agents.size() - 1;
    }
    return static_cast<size_t>(it - m_agents.begin());
}

void DataHandler::addName(const char* name, size_t slot)
{
    if (slot > UINT16_MAX) {
        m_log.logError("too many agents on one handler, %s not registered\n", name);
        return;
    }
    const uint16_t index = static_cast<uint16_t>(slot);
    if (m_namesState == TableState::kMatching) {
        if (m_matched == 0) {
            // The first registration picks the table to compare with.
            std::lock_guard<std::mutex> lock(g_tablesMutex);
            for (const auto& weak : g_tables) {
                std::shared_ptr<const NameTable> held = weak.lock();
                if (held && !held->order.empty() && held->order[0] == name && held->orderSlots[0] == index) {
                    m_candidate = std::move(held);
                    break;
                }
            }
        }
        const NameTable* c = m_candidate.get();
        if (c != nullptr && m_matched < c->order.size() && c->orderSlots[m_matched] == index &&
            c->order[m_matched] == name) {
            ++m_matched;
            return;
        }
        // A registration of its own: the table is built from the ones that
        // matched so far, then this one.
        auto own = std::make_shared<NameTable>();
        for (size_t i = 0; i < m_matched; ++i) {
            insertName(*own, c->order[i], c->orderSlots[i], m_log);
        }
        m_names = std::move(own);
        m_candidate.reset();
        m_namesState = TableState::kOwn;
    } else if (m_namesState == TableState::kShared) {
        // Copy on write: other connections may be reading the table.
        m_names = std::make_shared<NameTable>(*m_names);
        m_namesState = TableState::kOwn;
    }
    // kOwn: made non-const above, changed in place.
    insertName(const_cast<NameTable&>(*m_names), name, index, m_log);
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
    if (m_namesState == TableState::kShared) {
        return;
    }
    if (m_namesState == TableState::kMatching) {
        if (m_candidate != nullptr && m_matched == m_candidate->order.size()) {
            m_names = std::move(m_candidate);
        }
        m_candidate.reset();  // no registration at all keeps the empty table
        m_namesState = TableState::kShared;
        return;
    }
    m_namesState = TableState::kShared;
    std::lock_guard<std::mutex> lock(g_tablesMutex);
    size_t live = 0;
    for (auto& weak : g_tables) {
        std::shared_ptr<const NameTable> held = weak.lock();
        if (held && held->order == m_names->order && held->orderSlots == m_names->orderSlots) {
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

const DataHandler::NameTable& DataHandler::names()
{
    if (m_namesState == TableState::kMatching) {
        shareNames();
    }
    return *m_names;
}

DataAgent* DataHandler::getDataAgentFor(std::string& name)
{
    const NameTable& table = names();
    auto it = std::lower_bound(table.names.begin(), table.names.end(), name);
    if (it == table.names.end() || *it != name) {
        return nullptr;
    }
    return agentAt(table.agents[static_cast<size_t>(it - table.names.begin())]);
}

DataHandler::AgentTable DataHandler::getAgentMap()
{
    const NameTable& table = names();
    AgentTable copy;
    copy.reserve(table.names.size());
    for (size_t i = 0; i < table.names.size(); ++i) {
        copy.emplace_back(table.names[i], agentAt(table.agents[i]));
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
