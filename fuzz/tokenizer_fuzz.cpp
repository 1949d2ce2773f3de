// Fuzzes the request tokenizer with the connection's delimiter set, every
// token's number readers (an answer or ProcessingException) and the decoding
// of escaped colons.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "RequestTokenizer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static bool quiet = freopen("/dev/null", "w", stdout) != nullptr;  // failed reads print
    (void)quiet;
    std::string request(reinterpret_cast<const char*>(data), size);
    std::vector<RequestToken> tokens;
    RequestTokenizer("(),=&:?").tokenize(request, tokens);
    for (const RequestToken& token : tokens) {
        // clang-format off
        try { token.getInt(); } catch (const ProcessingException&) {}
        try { token.getHexInt(); } catch (const ProcessingException&) {}
        try { token.getFloat(); } catch (const ProcessingException&) {}
        try { token.getBoolean(); } catch (const ProcessingException&) {}
        // clang-format on
    }
    RequestTokenizer::decodeRequest(request);
    return 0;
}
