// Fuzzes the request tokenizer with the connection's delimiter set: any bytes
// give well-formed tokens (no empty or adjacent TEXT tokens, DELIM tokens only
// for delimiters, an escaped re-join that tokenizes back to the same tokens),
// every reader of every token either answers or throws its documented
// exception, and decoding escaped colons only ever shortens the request.
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

// The text of every token again, with each character that the tokenizer
// treats specially escaped by a backslash.
std::string escapedJoin(const std::vector<RequestToken>& tokens)
{
    std::string out;
    for (const auto& token : tokens) {
        if (token.getType() == RequestToken::DELIM) {
            out += token.getDelim();
            continue;
        }
        for (char c : token.getString()) {
            if (c == '\\' || c == '"' || isDelimiter(c)) {
                out += '\\';
            }
            out += c;
        }
    }
    return out;
}

bool sameTokens(const std::vector<RequestToken>& a, const std::vector<RequestToken>& b)
{
    if (a.size() != b.size()) {
        return false;
    }
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i].getType() != b[i].getType() || a[i].getDelim() != b[i].getDelim() ||
            a[i].toString() != b[i].toString()) {
            return false;
        }
    }
    return true;
}

void readEverything(const RequestToken& token)
{
    (void)token.getType();
    (void)token.getDelim();
    try {
        (void)token.getString();
        check(token.getType() == RequestToken::TEXT, "getString answered for a DELIM token");
    } catch (const RequestFormatException&) {
        check(token.getType() == RequestToken::DELIM, "getString refused a TEXT token");
    }
    (void)token.toString();

    bool intRead = false;
    int intValue = 0;
    try {
        intValue = token.getInt();
        intRead = true;
    } catch (const ProcessingException&) {
    }
    try {
        (void)token.getHexInt();
    } catch (const ProcessingException&) {
    }
    try {
        (void)token.getFloat();
    } catch (const ProcessingException&) {
    }
    try {
        bool value = token.getBoolean();
        if (intRead && token.toString() != "true" && token.toString() != "TRUE") {
            check(value == (intValue > 0), "getBoolean disagrees with getInt");
        }
    } catch (const ProcessingException&) {
        check(!intRead, "getBoolean failed where getInt succeeded");
    }

    // A text that reads whole as a number starts with that number.
    if (intRead && token.getType() == RequestToken::TEXT) {
        TokenMap map;
        map["p"].push_back(token);
        check(RequestTokenizer::getFirstByte(map, "p") == intValue, "getFirstByte disagrees with getInt");
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Failed reads and decoding print on standard output; libFuzzer reports
    // on standard error.
    if (std::freopen("/dev/null", "w", stdout) == nullptr) {
        return 0;
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string request(reinterpret_cast<const char*>(data), size);
    RequestTokenizer tokenizer(kDelimiters);

    std::vector<RequestToken> tokens;
    tokenizer.tokenize(request, tokens);

    size_t joinedLength = 0;
    for (size_t i = 0; i < tokens.size(); ++i) {
        const RequestToken& token = tokens[i];
        if (token.getType() == RequestToken::TEXT) {
            check(!token.getString().empty(), "empty TEXT token");
            check(token.getDelim() == 0, "TEXT token with a delimiter");
            check(i == 0 || tokens[i - 1].getType() != RequestToken::TEXT, "adjacent TEXT tokens");
        } else {
            check(token.getType() == RequestToken::DELIM, "token of unknown type");
            check(isDelimiter(token.getDelim()), "DELIM token for a non-delimiter");
            check(token.toString().size() == 1, "DELIM token text");
        }
        joinedLength += token.toString().size();
        readEverything(token);
    }
    check(joinedLength <= request.size(), "tokens longer than the request");

    // Without escapes nothing is dropped: the tokens are the request.
    if (request.find('\\') == std::string::npos) {
        std::string joined;
        for (const auto& token : tokens) {
            joined += token.toString();
        }
        check(joined == request, "tokens do not re-join to the request");
    }

    // Escaping the tokens' special characters gives a request that tokenizes
    // back to the same tokens, appended after what the vector already held.
    std::vector<RequestToken> again{RequestToken()};
    tokenizer.tokenize(escapedJoin(tokens), again);
    check(again.size() == tokens.size() + 1 && again[0].getString().empty(), "tokenize cleared the vector");
    again.erase(again.begin());
    check(sameTokens(tokens, again), "escaped re-join tokenizes differently");

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
