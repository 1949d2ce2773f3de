// The adapter handler library: its entry function registers one factory
// whose data handlers carry one AdapterAgent per connection, under every
// adapter get and set name. Loaded through dataserver.conf
// ("entryPoint=adapter_init").
#include "AdapterAgent.h"
#include "ConnectionHandler.h"
#include "ConnectionManager.h"
#include "DataHandler.h"
#include "HandlerFactory.h"

namespace {

class AdapterDataHandler : public DataHandler {
public:
    explicit AdapterDataHandler(ConnectionHandler& connection) : DataHandler(connection)
    {
        AdapterAgent* agent = new AdapterAgent(*this);
        for (const char* const* names : {AdapterAgent::getNames(), AdapterAgent::setNames()}) {
            for (const char* const* name = names; *name != nullptr; ++name) {
                addAgent(*name, agent);
            }
        }
    }
};

class AdapterFactory : public HandlerFactory {
public:
    DataHandler* createDataHandler(ConnectionHandler& connection) override
    {
        return new AdapterDataHandler(connection);
    }
};

}  // namespace

extern "C" int adapter_init(ConnectionManager* manager)
{
    static AdapterFactory factory;
    manager->addDataHandlerFactory(&factory);
    return 0;
}
