// Fuzzes the adapter agent's readers of tool output: the card utility's
// listing (both forms), xmlizeAdapter, and the framework's conversion of the
// output made safe by wellFormedOutput; both replies must be well-formed
// element sequences.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

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
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static fuzzconn::AgentConnection<FuzzAgent>* on = nullptr;
    if (on == nullptr) {
        fuzzconn::setUp("adapter_fuzz", GDS_SIM_ROOT);
        on = new fuzzconn::AgentConnection<FuzzAgent>();
    }
    if (size == 0 || size > 65536) {
        return 0;
    }
    std::string text(reinterpret_cast<const char*>(data), size);
    for (bool details : {false, true}) {
        FILE* f = fmemopen(&text[0], size, "r");
        AdapterAgent::parseCardListing(f, details, [](const AdapterAgent::CardRecord&) {});
        fclose(f);
    }
    GUIDataSocket& socket = on->socket();
    bool hasError = false;
    std::string errorText;
    FILE* f = fmemopen(&text[0], size, "r");
    socket.writeString("<L>");
    on->agent->xmlizeAdapter(f, socket, "T", hasError, errorText, "No Storage Data");
    socket.writeString("</L>");
    fclose(f);
    on->agent->prepare(AdapterAgent::wellFormedOutput(text));
    on->agent->queryBackend("true", socket, "T", hasError, errorText, "No Storage Data", "Fuzz", true, false);
    if (!fuzzxml::balanced(on->drain())) {
        abort();
    }
    return 0;
}
