// Fuzzes the request framing of both ports: the first byte chooses the port
// (bit 0: the 8197 layout with its JSON header), the rest is everything a
// client sends before it stops sending. Whatever the bytes, the connection
// answers complete, well-framed replies and stops at the end of the input
// or at the first bad frame: nothing sent after a refused frame reaches an
// agent (fuzz_connection.h takes the loop's next pass and checks it).
#include <cstdint>

#include "request_fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    requestfuzz::setUp("frames_fuzz");
    if (size < 1 || size > 65536) {
        return 0;
    }
    std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    requestfuzz::serveAndCheck(bytes, (data[0] & 1) != 0);
    return 0;
}
