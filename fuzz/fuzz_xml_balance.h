// Shared by the fuzz targets of agent replies: a reply fragment is
// well-formed when its elements (without attributes) nest and close, no bare
// ">" stands in text, and "&" appears only in the five escapes the socket
// writes. Single-threaded; no state.
#pragma once

#include <cstring>
#include <string>
#include <vector>

namespace fuzzxml {

inline bool balanced(const std::string& text)
{
    std::vector<std::string> open;
    for (size_t at = 0; at < text.size(); at++) {
        char c = text[at];
        if (c == '&') {
            bool known = false;
            for (const char* e : {"&amp;", "&lt;", "&gt;", "&quot;", "&apos;"}) {
                known = known || text.compare(at, strlen(e), e) == 0;
            }
            if (!known) {
                return false;
            }
        } else if (c == '>') {
            return false;
        } else if (c == '<') {
            size_t end = text.find('>', at);
            if (end == std::string::npos) {
                return false;
            }
            std::string tag = text.substr(at + 1, end - at - 1);
            if (tag.empty() || tag.find_first_of("<&\"' \t") != std::string::npos) {
                return false;
            }
            if (tag[0] == '/') {
                if (open.empty() || open.back() != tag.substr(1)) {
                    return false;
                }
                open.pop_back();
            } else {
                open.push_back(tag);
            }
            at = end;
        }
    }
    return open.empty();
}

}  // namespace fuzzxml
