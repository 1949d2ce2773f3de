// HandlerFactory: the interface a handler library implements to add agents to
// every connection. The library's entry function registers its factories
// with ConnectionManager::addDataHandlerFactory on the main thread at start;
// createDataHandler is then called once for each new connection, by its
// ConnectionHandler on the accept loop's thread, and the connection handler
// owns what it returns.
#pragma once

class ConnectionHandler;
class DataHandler;

class HandlerFactory {
public:
    virtual ~HandlerFactory() = default;
    virtual DataHandler* createDataHandler(ConnectionHandler& connection) = 0;
};

// The entry function a handler library exports (its name is given by
// "entryPoint=" in the configuration file). The result is not used.
extern "C" {
typedef int (*HandlerEntryFunction)(class ConnectionManager* manager);
}
