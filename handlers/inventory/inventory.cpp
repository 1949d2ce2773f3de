// The inventory handler library (libinventory.so): the controller loads it
// through dataserver.conf ("entryPoint=inventory_init"). Its entry function
// registers one factory; every connection then gets a data handler with its
// own InventoryAgent (log component "InventoryAgent") registered under every
// inventory name and the two inventory writes.
#include "ConnectionManager.h"
#include "InventoryAgent.h"
#include "SingleAgentFactory.h"

namespace {

std::vector<const char*> inventoryNames()
{
    return InventoryAgent::propertyNames();
}

}  // namespace

extern "C" int inventory_init(ConnectionManager* manager)
{
    static SingleAgentFactory<InventoryAgent, inventoryNames> factory;
    manager->addDataHandlerFactory(&factory);
    return 0;
}
