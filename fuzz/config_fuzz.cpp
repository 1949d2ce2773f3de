// Fuzzes the readers of the server's configuration files with every input:
// the configuration file (ConfigFile), the default values file of the server
// and of the default agent, and the canned library's names list.
#include <cstdint>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "CannedNames.h"
#include "ConfigFile.h"
#include "DefaultPropertyAgent.h"
#include "fuzz_connection.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static fuzzconn::AgentConnection<DefaultPropertyAgent>* on = nullptr;
    if (on == nullptr) {
        if (freopen("/dev/null", "w", stdout) == nullptr) {  // the readers print what they find
            return 0;
        }
        fuzzconn::setUp("config_fuzz");
        on = new fuzzconn::AgentConnection<DefaultPropertyAgent>();
    }
    if (size == 0 || size > 65536) {
        return 0;  // fmemopen needs a byte
    }
    // An exact-size heap copy, so the sanitizer sees any read past the end.
    std::vector<char> bytes(data, data + size);
    if (FILE* f = fopen("config-fuzz.conf", "wb")) {
        fwrite(bytes.data(), 1, bytes.size(), f);
        fclose(f);
        GUIDataServer fresh;
        ConfigFile config;
        if (config.open("config-fuzz.conf") == 0) {
            config.parse(fresh);
        }
    }
    for (bool server : {true, false}) {
        std::vector<std::string> names, aimNames, types, values, minValues;
        std::vector<int> privileges;
        FILE* file = fmemopen(bytes.data(), bytes.size(), "r");
        if (server) {
            fuzzconn::manager->getServer().loadPropertyFile(file, names, aimNames, types, values);
        } else {
            on->agent->loadPropertyFile(file, names, aimNames, types, privileges, values, minValues);
        }
        fclose(file);
    }
    std::vector<std::string> unknown, refused;
    std::vector<std::string> items = CannedNames::parseList(std::string(bytes.data(), bytes.size()), unknown);
    CannedNames::choose(true, items, {{"sshPort", "Service"}}, {"hostname"}, refused);
    return 0;
}
