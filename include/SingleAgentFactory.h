// SingleAgentFactory: the factory of a handler library that serves one agent
// class. Each connection's data handler gets its own Agent, registered under
// every name Names() lists and built by the first request that names one
// (the handler owns and deletes it). Called on the
// accept thread; the library keeps the factory as a static and it owns nothing.
#pragma once

#include <vector>

#include "DataHandler.h"
#include "HandlerFactory.h"

template <class Agent, std::vector<const char*> (*Names)()>
class SingleAgentFactory : public HandlerFactory {
public:
    DataHandler* createDataHandler(ConnectionHandler& connection) override { return new Handler(connection); }

private:
    class Handler : public DataHandler {
        static DataAgent* make(DataHandler& handler) { return new Agent(handler); }

    public:
        explicit Handler(ConnectionHandler& connection) : DataHandler(connection)
        {
            for (const char* name : Names()) {
                addAgent(name, &make);
            }
        }
    };
};
