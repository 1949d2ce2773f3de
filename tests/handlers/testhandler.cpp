// A handler library for the tests: its entry function registers one factory
// whose data handlers carry two agents, so the end-to-end tests can drive
// the multi-handler lookup, the agent call order, every exception reply and
// the password-policy reply through the real server.
//  - "TestEcho" serves "testEcho" and "testThrow": a get of testEcho(x)
//    answers <testEcho>(x)</testEcho>; a get of testThrow(kind) throws
//    (kind: processing, security, format, cstring, int); a set answers
//    <set>name=value</set> and fails (status 2) for the value "fail".
//  - "UserPolicy" serves "userPolicyExpiry": a set fails for a negative value.
// Every call is appended to "/tmp/testhandler.calls" under the platform root.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ConnectionHandler.h"
#include "ConnectionManager.h"
#include "DataAgent.h"
#include "DataHandler.h"
#include "HandlerFactory.h"
#include "PlatformRoot.h"
#include "ProcessingException.h"
#include "RequestFormatException.h"
#include "SecurityException.h"

namespace {

void note(const std::string& line)
{
    FILE* f = fopen(PlatformRoot::path("/tmp/testhandler.calls").c_str(), "a");
    if (f != nullptr) {
        fprintf(f, "%s\n", line.c_str());
        fclose(f);
    }
}

class TestAgent : public DataAgent {
public:
    TestAgent(const char* name, DataHandler& handler) : DataAgent(name, handler) {}

    int initialize() override
    {
        note(std::string(m_name) + ".initialize");
        m_gets.clear();
        m_sets.clear();
        m_status = 1;
        return 1;
    }
    int preProcessGet(std::string& name, std::string& extra) override
    {
        note(std::string(m_name) + ".preProcessGet " + name + " " + extra);
        if (name == "testThrow") {
            if (extra == "(processing)") {
                throw ProcessingException("processing failed: %d", 42);
            }
            if (extra == "(security)") {
                throw SecurityException(0, "not allowed");
            }
            if (extra == "(format)") {
                throw RequestFormatException("bad thing");
            }
            if (extra == "(cstring)") {
                throw "plain text";
            }
            throw 7;
        }
        m_gets.push_back(name + "\n" + extra);
        return 1;
    }
    int processGet() override
    {
        note(std::string(m_name) + ".processGet");
        return 1;
    }
    int postProcessGet(ConnectionHandler& connection) override
    {
        note(std::string(m_name) + ".postProcessGet");
        for (const std::string& g : m_gets) {
            size_t nl = g.find('\n');
            connection.getSocket().writeSimpleElement(g.substr(0, nl).c_str(), g.substr(nl + 1).c_str());
        }
        return 1;
    }
    int preProcessSet(std::string& name, TokenMap& arguments) override
    {
        std::string value;
        lookupString(arguments, name, value);
        note(std::string(m_name) + ".preProcessSet " + name + "=" + value);
        m_sets.push_back(name + "=" + value);
        return 1;
    }
    int processSet() override
    {
        note(std::string(m_name) + ".processSet");
        for (const std::string& s : m_sets) {
            std::string value = s.substr(s.find('=') + 1);
            if (value == "fail" || (!value.empty() && value[0] == '-')) {
                m_status = 2;
            }
        }
        return m_status;
    }
    int postProcessSet(ConnectionHandler& connection, TokenMap& arguments) override
    {
        note(std::string(m_name) + ".postProcessSet");
        for (const std::string& s : m_sets) {
            connection.getSocket().writeSimpleElement("set", s.c_str());
        }
        return 1;
    }

private:
    std::vector<std::string> m_gets;
    std::vector<std::string> m_sets;
};

class TestDataHandler : public DataHandler {
public:
    explicit TestDataHandler(ConnectionHandler& connection) : DataHandler(connection)
    {
        TestAgent* echo = new TestAgent("TestEcho", *this);
        addAgent("testEcho", echo);
        addAgent("testThrow", echo);
        addAgent("userPolicyExpiry", new TestAgent("UserPolicy", *this));
    }
};

class TestFactory : public HandlerFactory {
public:
    DataHandler* createDataHandler(ConnectionHandler& connection) override { return new TestDataHandler(connection); }
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
