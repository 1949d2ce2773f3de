// A handler library for the tests that serves two names the canned library
// also knows ("fans" and "users"), each answered as <name>real</name>, so the
// end-to-end tests can check that canned data never hides a real agent,
// whether this library is loaded before or after the canned one.
#include <string>
#include <vector>

#include "ConnectionHandler.h"
#include "ConnectionManager.h"
#include "DataAgent.h"
#include "DataHandler.h"
#include "SingleAgentFactory.h"

namespace {

class RealAgent : public DataAgent {
public:
    explicit RealAgent(DataHandler& handler) : DataAgent("RealSensors", handler) {}

    int initialize() override
    {
        m_names.clear();
        return 1;
    }
    int preProcessGet(std::string& name, std::string& extra) override
    {
        m_names.push_back(name);
        return 1;
    }
    int processGet() override { return 1; }
    int postProcessGet(ConnectionHandler& connection) override
    {
        for (const std::string& name : m_names) {
            connection.getSocket().writeSimpleElement(name.c_str(), "real");
        }
        return 1;
    }
    int preProcessSet(std::string& name, TokenMap& arguments) override { return 1; }
    int processSet() override { return 1; }
    int postProcessSet(ConnectionHandler& connection, TokenMap& arguments) override { return 1; }

private:
    std::vector<std::string> m_names;
};

std::vector<const char*> realNames()
{
    return {"fans", "users"};
}

}  // namespace

extern "C" int realsensors_init(ConnectionManager* manager)
{
    static SingleAgentFactory<RealAgent, realNames> factory;
    manager->addDataHandlerFactory(&factory);
    return 0;
}
