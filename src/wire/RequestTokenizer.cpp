#include "RequestTokenizer.h"

#include <climits>
#include <cstdio>
#include <cstdlib>

RequestTokenizer::RequestTokenizer(const char* delimiters) : m_delimiters(delimiters ? delimiters : "") {}

void RequestTokenizer::tokenize(const std::string& request, std::vector<RequestToken>& tokens) const
{
    std::string current;
    const size_t length = request.size();
    size_t p = 0;
    while (p < length) {
        const char c = request[p];
        if (c == '\\' && p + 1 < length) {
            current += request[p + 1];
            p += 2;
        } else if (c == '"') {
            size_t close = request.find('"', p + 1);
            if (close == std::string::npos) {
                current.append(request, p, std::string::npos);
                break;
            }
            current.append(request, p, close + 1 - p);
            p = close + 1;
        } else if (m_delimiters.find(c) != std::string::npos) {
            // The delimiter set comes from a C string, so NUL is never in it.
            if (!current.empty()) {
                tokens.emplace_back(RequestToken::TEXT, current);
                current.clear();
            }
            tokens.emplace_back(RequestToken::DELIM, c);
            ++p;
        } else {
            current += c;
            ++p;
        }
    }
    if (!current.empty()) {
        tokens.emplace_back(RequestToken::TEXT, current);
    }
}

void RequestTokenizer::decodeRequest(std::string& request)
{
    std::printf(" Request URL: %s\n", request.c_str());
    std::string output;
    size_t from = 0;
    bool found = false;
    for (size_t at = request.find("\\:"); at != std::string::npos; at = request.find("\\:", from)) {
        output.append(request, from, at - from);
        output += ':';
        std::printf("  Modified URL: %s\n", output.c_str());
        from = at + 2;
        found = true;
    }
    if (found) {
        output.append(request, from, std::string::npos);
        request.swap(output);
    }
}

int RequestTokenizer::getFirstByte(TokenMap& map, const char* name)
{
    if (name == nullptr) {
        return -1;
    }
    auto entry = map.find(name);
    if (entry == map.end() || entry->second.empty()) {
        return -1;
    }
    const std::string text = entry->second.front().toString();
    const char* start = text.c_str();
    char* end = nullptr;
    long value = std::strtol(start, &end, 10);
    if (end == start) {
        return -1;
    }
    // The controller's long is 32 bits wide; strtol saturates there.
    if (value > INT_MAX) {
        return INT_MAX;
    }
    if (value < INT_MIN) {
        return INT_MIN;
    }
    return static_cast<int>(value);
}
