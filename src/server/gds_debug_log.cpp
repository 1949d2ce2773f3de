#include "gds_debug_log.h"

#include <unistd.h>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <functional>
#include <mutex>
#include <string>

#include "ALog.h"
#include "PlatformRoot.h"

namespace {
std::mutex g_openMutex;
FILE* g_stream = nullptr;
std::string g_streamPath;  // the file g_stream writes to (the root may change in tests)
}  // namespace

namespace {
// Whether the marker file exists, looked up at most once a second: every
// request writes an audit line, and an access() per request was a system
// call for a switch that an administrator flips by hand. Creating or removing
// the marker takes effect within a second.
std::atomic<long long> g_markerCheckedAt{-1};
std::atomic<bool> g_markerPresent{false};
std::atomic<unsigned> g_markerRootStamp{0};

bool markerPresent()
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    long long now = static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
    long long checked = g_markerCheckedAt.load();
    // Tests move the platform root: a new root is looked at at once.
    unsigned stamp = static_cast<unsigned>(std::hash<std::string>()(PlatformRoot::root()));
    if (checked >= 0 && now - checked < 1000 && stamp == g_markerRootStamp.load()) {
        return g_markerPresent.load();
    }
    bool present = access(PlatformRoot::path("/tmp/gdsprint_override").c_str(), F_OK) == 0;
    g_markerPresent.store(present);
    g_markerRootStamp.store(stamp);
    g_markerCheckedAt.store(now);
    return present;
}
}  // namespace

extern "C" void gds_debug_log(int level, const char* format, ...)
{
    if (!markerPresent()) {
        return;
    }
    FILE* stream;
    {
        std::lock_guard<std::mutex> lock(g_openMutex);
        std::string path = PlatformRoot::path("/var/log/gds.log");
        if (g_stream != nullptr && g_streamPath != path) {
            fclose(g_stream);  // only when tests move the platform root
            g_stream = nullptr;
        }
        if (g_stream == nullptr) {
            g_stream = fopen(path.c_str(), "a+");  // a failed open is tried again next time
            g_streamPath = path;
        }
        stream = g_stream;
    }
    if (stream == nullptr || format == nullptr) {
        return;
    }
    char stamp[32];
    time_t now = time(nullptr);
    struct tm local;
    localtime_r(&now, &local);
    strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);

    char message[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof message, format, args);
    va_end(args);

    const char* kind = level == 1 ? "GDS_DBG_ERROR" : level == 2 ? "GDS_DBG_INFO" : nullptr;
    if (kind == nullptr) {
        return;
    }
    // A request text is part of the message: its line ends and other
    // control characters are escaped, so one call writes one line and a
    // client cannot forge an audit line. fprintf locks the stream, so lines
    // of different threads never mix.
    const std::string text = ALog::escapeControls(message, true);
    fprintf(stream, "(%d)[%s] %s: %s", static_cast<int>(getpid()), stamp, kind, text.c_str());
    fflush(stream);
}
