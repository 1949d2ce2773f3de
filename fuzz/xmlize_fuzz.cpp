// Fuzzes the conversion of tool output (xmlize) as queryBackend runs it on
// prepared text: it always succeeds, releases the text, keeps the output
// inside the list tags, writes only bytes the socket cleaned, and gives the
// same reply, error flag and error text as the same bytes read from a
// stream. Raw input, NUL bytes included, also goes through a stream.
#include <cstdint>

#include "xmlize_fuzz_common.h"

using namespace xmlizefuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input;
    if (!begin("xmlize_fuzz", data, size, input)) {
        return 0;
    }
    const std::string& raw = input.raw;
    const std::string& text = input.text;
    GUIDataSocket& socket = connection->getSocket();

    bool hasError = false;
    std::string errorText;
    agent->prepare(text);
    if (agent->queryBackend("exit 1", socket, "T", hasError, errorText, "No Storage Data", "Fuzz", true, false) != 0 ||
        agent->prepared()) {
        abort();
    }
    std::string reply = drain();
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
        if (drain() != reply || streamError != hasError || streamText != errorText) {
            abort();
        }
    }
    if (FILE* stream = streamOf(raw)) {
        agent->xmlize(stream, socket, "T", hasError, errorText, "", false);
        fclose(stream);
        drain();
    }
    return 0;
}
