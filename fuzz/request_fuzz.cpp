// Fuzzes request processing with whole request texts: the first four bytes
// are the privilege word (mask and raw-reply byte), the rest is the text of
// one legacy frame. Requests go through the real registry (default,
// launch-document, capture and service agents on a copy of the simulated
// controller) and recording agents that check the order of calls; every
// reply must be complete and well framed.
#include <cstdint>

#include "GDSClient.h"
#include "request_fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    requestfuzz::setUp("request_fuzz");
    if (size < 4 || size > 4 + GDSClient::kMaxFrameLength - 4) {
        return 0;
    }
    uint32_t word = (static_cast<uint32_t>(data[0]) << 24) | (static_cast<uint32_t>(data[1]) << 16) |
                    (static_cast<uint32_t>(data[2]) << 8) | data[3];
    std::string text(reinterpret_cast<const char*>(data + 4), size - 4);
    // Two requests on the connection: agents are reused between requests.
    requestfuzz::serveAndCheck(GDSClient::frameLegacy(text, word) + GDSClient::frameLegacy(text, word), false);
    return 0;
}
