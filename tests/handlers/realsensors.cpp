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
#include "HandlerFactory.h"

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

class RealHandler : public DataHandler {
public:
    explicit RealHandler(ConnectionHandler& connection) : DataHandler(connection)
    {
        RealAgent* agent = new RealAgent(*this);
        addAgent("fans", agent);
        addAgent("users", agent);
    }
};

class RealFactory : public HandlerFactory {
public:
    DataHandler* createDataHandler(ConnectionHandler& connection) override { return new RealHandler(connection); }
};

}  // namespace

extern "C" int realsensors_init(ConnectionManager* manager)
{
    static RealFactory factory;
    manager->addDataHandlerFactory(&factory);
    return 0;
}
