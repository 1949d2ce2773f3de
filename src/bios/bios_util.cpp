#include "bios_util.h"

#include <syslog.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <mutex>
#include <string>

#include "ALog.h"
#include "PlatformRoot.h"
#include "safeexec.h"

// The controller's safe-execution library runs every command line of the
// BIOS token code (linked for real: its record and fault files see them).

namespace {
std::atomic<bios_syslog_hook_t> g_hook{nullptr};
std::mutex g_mirrorMutex;
}  // namespace

// Below a platform root other than "/" (a development machine, the tests)
// there may be no syslog daemon: every line is also appended to
// <root>/var/log/syslog, one escaped line per message.
void syslog_mirror(const char* identity, const char* message)
{
    const std::string root = PlatformRoot::root();
    if (root.empty() || root == "/") {
        return;
    }
    std::string text = ALog::escapeControls(message, true);
    if (text.empty() || text.back() != '\n') {
        text += '\n';
    }
    std::lock_guard<std::mutex> lock(g_mirrorMutex);
    FILE* f = fopen(PlatformRoot::path("/var/log/syslog").c_str(), "a");
    if (f == nullptr) {
        return;
    }
    fprintf(f, "%s: %s", identity, text.c_str());
    fclose(f);
}

void bios_syslog_set_hook(bios_syslog_hook_t hook)
{
    g_hook.store(hook);
}

void bios_syslog(const char* format, ...)
{
    char message[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof message, format, args);
    va_end(args);
    syslog(LOG_INFO, "%s", message);
    syslog_mirror("gds", message);
    bios_syslog_hook_t hook = g_hook.load();
    if (hook != nullptr) {
        hook(message);
    }
}

int bios_run_command(const char* format, ...)
{
    // The controller builds these lines in 100 bytes; below a platform root
    // the paths are longer, so the line gets room for the root.
    char command[1024];
    va_list args;
    va_start(args, format);
    int n = vsnprintf(command, sizeof command, format, args);
    va_end(args);
    if (n < 0 || n >= static_cast<int>(sizeof command) || !PlatformRoot::isShellSafe()) {
        return -1;
    }
    return system_secure(command);
}
