// Fuzzes the readers of the server's configuration files, each on every
// input, without crashing, hanging or reading past the input:
// - the configuration file (ConfigFile) fills a server's handler table;
// - the default values file (GUIDataServer::loadPropertyFile) and the default
//   agent's property map (DefaultPropertyAgent::loadPropertyFile) give
//   parallel lists of equal length, with no entry lost between them;
// - the canned library's names list keeps or reports every item, and the
//   chosen names are canned names, each once, in the canned order.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "CannedNames.h"
#include "ConfigFile.h"
#include "DefaultPropertyAgent.h"
#include "FakeDataAgent.h"
#include "fuzz_connection.h"

namespace {

GUIDataServer* server = nullptr;
// The connection lives for the whole run (kept here, so it is no leak).
fuzzconn::AgentConnection<DefaultPropertyAgent>* on = nullptr;
DefaultPropertyAgent* agent = nullptr;

void readConfigFile(const std::vector<char>& bytes)
{
    static const char path[] = "config-fuzz.conf";
    FILE* f = fopen(path, "wb");
    if (f == nullptr) {
        return;
    }
    fwrite(bytes.data(), 1, bytes.size(), f);
    fclose(f);
    GUIDataServer fresh;
    ConfigFile config;
    if (config.open(path) == 0) {
        config.parse(fresh);
    }
}

void readPropertyFiles(std::vector<char>& bytes)
{
    {
        FILE* file = fmemopen(bytes.data(), bytes.size(), "r");
        std::vector<std::string> names, aimNames, types, values;
        server->loadPropertyFile(file, names, aimNames, types, values);
        fclose(file);
        if (aimNames.size() != names.size() || types.size() != names.size() || values.size() != names.size()) {
            abort();
        }
    }
    FILE* file = fmemopen(bytes.data(), bytes.size(), "r");
    std::vector<std::string> names, aimNames, types, maxValues, minValues;
    std::vector<int> privileges;
    agent->loadPropertyFile(file, names, aimNames, types, privileges, maxValues, minValues);
    fclose(file);
    size_t n = names.size();
    if (aimNames.size() != n || types.size() != n || privileges.size() != n || maxValues.size() != n ||
        minValues.size() != n) {
        abort();
    }
}

void readCannedNames(const std::string& text)
{
    std::vector<std::string> unknown;
    std::vector<std::string> items = CannedNames::parseList(text, unknown);
    for (const std::string& item : items) {
        if (item.empty()) {
            abort();
        }
    }
    const std::map<std::string, std::string> served = {{"sshPort", "Service"}};
    const std::set<std::string> mapped = {"hostname"};
    std::vector<std::string> refused;
    std::vector<std::string> names = CannedNames::choose(true, items, served, mapped, refused);
    const std::vector<std::string>& known = FakeDataAgent::knownNames();
    size_t at = 0;
    for (const std::string& name : names) {
        while (at < known.size() && known[at] != name) {
            ++at;
        }
        if (at == known.size() || name == "sshPort") {
            abort();  // not canned, out of order, twice, or a real agent's name
        }
        ++at;
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The readers and the server print what they find; libFuzzer reports on
    // standard error.
    if (freopen("/dev/null", "w", stdout) == nullptr) {
        return 0;
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (agent == nullptr) {
        fuzzconn::setUp("config_fuzz");
        server = &fuzzconn::manager->getServer();
        on = new fuzzconn::AgentConnection<DefaultPropertyAgent>();
        agent = on->agent;
    }
    if (size == 0 || size > 65536) {
        return 0;  // fmemopen needs a byte
    }
    // An exact-size heap copy, so the sanitizer sees any read past the end.
    std::vector<char> bytes(data, data + size);
    readConfigFile(bytes);
    readPropertyFiles(bytes);
    readCannedNames(std::string(bytes.data(), bytes.size()));
    return 0;
}
