// The adapter handler library: its entry function registers one factory
// whose data handlers carry one AdapterAgent per connection, under every
// adapter get and set name. Loaded through dataserver.conf
// ("entryPoint=adapter_init").
#include "AdapterAgent.h"
#include "ConnectionManager.h"
#include "SingleAgentFactory.h"

namespace {

std::vector<const char*> adapterNames()
{
    std::vector<const char*> names;
    for (const char* const* list : {AdapterAgent::getNames(), AdapterAgent::setNames()}) {
        for (const char* const* name = list; *name != nullptr; ++name) {
            names.push_back(*name);
        }
    }
    return names;
}

}  // namespace

extern "C" int adapter_init(ConnectionManager* manager)
{
    static SingleAgentFactory<AdapterAgent, adapterNames> factory;
    manager->addDataHandlerFactory(&factory);
    return 0;
}
