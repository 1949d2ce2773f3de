// Fuzzes the conversions of tool output: xmlize and xmlizeExt (the long-line
// form) on prepared text, as queryBackend runs them, and on the raw bytes
// (NUL bytes included) read from a stream. Every reply must stay made of
// bytes the socket cleaned and whole packets (drain checks both).
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "DataHandler.h"
#include "StubAgent.h"
#include "fuzz_connection.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static fuzzconn::AgentConnection<StubAgent>* on = nullptr;
    if (on == nullptr) {
        fuzzconn::setUp("xmlize_fuzz");
        on = new fuzzconn::AgentConnection<StubAgent>();
    }
    if (size == 0 || size > 65536) {  // fmemopen needs a byte; more adds nothing but time
        return 0;
    }
    std::string raw(reinterpret_cast<const char*>(data), size);
    GUIDataSocket& socket = on->socket();
    bool hasError = false;
    std::string errorText;
    for (bool extended : {false, true}) {
        on->agent->prepare(raw.substr(0, strnlen(raw.c_str(), size)));  // prepared text ends at a NUL
        on->agent->queryBackend("exit 1", socket, "T", hasError, errorText, "No Data", "Fuzz", size % 2, extended);
        on->drain();
        FILE* stream = fmemopen(&raw[0], size, "r");
        if (extended) {
            on->agent->xmlizeExt(stream, socket, size % 2 ? nullptr : "T", true);
        } else {
            on->agent->xmlize(stream, socket, "T", hasError, errorText, "", false);
        }
        fclose(stream);
        on->drain();
    }
    return 0;
}
