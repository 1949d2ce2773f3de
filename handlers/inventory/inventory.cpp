// The inventory handler library (libinventory.so): the controller loads it
// through dataserver.conf ("entryPoint=inventory_init"). Its entry function
// registers one factory; every connection then gets a data handler with its
// own InventoryAgent (log component "InventoryAgent") registered under every
// inventory name and the two inventory writes.
#include "ConnectionManager.h"
#include "DataHandler.h"
#include "HandlerFactory.h"
#include "InventoryAgent.h"

namespace {

class InventoryDataHandler : public DataHandler {
public:
    explicit InventoryDataHandler(ConnectionHandler& connection) : DataHandler(connection)
    {
        InventoryAgent* agent = new InventoryAgent(*this);
        for (const char* name : InventoryAgent::propertyNames()) {
            addAgent(name, agent);
        }
    }
};

class InventoryFactory : public HandlerFactory {
public:
    DataHandler* createDataHandler(ConnectionHandler& connection) override
    {
        return new InventoryDataHandler(connection);
    }
};

}  // namespace

extern "C" int inventory_init(ConnectionManager* manager)
{
    static InventoryFactory factory;
    manager->addDataHandlerFactory(&factory);
    return 0;
}
