// Fuzzes the conversions of tool output as queryBackend runs them on prepared
// text, with every input given to both:
// - xmlize always succeeds, releases the text, keeps the output inside the
//   list tags, and gives the same reply, error flag and error text as the
//   same bytes read from a stream;
// - xmlizeExt (the long-line form) gives 0 or -1 (a line ending in its
//   colon), releases the text, leaves the caller's error flag and text
//   alone, and gives the same reply and result as the same bytes read from a
//   stream.
// Only bytes the socket cleaned reach the reply. Raw input, NUL bytes
// included, also goes through a stream.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "DataHandler.h"
#include "StubAgent.h"
#include "fuzz_connection.h"

namespace {

fuzzconn::AgentConnection<StubAgent>* on = nullptr;

// A stream over `text`; null for the empty text (fmemopen needs a byte).
FILE* streamOf(const std::string& text)
{
    return text.empty() ? nullptr : fmemopen(const_cast<char*>(text.data()), text.size(), "r");
}

void checkXmlize(const std::string& raw, const std::string& text)
{
    GUIDataSocket& socket = on->socket();
    StubAgent* agent = on->agent;
    bool hasError = false;
    std::string errorText;
    agent->prepare(text);
    if (agent->queryBackend("exit 1", socket, "T", hasError, errorText, "No Storage Data", "Fuzz", true, false) != 0 ||
        agent->prepared()) {
        abort();
    }
    std::string reply = on->drain();
    if (reply.compare(0, 7, "<TList>") != 0 || reply.size() < 15 ||
        reply.compare(reply.size() - 8, 8, "</TList>") != 0 || hasError == errorText.empty()) {
        abort();
    }
    if (FILE* stream = streamOf(text)) {
        bool streamError = false;
        std::string streamText;
        if (agent->xmlize(stream, socket, "T", streamError, streamText, "No Storage Data", true) != 0) {
            abort();
        }
        fclose(stream);
        if (on->drain() != reply || streamError != hasError || streamText != errorText) {
            abort();
        }
    }
    if (FILE* stream = streamOf(raw)) {
        agent->xmlize(stream, socket, "T", hasError, errorText, "", false);
        fclose(stream);
        on->drain();
    }
}

void checkXmlizeExt(const std::string& raw, const std::string& text, bool wrap)
{
    GUIDataSocket& socket = on->socket();
    StubAgent* agent = on->agent;
    bool hasError = true;
    std::string errorText = "caller's";
    agent->prepare(text);
    int result = agent->queryBackend("exit 1", socket, "T", hasError, errorText, "", "Fuzz", wrap, true);
    if ((result != 0 && result != -1) || agent->prepared() || !hasError || errorText != "caller's") {
        abort();
    }
    std::string reply = on->drain();
    if (FILE* stream = streamOf(text)) {
        int streamResult = agent->xmlizeExt(stream, socket, "T", wrap);
        fclose(stream);
        if (streamResult != result || on->drain() != reply) {
            abort();
        }
    }
    if (FILE* stream = streamOf(raw)) {
        agent->xmlizeExt(stream, socket, wrap ? nullptr : "T", true);
        fclose(stream);
        on->drain();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (on == nullptr) {
        fuzzconn::setUp("xmlize_fuzz");
        on = new fuzzconn::AgentConnection<StubAgent>();
    }
    if (size > 65536) {  // adds nothing but time
        return 0;
    }
    // Prepared text holds what comes before the first NUL byte.
    const std::string raw(reinterpret_cast<const char*>(data), size);
    const std::string text = raw.substr(0, strnlen(raw.c_str(), raw.size()));
    checkXmlize(raw, text);
    checkXmlizeExt(raw, text, size % 2 == 0);
    return 0;
}
