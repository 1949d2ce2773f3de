#include "DefaultPropertyAgent.h"

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "AIMClient.h"
#include "AInteger.h"
#include "ConnectionHandler.h"
#include "DataHandler.h"
#include "GUIDataServer.h"
#include "NumberFormatException.h"
#include "PlatformRoot.h"
#include "SecurityException.h"
#include "gds_number.h"

namespace {
// What identifies one version of the map file.
struct MapFileKey {
    std::string name;
    bool present = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    struct timespec modified = {0, 0};

    bool operator==(const MapFileKey& o) const
    {
        return name == o.name && present == o.present && device == o.device && inode == o.inode && size == o.size &&
               modified.tv_sec == o.modified.tv_sec && modified.tv_nsec == o.modified.tv_nsec;
    }
};

MapFileKey keyOf(const std::string& name, const struct stat* st)
{
    MapFileKey key;
    key.name = name;
    if (st != nullptr) {
        key.present = true;
        key.device = st->st_dev;
        key.inode = st->st_ino;
        key.size = st->st_size;
        key.modified = st->st_mtim;
    }
    return key;
}

std::mutex g_tableMutex;
std::shared_ptr<const DefaultPropertyAgent::PropertyTable> g_table;
MapFileKey g_tableKey;
}  // namespace

std::shared_ptr<const DefaultPropertyAgent::PropertyTable> DefaultPropertyAgent::sharedTable(
    DefaultPropertyAgent& agent)
{
    // Beyond the original design, which reads and parses the file for every
    // agent (twice per connection): parsing a large map dominated the cost
    // of a connection, so the table is parsed once per version of the file.
    // An edit still takes effect at the next connection.
    const char* env = getenv("MORVANE_MAP_PROP_FILE");
    std::string fileName =
        env != nullptr ? std::string(env) : PlatformRoot::path("/usr/local/etc/appweb/map.properties");
    struct stat st;
    MapFileKey now = keyOf(fileName, stat(fileName.c_str(), &st) == 0 ? &st : nullptr);
    std::lock_guard<std::mutex> lock(g_tableMutex);
    if (g_table != nullptr && now == g_tableKey) {
        return g_table;
    }
    AComponentLog& log = agent.m_log;
    log.logInfo(" ENV: MORVANE_MAP_PROP_FILE=%s\n", env != nullptr ? env : "(null)");
    log.logInfo(" Attempting to open property map file: %s\n", fileName.c_str());
    auto table = std::make_shared<PropertyTable>();
    FILE* file = fopen(fileName.c_str(), "r");
    if (file == nullptr) {
        g_table = table;  // an empty table: mapped names answer nothing
        g_tableKey = keyOf(fileName, nullptr);
        return g_table;
    }
    // The key of what is read, not of what was stat'ed a moment ago.
    g_tableKey = keyOf(fileName, fstat(fileno(file), &st) == 0 ? &st : nullptr);
    std::vector<std::string> names, aimNames, types, maxValues, minValues;
    std::vector<int> privileges;
    agent.loadPropertyFile(file, names, aimNames, types, privileges, maxValues, minValues);
    fclose(file);
    for (size_t i = 0; i < names.size(); ++i) {
        int type = PropertyInfo::typeFromText(types[i]);
        if (type == 0) {
            // Entered all the same: a get reports the type as unknown, a set
            // stores the value as text.
            log.logError("Unknown property type (%s) read from %s.\n", types[i].c_str(), fileName.c_str());
        }
        log.logInfo(" Adding property %s: (%s,%i,%i)\n", names[i].c_str(), aimNames[i].c_str(), type, privileges[i]);
        // A later line with the same name replaces the earlier entry.
        PropertyInfo info(names[i], aimNames[i], type, privileges[i], maxValues[i], minValues[i]);
        auto it = table->find(names[i]);
        if (it != table->end()) {
            it->second = info;
        } else {
            table->emplace(names[i], info);
        }
    }
    g_table = table;
    return g_table;
}

DefaultPropertyAgent::DefaultPropertyAgent(DataHandler& handler, const char* name) : DataAgent(name, handler)
{
    m_log.logTrace("Initializing DefaultPropertyAgent\n");
    m_propertyTable = sharedTable(*this);
}

DefaultPropertyAgent::~DefaultPropertyAgent()
{
    m_requestList.clear();
    m_requestEntries.clear();
    m_log.logTrace("DefaultPropertyAgent.Destructor done\n");
}

PropertyInfo* DefaultPropertyAgent::queue(const PropertyInfo& info)
{
    m_requestEntries.push_back(info);
    PropertyInfo* entry = &m_requestEntries.back();
    entry->value.clear();
    entry->stored = false;
    m_requestList.push_back(entry);
    return entry;
}

