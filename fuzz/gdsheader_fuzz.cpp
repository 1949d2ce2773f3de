// Fuzzes the JSON request header decoder of port 8197: any text decodes or is
// refused without crashing or leaking, and decoded strings are proper C
// strings.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "ConnectionHandler.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string text(reinterpret_cast<const char*>(data), size);  // NUL-terminated copy
    gds_params params;
    if (getGDSProtoHeaderFields(&text[0], &params) == 0) {
        for (const char* s : {params.magic, params.command, params.username, params.interface}) {
            if (s != nullptr && strlen(s) > size) {
                abort();  // a decoded string cannot be longer than its source
            }
        }
        freeGDSProtoHeaderFields(&params);
    }
    return 0;
}
