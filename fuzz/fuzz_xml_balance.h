// Shared by the inventory fuzz targets: a reply fragment is well-formed when
// its tags nest and close, and its text holds no bare "<" (element values
// are escaped by the socket). Single-threaded; no state.
#pragma once

#include <string>
#include <vector>

namespace fuzzxml {

inline bool balanced(const std::string& text)
{
    std::vector<std::string> open;
    size_t at = 0;
    while ((at = text.find('<', at)) != std::string::npos) {
        size_t end = text.find('>', at);
        if (end == std::string::npos) {
            return false;
        }
        std::string tag = text.substr(at + 1, end - at - 1);
        if (tag.empty() || tag.find('<') != std::string::npos) {
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
        at = end + 1;
    }
    return open.empty();
}

}  // namespace fuzzxml
