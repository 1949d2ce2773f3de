// Fuzzes the long-line conversion (xmlizeExt) as queryBackend runs it on
// prepared text: the result is 0 or -1 (a line ending in its colon), the
// text is released, the error flag and text stay as the caller set them,
// only cleaned bytes are written, and the same bytes read from a stream give
// the same reply and result. Raw input, NUL bytes included, also goes
// through a stream.
#include <cstdint>

#include "xmlize_fuzz_common.h"

using namespace xmlizefuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input;
    if (!begin("xmlizeext_fuzz", data, size, input)) {
        return 0;
    }
    const std::string& raw = input.raw;
    const std::string& text = input.text;
    GUIDataSocket& socket = connection->getSocket();
    const bool wrap = size % 2 == 0;

    bool hasError = true;
    std::string errorText = "caller's";
    agent->prepare(text);
    int result = agent->queryBackend("exit 1", socket, "T", hasError, errorText, "", "Fuzz", wrap, true);
    if ((result != 0 && result != -1) || agent->prepared() || !hasError || errorText != "caller's") {
        abort();
    }
    std::string reply = drain();

    if (FILE* stream = streamOf(text)) {
        int streamResult = agent->xmlizeExt(stream, socket, "T", wrap);
        fclose(stream);
        if (streamResult != result || drain() != reply) {
            abort();
        }
    }
    if (FILE* stream = streamOf(raw)) {
        agent->xmlizeExt(stream, socket, wrap ? nullptr : "T", true);
        fclose(stream);
        drain();
    }
    return 0;
}
