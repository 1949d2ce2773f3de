// Fuzzes the adapter agent's readers of tool output, each on every input:
// - the card utility's listing gives cards whose four values are non-empty
//   and within the line buffer, at most one record per "---", and ends;
// - xmlizeAdapter, and the framework's conversion of the output made safe
//   by wellFormedOutput, give a well-formed element sequence (checked with a
//   small tag-balance parser), and the error flag matches the text.
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

fuzzconn::AgentConnection<FuzzAgent>* on = nullptr;

void checkListing(std::string& text)
{
    size_t starts = 0;
    for (size_t i = 0; (i = text.find("---", i)) != std::string::npos; i += 3) {
        ++starts;
    }
    for (bool details : {false, true}) {
        FILE* f = fmemopen(const_cast<char*>(text.data()), text.size(), "r");
        size_t cards = 0;
        AdapterAgent::parseCardListing(f, details, [&](const AdapterAgent::CardRecord& card) {
            if (!card.complete() || (details && !card.completeDetails()) || card.slot.size() > 255 ||
                card.mac.size() > 255 || card.interface.size() > 255 || card.type.size() > 255) {
                abort();
            }
            ++cards;
        });
        fclose(f);
        if (cards > starts) {
            abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (on == nullptr) {
        fuzzconn::setUp("adapter_fuzz", GDS_SIM_ROOT);
        on = new fuzzconn::AgentConnection<FuzzAgent>();
    }
    if (size == 0 || size > 65536) {
        return 0;
    }
    std::string text(reinterpret_cast<const char*>(data), size);
    checkListing(text);
    GUIDataSocket& socket = on->socket();
    FuzzAgent* agent = on->agent;

    FILE* f = fmemopen(const_cast<char*>(text.data()), text.size(), "r");
    bool flag = false;
    std::string errorText;
    socket.writeString("<L>");
    if (agent->xmlizeAdapter(f, socket, "T", flag, errorText, "No Storage Data") != 0) {
        abort();
    }
    fclose(f);
    socket.writeString("</L>");
    std::string reply = on->drain();
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
    if (!fuzzxml::balanced(on->drain())) {
        abort();
    }
    return 0;
}
