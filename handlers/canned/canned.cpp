// The canned-data handler library (libcanned.so): registers FakeDataAgent,
// which answers the browser interface's pages that have no real agent here
// with fixed sample data.
//
// Which names it takes. A name registered by any data handler wins over the
// default agent's property map, and the first handler (built-in agents, then
// the libraries in load order) that registers a name wins over later ones.
// So that canned data never hides a real answer, the library by default
// registers only the canned names that nothing else serves: no name of a
// built-in agent, of another handler library (loaded before or after it) or
// of the property map. Its configuration section may say otherwise:
//
//     [canned]
//     libFile=.../libcanned.so
//     entryPoint=canned_init
//     names=default,hostname,-users
//
// "names=" lists items separated by commas or blanks: "default" stands for
// the default set above, a canned name adds it (a name of the property map is
// then answered with canned data), "-name" removes it; items apply in order.
// "names=" with nothing after it registers no name. Names that are not canned
// names are reported once at start and ignored; names that a real agent
// serves are reported once (at the first connection, when the other
// libraries' names are known) and left to that agent.
//
// What other handlers serve is learnt once, at the first connection (on the
// accept loop's thread, before that connection's thread starts): the
// handlers made before this one are already in the connection's list; the
// factories registered after it are asked for one handler each, which is read
// and deleted. The result is kept for the life of the process, guarded by a
// mutex. At that point the library also writes what the simulated
// controller offers (agents and their name counts) to /var/canned/agents
// under the platform root, for `make run` to print, and every name with its
// agent to /var/canned/names, for the web front door's name list.
#include <dlfcn.h>
#include <sys/stat.h>
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "AUtil.h"
#include "CannedNames.h"
#include "CommandLine.h"
#include "ConfigFile.h"
#include "ConnectionHandler.h"
#include "ConnectionManager.h"
#include "DataAgent.h"
#include "DataHandler.h"
#include "DefaultPropertyAgent.h"
#include "FakeDataAgent.h"
#include "GUIDataHandler.h"
#include "GUIDataServer.h"
#include "HandlerFactory.h"
#include "PlatformRoot.h"

extern "C" int canned_init(ConnectionManager* manager);

namespace {

const char kEntryPoint[] = "canned_init";
const char kNamesKey[] = "names";
const char kOfferDir[] = "/var/canned";
const char kOfferFile[] = "/var/canned/agents";
const char kNamesFile[] = "/var/canned/names";

class CannedDataHandler : public DataHandler {
    // Built by the first request for a canned name.
    static DataAgent* make(DataHandler& handler) { return new FakeDataAgent(handler); }

public:
    CannedDataHandler(ConnectionHandler& connection, const std::vector<std::string>& names) : DataHandler(connection)
    {
        for (const std::string& name : names) {
            addAgent(name.c_str(), &make);
        }
    }
};

// One line of the offer table: agent, number of names, where it comes from.
struct Offer {
    std::string agent;
    size_t names;
    std::string source;
};

// Adds one row per agent of `handler` (in first-registration order of its
// names' map) and records every name it serves that no earlier handler does.
void collect(DataHandler& handler, const std::string& source, std::map<std::string, std::string>& servedBy,
             std::vector<Offer>& offers)
{
    std::vector<const DataAgent*> agents;
    std::map<const DataAgent*, size_t> counts;
    for (const auto& entry : handler.getAgentMap()) {
        if (counts[entry.second]++ == 0) {
            agents.push_back(entry.second);
        }
        servedBy.emplace(entry.first, entry.second->getName());
    }
    for (const DataAgent* agent : agents) {
        offers.push_back({agent->getName(), counts[agent], source});
    }
}

class CannedFactory : public HandlerFactory {
public:
    void configure(const std::string& section, bool listed, const std::vector<std::string>& items)
    {
        m_section = section;
        m_listed = listed;
        m_items = items;
    }

    DataHandler* createDataHandler(ConnectionHandler& connection) override
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (!m_resolved) {
                resolve(connection);
                m_resolved = true;
            }
        }
        // Chosen once above and only read from then on: no copy per connection.
        if (m_names.empty()) {
            return nullptr;  // the connection skips a factory without a handler
        }
        return new CannedDataHandler(connection, m_names);
    }

