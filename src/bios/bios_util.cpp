#include "bios_util.h"

#include <syslog.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "PlatformRoot.h"

// The controller's safe-execution library runs command lines for the BIOS
// token code. Bound weakly: where the library is not present (a development
// build without it), the C library's system() runs the line instead.
extern "C" int system_secure(const char* command) __attribute__((weak));

namespace {
std::atomic<bios_syslog_hook_t> g_hook{nullptr};
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
    if (system_secure != nullptr) {
        return system_secure(command);
    }
    return system(command);
}
