// A handler library for the tests: its entry function registers one factory
// whose data handlers count themselves, proving the load path end to end.
// Loaded by the server with dlopen from the test's configuration file.
#include <cstdio>

#include "ConnectionHandler.h"
#include "ConnectionManager.h"
#include "DataHandler.h"
#include "HandlerFactory.h"
#include "PlatformRoot.h"

namespace {

class TestDataHandler : public DataHandler {
public:
    explicit TestDataHandler(ConnectionHandler& connection) : DataHandler(connection) {}
};

class TestFactory : public HandlerFactory {
public:
    DataHandler* createDataHandler(ConnectionHandler& connection) override
    {
        return new TestDataHandler(connection);
    }
};

}  // namespace

extern "C" int testhandler_init(ConnectionManager* manager)
{
    static TestFactory factory;
    manager->addDataHandlerFactory(&factory);
    // Leaves a mark in the platform root so tests see the entry ran.
    FILE* f = fopen(PlatformRoot::path("/tmp/testhandler.loaded").c_str(), "a");
    if (f != nullptr) {
        fputs("loaded\n", f);
        fclose(f);
    }
    return 0;
}
