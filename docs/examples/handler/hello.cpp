// libhello.so: a complete handler library built outside the gds tree
// against the gds-dev package. It answers one name, helloGreeting, with a
// greeting and the number of times this connection has asked for it.
// Named in dataserver.conf:
//   addHandler=hello
//   [hello]
//   libFile=/usr/lib/<multiarch>/gds/libhello.so
//   entryPoint=hello_init
#include <string>
#include <vector>

#include "ConnectionHandler.h"
#include "ConnectionManager.h"
#include "DataAgent.h"
#include "GUIDataSocket.h"
#include "SingleAgentFactory.h"

namespace {

// One agent per connection, run on that connection's thread only.
class HelloAgent : public DataAgent {
public:
    explicit HelloAgent(DataHandler& handler) : DataAgent("HelloAgent", handler) {}

    int initialize() override
    {
        m_status = 1;
        m_asked = false;
        return 1;
    }
    int preProcessGet(std::string& name, std::string& extra) override
    {
        m_asked = true;
        return 1;
    }
    int processGet() override { return 1; }
    int postProcessGet(ConnectionHandler& connection) override
    {
        if (m_asked) {
            ++m_count;
            std::string text = "Hello from an outside handler library (" + std::to_string(m_count) + ")";
            connection.getSocket().writeSimpleElement("helloGreeting", text.c_str());
        }
        return 1;
    }
    // helloGreeting cannot be set: the request fails with a refusal.
    int preProcessSet(std::string& name, TokenMap& arguments) override
    {
        m_status = 3;
        return 0;
    }
    int processSet() override { return 0; }
    int postProcessSet(ConnectionHandler& connection, TokenMap& arguments) override { return 0; }

private:
    bool m_asked = false;
    unsigned m_count = 0;
};

std::vector<const char*> helloNames()
{
    return {"helloGreeting"};
}

}  // namespace

// The entry point named in dataserver.conf: registers the factory that gives
// every new connection its own HelloAgent.
extern "C" int hello_init(ConnectionManager* manager)
{
    static SingleAgentFactory<HelloAgent, helloNames> factory;
    manager->addDataHandlerFactory(&factory);
    return 0;
}
