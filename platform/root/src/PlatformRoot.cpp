#include "PlatformRoot.h"

#include <cstdlib>
#include <cstring>

std::string PlatformRoot::root()
{
    const char* env = getenv("GDS_ROOT");
    if (env == nullptr || env[0] == '\0') {
        return "";
    }
    std::string r(env);
    while (!r.empty() && r.back() == '/') {
        r.pop_back();
    }
    return r;
}

std::string PlatformRoot::path(const char* p)
{
    if (p == nullptr) {
        return "";
    }
    if (p[0] != '/') {
        return p;
    }
    return root() + p;
}

bool PlatformRoot::isShellSafe()
{
    const std::string r = root();
    for (char c : r) {
        bool ok =
            (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || strchr("/._-+", c) != nullptr;
        if (!ok) {
            return false;
        }
    }
    return true;
}
