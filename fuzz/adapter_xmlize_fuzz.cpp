// Fuzzes the adapter agent's conversions of tool output: xmlizeAdapter on
// any bytes, and the framework's conversion of the output made safe by
// wellFormedOutput. Both must give a well-formed element sequence (checked
// with a small tag-balance parser), and the error flag matches the text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "AdapterAgent.h"
#include "DataHandler.h"
#include "fuzz_connection.h"
#include "fuzz_xml_balance.h"

namespace {

class FuzzAgent : public AdapterAgent {
public:
    using AdapterAgent::AdapterAgent;
    void prepare(const std::string& text)
    {
        free(m_backendText);
        m_backendText = strdup(text.c_str());
    }
};

ConnectionHandler* connection = nullptr;
FuzzAgent* agent = nullptr;
int peer = -1;

std::string drain()
{
    connection->getSocket().flush();
    return fuzzconn::drain(peer);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (connection == nullptr) {
        fuzzconn::setUp("adapter_xmlize_fuzz", GDS_SIM_ROOT);
        fuzzconn::Connection c = fuzzconn::connect(false);
        connection = c.handler;
        peer = c.client;
        agent = new FuzzAgent(*connection->getDataHandlers()[0]);
    }
    if (size == 0 || size > 65536) {
        return 0;
    }
    std::string text(reinterpret_cast<const char*>(data), size);
    GUIDataSocket& socket = connection->getSocket();

    FILE* f = fmemopen(const_cast<char*>(text.data()), text.size(), "r");
    bool flag = false;
    std::string errorText;
    socket.writeString("<L>");
    if (agent->xmlizeAdapter(f, socket, "T", flag, errorText, "No Storage Data") != 0) {
        abort();
    }
    fclose(f);
    socket.writeString("</L>");
    std::string reply = drain();
    if (!fuzzxml::balanced(reply)) {
        abort();
    }
    if (flag == errorText.empty()) {
        abort();
    }

    // The framework's conversion of the output made safe is balanced.
    agent->prepare(AdapterAgent::wellFormedOutput(text));
    bool hasError = false;
    std::string message;
    agent->queryBackend("true", socket, "T", hasError, message, "No Storage Data", "Fuzz", true, false);
    if (!fuzzxml::balanced(drain())) {
        abort();
    }
    return 0;
}