private:
    void resolve(ConnectionHandler& connection)
    {
        std::map<std::string, std::string> servedBy;  // name -> the agent that answers it
        std::vector<Offer> offers;
        std::set<std::string> mapped;  // names of the default agent's property map
        size_t mapSize = 0;

        std::vector<DataHandler*>& handlers = connection.getDataHandlers();
        for (size_t i = 0; i < handlers.size(); ++i) {
            collect(*handlers[i], i == 0 ? "built-in" : "handler library", servedBy, offers);
        }
        GUIDataHandler* gui = handlers.empty() ? nullptr : dynamic_cast<GUIDataHandler*>(handlers[0]);
        DefaultPropertyAgent* defaultAgent =
            gui != nullptr ? dynamic_cast<DefaultPropertyAgent*>(gui->getDefaultAgent()) : nullptr;
        if (defaultAgent != nullptr) {
            for (const auto& entry : defaultAgent->getPropertyTable()) {
                mapped.insert(entry.first);
            }
            mapSize = mapped.size();
        }
        const size_t cannedRow = offers.size();

        // Factories registered after this one make their handlers after it;
        // one probe handler each tells what they serve.
        std::vector<HandlerFactory*>& factories = connection.getConnectionManager().getHandlerFactoryList();
        bool after = false;
        for (HandlerFactory* factory : factories) {
            if (factory == this) {
                after = true;
                continue;
            }
            if (!after || dynamic_cast<CannedFactory*>(factory) != nullptr) {
                continue;
            }
            // A library's failure must not take the accept loop with it.
            try {
                DataHandler* probe = factory->createDataHandler(connection);
                if (probe != nullptr) {
                    collect(*probe, "handler library", servedBy, offers);
                    delete probe;
                }
            } catch (...) {
                printf(" canned: a handler library failed to make a handler; its names are not known\n");
            }
        }

        std::vector<std::string> refused;
        m_names = CannedNames::choose(m_listed, m_items, servedBy, mapped, refused);
        for (const std::string& name : refused) {
            printf(" canned: \"%s\" in section [%s] is served by %s; left to it\n", name.c_str(), m_section.c_str(),
                   servedBy[name].c_str());
        }
        size_t toAgents = 0;
        size_t toMap = 0;
        for (const std::string& name : FakeDataAgent::knownNames()) {
            if (std::find(m_names.begin(), m_names.end(), name) != m_names.end()) {
                continue;
            } else if (servedBy.count(name) != 0) {
                ++toAgents;
            } else if (mapped.count(name) != 0) {
                ++toMap;
            }
        }
        printf(
            " canned: FakeDataAgent answers %u of the %u canned names (%u left to other agents, %u to the "
            "property map)\n",
            static_cast<unsigned>(m_names.size()), static_cast<unsigned>(FakeDataAgent::knownNames().size()),
            static_cast<unsigned>(toAgents), static_cast<unsigned>(toMap));
        fflush(stdout);

        offers.insert(offers.begin() + static_cast<std::ptrdiff_t>(cannedRow),
                      Offer{"FakeDataAgent", m_names.size(), "canned data (libcanned.so)"});
        offers.push_back({"DefaultPropertyAgent", mapSize, "property map"});
        writeOffers(offers);

        // Every name with the agent that answers it, for the web front
        // door's name list: registered names first, then the canned ones,
        // then the property map's.
        std::map<std::string, std::set<std::string>> byAgent;
        for (const auto& entry : servedBy) {
            byAgent[entry.second].insert(entry.first);
        }
        for (const std::string& name : m_names) {
            byAgent["FakeDataAgent"].insert(name);
        }
        for (const std::string& name : mapped) {
            if (servedBy.count(name) == 0) {
                byAgent["DefaultPropertyAgent"].insert(name);
            }
        }
        writeNames(offers, byAgent);
    }

    // "agent<TAB>name" lines, agents in the order of the offer table.
    static void writeNames(const std::vector<Offer>& offers,
                           const std::map<std::string, std::set<std::string>>& byAgent)
    {
        std::string path = PlatformRoot::path(kNamesFile);
        std::string tmp = path + ".tmp";
        FILE* f = fopen(tmp.c_str(), "w");
        if (f == nullptr) {
            return;
        }
        std::set<std::string> done;
        for (const Offer& o : offers) {
            auto it = byAgent.find(o.agent);
            if (it == byAgent.end() || !done.insert(o.agent).second) {
                continue;
            }
            for (const std::string& name : it->second) {
                fprintf(f, "%s\t%s\n", o.agent.c_str(), name.c_str());
            }
        }
        if (fclose(f) != 0 || rename(tmp.c_str(), path.c_str()) != 0) {
            remove(tmp.c_str());
        }
    }

    // Written under a temporary name and renamed, so a reader never sees
    // half a table.
    static void writeOffers(const std::vector<Offer>& offers)
    {
        mkdir(PlatformRoot::path(kOfferDir).c_str(), 0755);
        std::string path = PlatformRoot::path(kOfferFile);
        std::string tmp = path + ".tmp";
        FILE* f = fopen(tmp.c_str(), "w");
        if (f == nullptr) {
            return;  // only a development aid: the server runs on without it
        }
        for (const Offer& o : offers) {
            fprintf(f, "%s\t%u\t%s\n", o.agent.c_str(), static_cast<unsigned>(o.names), o.source.c_str());
        }
        if (fclose(f) != 0 || rename(tmp.c_str(), path.c_str()) != 0) {
            remove(tmp.c_str());
        }
    }

    std::mutex m_mutex;
    bool m_resolved = false;
    std::vector<std::string> m_names;  // in the canned test order
    std::string m_section;
    bool m_listed = false;
    std::vector<std::string> m_items;
};