AIMClient& DefaultPropertyAgent::aim()
{
    return m_dataHandler->getConnectionHandler()->getServer().getAIMClient();
}

void DefaultPropertyAgent::loadPropertyFile(FILE* file, std::vector<std::string>& names,
                                            std::vector<std::string>& aimNames, std::vector<std::string>& types,
                                            std::vector<int>& privileges, std::vector<std::string>& maxValues,
                                            std::vector<std::string>& minValues)
{
    char line[1024];
    int lineNumber = 0;
    while (fgets(line, sizeof line, file) != nullptr) {
        ++lineNumber;
        if (line[0] == '#') {
            continue;
        }
        std::string text(line);
        size_t c1 = text.find(',');
        size_t c2 = c1 == std::string::npos ? c1 : text.find(',', c1 + 1);
        size_t c3 = c2 == std::string::npos ? c2 : text.find(',', c2 + 1);
        if (c3 == std::string::npos) {
            m_log.logError("Failed to load property definition from line number %i: %s\n", lineNumber, line);
            printf("Failed to load property definition from line number %i: %s\n", lineNumber, line);
            continue;
        }
        size_t c4 = text.find(',', c3 + 1);
        size_t c5 = c4 == std::string::npos ? c4 : text.find(',', c4 + 1);
        std::string name = text.substr(0, c1);
        std::string aimName = text.substr(c1 + 1, c2 - c1 - 1);
        std::string type = text.substr(c2 + 1, c3 - c2 - 1);
        std::string privilege = c4 == std::string::npos ? text.substr(c3 + 1) : text.substr(c3 + 1, c4 - c3 - 1);
        std::string minValue;
        std::string maxValue;
        if (c4 != std::string::npos) {
            minValue = c5 == std::string::npos ? text.substr(c4 + 1) : text.substr(c4 + 1, c5 - c4 - 1);
            if (c5 != std::string::npos) {
                maxValue = text.substr(c5 + 1);
            }
        }
        m_log.logInfo(" Adding property definition: \"%s\", \"%s\", \"%s\", \"%s\"\n", name.c_str(), aimName.c_str(),
                      type.c_str(), privilege.c_str());
        int privilegeBits;
        try {
            privilegeBits = AInteger::parseInt(privilege.c_str());
        } catch (NumberFormatException&) {
            // Reported and skipped like a line without enough commas.
            m_log.logError("Failed to load property definition from line number %i: %s\n", lineNumber, line);
            printf("Failed to load property definition from line number %i: %s\n", lineNumber, line);
            continue;
        }
        names.push_back(name);
        aimNames.push_back(aimName);
        types.push_back(type);
        privileges.push_back(privilegeBits);
        maxValues.push_back(maxValue);
        minValues.push_back(minValue);
    }
}

int DefaultPropertyAgent::initialize()
{
    m_log.logInfo("Call to DefaultPropertyAgent::initialize()\n");
    m_status = 1;
    m_requestList.clear();
    m_requestEntries.clear();
    return 1;
}

bool DefaultPropertyAgent::getAimName(std::string& name, std::string& aimName)
{
    auto it = m_propertyTable->find(name);
    if (it == m_propertyTable->end()) {
        if (ALog::takeItemLine()) {
            printf("DefaultPropertyAgent::getAimName::Property not found: \"%s\"\n",
                   ALog::escapeControls(name.c_str(), false).c_str());
        }
        aimName.clear();
        m_status = 2;
        return true;
    }
    aimName = it->second.aimName;
    m_status = 1;
    return true;
}

int DefaultPropertyAgent::preProcessGet(std::string& name, std::string& extra)
{
    m_log.logTrace("call to DefaultPropertyAgent::preProcessGet\n");
    auto it = m_propertyTable->find(name);
    if (it != m_propertyTable->end()) {
        queue(it->second);
    } else if (ALog::takeItemLine()) {  // one request cannot flood the log
        m_log.logInfo(" DefaultPropertyAgent::Property not found: \"%s\"\n", name.c_str());
    }
    return 1;
}

