// Fuzzes the request tokenizer with the connection's delimiter set: any bytes
// give well-formed tokens (no empty or adjacent TEXT tokens, DELIM tokens only
// for delimiters, an escaped re-join that tokenizes back to the same tokens),
// every number reader either answers or throws ProcessingException, and
// decoding escaped colons only ever shortens the request.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "RequestTokenizer.h"

namespace {
const char kDelimiters[] = "(),=&:?";

bool isDelimiter(char c)
{
    return c != '\0' && std::strchr(kDelimiters, c) != nullptr;
}

void check(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "invariant broken: %s\n", what);
        std::abort();
    }
}

// Type, length and text of every token; with `escaped`, just the texts with
// each character the tokenizer treats specially escaped by a backslash, which
// must give a request that tokenizes back to the same tokens.
std::string join(const std::vector<RequestToken>& tokens, bool escaped)
{
    std::string out;
    for (const auto& token : tokens) {
        if (!escaped) {
            out += (token.getType() == RequestToken::TEXT ? "T" : "D") + std::to_string(token.toString().size()) + ":";
        }
        for (char c : token.toString()) {
            if (escaped && token.getType() == RequestToken::TEXT && (c == '\\' || c == '"' || isDelimiter(c))) {
                out += '\\';
            }
            out += c;
        }
    }
    return out;
}

template <typename F>
void readOrThrow(F read)
{
    try {
        (void)read();
    } catch (const ProcessingException&) {
    }
}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Failed reads and decoding print on standard output; libFuzzer reports
    // on standard error.
    if (std::freopen("/dev/null", "w", stdout) == nullptr) {
        std::perror("stdout");
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string request(reinterpret_cast<const char*>(data), size);
    const RequestTokenizer tokenizer(kDelimiters);
    std::vector<RequestToken> tokens;
    tokenizer.tokenize(request, tokens);

    std::string plain;
    for (size_t i = 0; i < tokens.size(); ++i) {
        const RequestToken& token = tokens[i];
        if (token.getType() == RequestToken::TEXT) {
            check(!token.getString().empty(), "empty TEXT token");
            check(i == 0 || tokens[i - 1].getType() != RequestToken::TEXT, "adjacent TEXT tokens");
        } else {
            check(token.getType() == RequestToken::DELIM && isDelimiter(token.getDelim()), "bad DELIM token");
        }
        plain += token.toString();
        readOrThrow([&] { return token.getInt(); });
        readOrThrow([&] { return token.getHexInt(); });
        readOrThrow([&] { return token.getFloat(); });
        readOrThrow([&] { return token.getBoolean(); });
    }
    check(plain.size() <= request.size(), "tokens longer than the request");
    // Without escapes nothing is dropped: the tokens are the request.
    check(request.find('\\') != std::string::npos || plain == request, "tokens do not re-join to the request");

    std::vector<RequestToken> again;
    tokenizer.tokenize(join(tokens, true), again);
    check(join(again, false) == join(tokens, false), "escaped re-join tokenizes differently");

    // Every backslash-colon becomes one colon; nothing else changes length.
    size_t occurrences = 0;
    for (size_t at = request.find("\\:"); at != std::string::npos; at = request.find("\\:", at + 2)) {
        ++occurrences;
    }
    std::string decoded = request;
    RequestTokenizer::decodeRequest(decoded);
    check(decoded.size() == request.size() - occurrences, "decodeRequest length");
    check(occurrences > 0 || decoded == request, "decodeRequest changed a request without escapes");
    return 0;
}