// The configuration file the server read: "-configfile", else the
// environment's "configfile", else "dataserver.conf" in the working folder
// (which the server never changes). The server keeps no copy of the name,
// so the command line is read back from the kernel: /proc/self is the
// process's own record, not a controller file, so it does not go through the
// platform root.
std::string configFilePath()
{
    std::string text;
    FILE* f = fopen("/proc/self/cmdline", "r");
    if (f != nullptr) {
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, f)) > 0) {
            text.append(buf, n);
        }
        fclose(f);
    }
    std::vector<std::string> words;
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\0', at);
        if (end == std::string::npos) {
            end = text.size();
        }
        words.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    std::vector<char*> argv;
    for (std::string& w : words) {
        argv.push_back(&w[0]);
    }
    CommandLine cmd(static_cast<int>(argv.size()), argv.data());
    if (const char* option = cmd.getArg("configfile")) {
        return option;
    }
    if (const char* env = AUtil::getEnv("configfile", nullptr)) {
        return env;
    }
    return "dataserver.conf";
}

// The name of this library's section: the handler whose entry point is ours,
// preferring the one whose library file is this very file.
std::string ownSection(ConnectionManager& manager)
{
    Dl_info info;
    char self[PATH_MAX] = "";
    if (dladdr(reinterpret_cast<void*>(&canned_init), &info) != 0 && info.dli_fname != nullptr &&
        realpath(info.dli_fname, self) == nullptr) {
        self[0] = '\0';
    }
    std::string candidate;
    for (const auto& entry : manager.getServer().getHandlerTable()) {
        const HandlerInfo* handler = entry.second;
        if (handler->entryPoint != kEntryPoint) {
            continue;
        }
        char lib[PATH_MAX];
        if (self[0] != '\0' && realpath(handler->libFile.c_str(), lib) != nullptr && strcmp(lib, self) == 0) {
            return handler->name;
        }
        if (candidate.empty()) {
            candidate = handler->name;
        }
    }
    return candidate;
}

// The value of "names=" in section `section` (the last one wins), read with
// the server's own tokenizer so the grammar is the same. False when absent.
bool readNames(const std::string& path, const std::string& section, std::string& value)
{
    ConfigFile config;
    if (section.empty() || config.open(path.c_str()) != 0) {
        return false;
    }
    bool found = false;
    std::string current;
    for (std::string token = config.nextToken(); !token.empty(); token = config.nextToken()) {
        std::vector<std::string> line;
        while (token != "\n" && line.size() < 50) {
            line.push_back(token);
            token = config.nextToken();
        }
        if (!line.empty() && line[0] == "[") {
            if (line.size() != 3) {
                break;  // the server stops reading here too
            }
            current = line[1];
        } else if (current == section && line.size() >= 2 && line[0] == kNamesKey && line[1] == "=") {
            value = line.size() >= 3 ? line[2] : "";
            found = true;
        }
    }
    return found;
}

}  // namespace

extern "C" int canned_init(ConnectionManager* manager)
{
    static CannedFactory factory;
    static bool registered = false;
    if (manager == nullptr || registered) {
        return 0;  // a second section naming this library adds nothing
    }
    registered = true;
    std::string section = ownSection(*manager);
    std::string value;
    bool listed = readNames(configFilePath(), section, value);
    std::vector<std::string> unknown;
    std::vector<std::string> items = CannedNames::parseList(value, unknown);
    for (const std::string& item : unknown) {
        printf(" canned: \"%s\" in section [%s] is not a canned name; ignored\n", item.c_str(), section.c_str());
    }
    factory.configure(section, listed, items);
    manager->addDataHandlerFactory(&factory);
    fflush(stdout);
    return 0;
}