int DefaultPropertyAgent::processGet()
{
    // The request's console lines go out with its log lines (ALog::console:
    // no lock shared with other connections).
    ALog::console("%s\n", "\n  Call to DefaultPropertyAgent::processGet()");
    m_log.logTrace("call to DefaultPropertyAgent::processGet\n");
    AIMClient& client = aim();
    char buffer[1024];
    for (PropertyInfo* info : m_requestList) {
        if (ALog::takeItemLine()) {
            ALog::console(" name(%s), type(%i)\n", ALog::escapeControls(info->aimName.c_str(), false).c_str(),
                          info->type);
        }
        const char* aimName = info->aimName.c_str();
        switch (info->type) {
            case PropertyInfo::INT: {
                int n = 0;
                if (client.getProperty(aimName, n)) {
                    info->value = AInteger::toString(n);
                } else {
                    info->value.clear();
                    m_status |= 2;
                }
                break;
            }
            case PropertyInfo::BOOL: {
                bool b = false;
                if (client.getProperty(aimName, b)) {
                    info->value = b ? "1" : "0";
                } else {
                    info->value.clear();
                    m_status |= 2;
                }
                break;
            }
            case PropertyInfo::STRING:
            case PropertyInfo::CRYPT: {
                if (info->aimName.empty()) {
                    m_status |= 2;
                    break;
                }
                memset(buffer, 0, sizeof buffer);
                bool ok = info->type == PropertyInfo::STRING ? client.getProperty(aimName, buffer)
                                                             : client.getPropertyCrypt(aimName, buffer);
                if (ok) {
                    info->value = buffer;
                } else {
                    info->value.clear();
                    m_status |= 2;
                }
                break;
            }
            default:
                m_log.logError("Unknown property type %i\n", info->type);
                m_status |= 2;
                break;
        }
    }
    return m_status;
}

int DefaultPropertyAgent::postProcessGet(ConnectionHandler& connection)
{
    ALog::console("%s", " post process get");
    for (PropertyInfo* info : m_requestList) {
        connection.getSocket().writeSimpleElement(info->name.c_str(), info->value.c_str());
    }
    // The last step of a get: the request's entries and values are given
    // back, so an idle connection keeps nothing of the request it answered.
    std::vector<PropertyInfo*>().swap(m_requestList);
    m_requestEntries.clear();
    return 1;
}

int DefaultPropertyAgent::preProcessSet(std::string& name, TokenMap& arguments)
{
    int mask = m_dataHandler->getConnectionHandler()->getPrivileges();
    auto it = m_propertyTable->find(name);
    if (it == m_propertyTable->end()) {
        return 1;  // left to other agents
    }
    const PropertyInfo& entry = it->second;
    m_log.logTrace("%s: preProcessSet for %s\n", "DefaultPropertyAgent", name.c_str());
    auto arg = arguments.find(name);
    if (arg == arguments.end()) {
        throw Exception("Unable to get value for " + name);
    }
    if (mask != 0 && (mask & entry.privilege) == 0) {
        m_status = 2;
        printf("DefaultPropertyAgent::preProcessSet  Insufficient privileges.; mask(%i) vrs. propPriv(%i)\n", mask,
               entry.privilege);
        throw SecurityException(0, "Insufficient privileges.");
    }
    m_status = 1;
    PropertyInfo* info = queue(entry);
    // A name present with no argument at all sets the empty text.
    info->value = arg->second.empty() ? std::string() : arg->second[0].toString();
    return 1;
}

int DefaultPropertyAgent::processSet()
{
    AIMClient& client = aim();
    for (PropertyInfo* info : m_requestList) {
        const char* aimName = info->aimName.c_str();
        m_log.logInfo("DefaultPropertyAgent: set( %s, %s, type=%i )\n", aimName, info->value.c_str(), info->type);
        if (info->type == PropertyInfo::BOOL || info->type == PropertyInfo::INT) {
            int n;
            try {
                n = AInteger::parseInt(info->value.c_str());
            } catch (NumberFormatException&) {
                m_log.logError("Cannot parse \"%s\" as an integer value.\n", info->value.c_str());
                m_status = 2;
                info->stored = false;
                continue;
            }
            if (info->type == PropertyInfo::BOOL) {
                info->stored = client.setProperty(aimName, n != 0, true);
                continue;
            }
            if (!info->minValue.empty() || !info->maxValue.empty()) {
                // An empty bound reads as 0; a bound holding "*" is no bound.
                bool tooHigh = info->maxValue.find('*') == std::string::npos &&
                               n > gds_strtol32(info->maxValue.c_str(), nullptr, 0);
                bool tooLow = info->minValue.find('*') == std::string::npos &&
                              n < gds_strtol32(info->minValue.c_str(), nullptr, 0);
                if (tooHigh || tooLow) {
                    m_status = 2;
                    info->stored = false;
                    return m_status;  // the entries after it are not written
                }
            }
            info->stored = client.setProperty(aimName, n, true);
            continue;
        }
        std::string copy = info->value;
        bool ok = info->type == PropertyInfo::CRYPT ? client.setPropertyCrypt(aimName, &copy[0], true)
                                                    : client.setProperty(aimName, &copy[0], true);
        if (ok) {
            info->stored = true;
        } else {
            m_log.logError("DefaultPropertyAgent: failed to set %s\n", aimName);
            m_status = 2;
            info->stored = false;
        }
    }
    return m_status;
}

int DefaultPropertyAgent::postProcessSet(ConnectionHandler& connection, TokenMap& arguments)
{
    return m_status;
}
