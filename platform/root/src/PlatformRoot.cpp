#include "PlatformRoot.h"

#include <cstdio>
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

bool PlatformRoot::readFile(const std::string& p, std::string& text, size_t limit)
{
    text.clear();
    FILE* f = fopen(path(p).c_str(), "rb");
    if (f == nullptr) {
        return false;
    }
    char buf[4096];
    size_t n;
    while (text.size() < limit && (n = fread(buf, 1, sizeof buf, f)) > 0) {
        text.append(buf, n);
    }
    fclose(f);
    return true;
}

int PlatformRoot::faultFile(const char* standIn, const char* call)
{
    std::string text;
    if (!readFile(std::string("/var/") + standIn + "/faults/" + call, text)) {
        return -1;
    }
    if (text.compare(0, 6, "short ") == 0) {
        int n = atoi(text.c_str() + 6);
        return n < 0 ? 0 : n;
    }
    return -2;
}
