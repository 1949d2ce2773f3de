// Shared by the fuzz targets that drive whole connections (frames and
// request texts): a server on a copy of the simulated controller, and on
// every connection, beside the built-in agents, a registry of recording
// agents that abort when request processing calls them out of order.
#pragma once

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "AIMClient.h"
#include "DataHandler.h"
#include "StubAgent.h"
#include "fuzz_connection.h"

namespace requestfuzz {

// Checks the order of calls within each phase: process after pre-process,
// post-process after process, each once per phase. A new phase starts with
// initialize (an exception from another agent may end a phase early).
class RecordingAgent : public StubAgent {
public:
    RecordingAgent(DataHandler& h, const char* name) : StubAgent(h, name) {}

    int initialize() override
    {
        m_state = kInitialized;
        return 1;
    }
    int preProcessGet(std::string& name, std::string& extra) override { return step(kInitialized, kPreGet, kPreGet); }
    int processGet() override { return step(kPreGet, kPreGet, kProcessedGet); }
    int postProcessGet(ConnectionHandler&) override { return step(kProcessedGet, kProcessedGet, kDone); }
    int preProcessSet(std::string& name, TokenMap&) override
    {
        // A set for a single agent (the index names) comes with every
        // parameter at once and may follow a failed pre-process.
        return step(kInitialized, kPreSet, kPreSet);
    }
    int processSet() override { return step(kPreSet, kPreSet, kProcessedSet); }
    int postProcessSet(ConnectionHandler&, TokenMap&) override { return step(kProcessedSet, kProcessedSet, kDone); }

private:
    enum State { kDone, kInitialized, kPreGet, kProcessedGet, kPreSet, kProcessedSet };

    int step(State from, State orFrom, State to)
    {
        if (m_state != from && m_state != orFrom) {
            abort();
        }
        m_state = to;
        return 1;
    }

    State m_state = kDone;
};

// Names the recording agents serve; "UserPolicy" is also an agent name
// that request processing treats specially.
inline void addRecordingAgents(ConnectionHandler& connection)
{
    DataHandler* handler = new DataHandler(connection);
    RecordingAgent* a = new RecordingAgent(*handler, "FuzzA");
    handler->addAgent("fa", a);
    handler->addAgent("fb", a);
    handler->addAgent("adapterIndex", new RecordingAgent(*handler, "FuzzIndex"));
    handler->addAgent("userPolicy", new RecordingAgent(*handler, "UserPolicy"));
    connection.getDataHandlers().push_back(handler);
}

// The server on a copy of the simulated controller, with the console on (so
// launch documents are served) and a session manager that fails (so its
// record of issued credentials stays small).
inline void setUp(const char* name)
{
    if (fuzzconn::manager == nullptr) {
        fuzzconn::setUp(name, GDS_SIM_ROOT);
        std::string faults = std::string(getenv("GDS_ROOT")) + "/var/session/faults";
        mkdir(faults.substr(0, faults.rfind('/')).c_str(), 0755);
        mkdir(faults.c_str(), 0755);
        std::ofstream(faults + "/get_temp_credentials") << "5";
        fuzzconn::manager->getServer().getAIMClient().setProperty("vkvm_bool_enabled", true, true);
    }
}

// Serves one connection's bytes and checks every answer: at most one packet
// flagged as last; an ordinary request asked for with the envelope gets one
// reply flagged as last (launch documents and capture lists have none); a
// launch document's markup is only its own (request values never add an
// element).
inline void serveAndCheck(const std::string& bytes, bool nxtGenPort)
{
    fuzzconn::Connection c = fuzzconn::connect(nxtGenPort);
    addRecordingAgents(*c.handler);
    for (const fuzzconn::Answer& a : fuzzconn::serve(c, bytes)) {
        bool document = a.request.find(".jnlp") != std::string::npos;
        if (a.text.rfind("<?xml", 0) == 0 && a.text.find("<jnlp ", a.text.find("<jnlp ") + 1) != std::string::npos) {
            abort();
        }
        if (a.lastFlags > 1 || (a.rawReply == 0 && !document && (a.lastFlags != 1 || a.text.rfind("<root>", 0) != 0))) {
            abort();
        }
    }
    fuzzconn::hangUp(c);
}

}  // namespace requestfuzz
