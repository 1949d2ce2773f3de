// Fuzzes the readers of the two property files: the default values file
// (GUIDataServer::loadPropertyFile) and the default agent's property map
// (DefaultPropertyAgent::loadPropertyFile), through a memory stream. Any
// bytes give parallel lists of equal length, with no entry lost between
// them, and never a read past the input.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "DefaultPropertyAgent.h"
#include "fuzz_connection.h"

namespace {
GUIDataServer* server = nullptr;
DefaultPropertyAgent* agent = nullptr;
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (agent == nullptr) {
        fuzzconn::setUp("propertyfile_fuzz");
        server = &fuzzconn::manager->getServer();
        fuzzconn::Connection c = fuzzconn::connect(false);
        agent = new DefaultPropertyAgent(*c.handler->getDataHandlers()[0]);
    }
    if (size == 0 || size > 65536) {
        return 0;  // fmemopen needs a byte
    }
    // An exact-size heap copy, so the sanitizer sees any read past the end.
    std::vector<char> bytes(data, data + size);
    {
        FILE* file = fmemopen(bytes.data(), size, "r");
        std::vector<std::string> names, aimNames, types, values;
        server->loadPropertyFile(file, names, aimNames, types, values);
        fclose(file);
        if (aimNames.size() != names.size() || types.size() != names.size() || values.size() != names.size()) {
            abort();
        }
    }
    {
        FILE* file = fmemopen(bytes.data(), size, "r");
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
    return 0;
}
