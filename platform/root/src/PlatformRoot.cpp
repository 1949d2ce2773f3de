#include "PlatformRoot.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <mutex>

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

namespace {

// Reads at most about `limit` bytes of a file by its host path (already
// under the root).
bool readHostFile(const std::string& hostPath, std::string& text, size_t limit)
{
    text.clear();
    FILE* f = fopen(hostPath.c_str(), "rb");
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

}  // namespace

bool PlatformRoot::readFile(const std::string& p, std::string& text, size_t limit)
{
    return readHostFile(path(p), text, limit);
}

int PlatformRoot::recheckMs()
{
    const char* env = getenv("GDS_STANDIN_RECHECK_MS");
    if (env == nullptr || *env == '\0') {
        return 1000;
    }
    char* end = nullptr;
    long v = strtol(env, &end, 10);
    return (*end != '\0' || v < 0 || v > 3600000) ? 1000 : static_cast<int>(v);
}

long long PlatformRoot::monotonicMs()
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

namespace {
// A faults folder as last listed: file name -> content. Fault files are
// small; only their first bytes matter.
struct FaultSnapshot {
    long long readAtMs = 0;
    std::map<std::string, std::string> files;
};
const size_t kFaultTextLimit = 4096;
std::mutex g_faultMutex;
std::map<std::string, FaultSnapshot> g_faultSnapshots;  // key: the folder's host path

void listFaults(const std::string& dir, FaultSnapshot& snapshot)
{
    snapshot.files.clear();
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) {
        return;  // no folder: no faults
    }
    while (struct dirent* entry = readdir(d)) {
        if (entry->d_name[0] == '.') {
            continue;
        }
        std::string text;
        if (readHostFile(dir + "/" + entry->d_name, text, kFaultTextLimit)) {
            snapshot.files[entry->d_name] = text;
        }
    }
    closedir(d);
}
}  // namespace

bool PlatformRoot::faultText(const char* standIn, const char* call, std::string& text)
{
    const std::string dir = std::string("/var/") + standIn + "/faults";
    const int interval = recheckMs();
    if (interval == 0) {
        return readFile(dir + "/" + call, text, kFaultTextLimit);
    }
    const std::string host = path(dir);
    const long long now = monotonicMs();
    std::lock_guard<std::mutex> lock(g_faultMutex);
    auto it = g_faultSnapshots.find(host);
    if (it == g_faultSnapshots.end() || now - it->second.readAtMs >= interval) {
        FaultSnapshot& snapshot = g_faultSnapshots[host];
        listFaults(host, snapshot);
        snapshot.readAtMs = now;
        it = g_faultSnapshots.find(host);
    }
    auto file = it->second.files.find(call);
    if (file == it->second.files.end()) {
        text.clear();
        return false;
    }
    text = file->second;
    return true;
}

int PlatformRoot::faultFile(const char* standIn, const char* call)
{
    std::string text;
    if (!faultText(standIn, call, text)) {
        return -1;
    }
    if (text.compare(0, 6, "short ") == 0) {
        int n = atoi(text.c_str() + 6);
        return n < 0 ? 0 : n;
    }
    return -2;
}

FILE* PlatformRoot::openNoFollow(const std::string& hostPath, const char* mode)
{
    int flags = O_CLOEXEC | O_NOFOLLOW;
    switch (mode != nullptr ? mode[0] : '\0') {
        case 'r':
            flags |= O_RDONLY;
            break;
        case 'w':
            flags |= O_WRONLY | O_CREAT | O_TRUNC;
            break;
        case 'a':
            flags |= O_WRONLY | O_CREAT | O_APPEND;
            break;
        default:
            errno = EINVAL;
            return nullptr;
    }
    int fd = open(hostPath.c_str(), flags, 0644);
    if (fd < 0) {
        return nullptr;
    }
    FILE* f = fdopen(fd, mode);
    if (f == nullptr) {
        int error = errno;
        close(fd);
        errno = error;
    }
    return f;
}

bool PlatformRoot::ownFolder(const std::string& hostPath)
{
    struct stat st;
    return lstat(hostPath.c_str(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == geteuid();
}
