#include "log_tlog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "ALog.h"
#include "PlatformRoot.h"

extern "C" void log_tlog(int level, const char* format, ...)
{
    if (format == nullptr) {
        return;
    }
    char line[1100];
    int head = snprintf(line, sizeof line, "%d ", level);
    va_list args;
    va_start(args, format);
    vsnprintf(line + head, sizeof line - static_cast<size_t>(head) - 1, format, args);
    va_end(args);
    // One call is one line: control characters of the message (a request
    // text among its arguments) are escaped.
    std::string text = ALog::escapeControls(line, true);
    if (text.empty() || text.back() != '\n') {
        text += '\n';
    }
    // Opened per call: the trace log is rare next to request work, and a
    // per-call open follows GDS_ROOT and survives log rotation.
    std::string path = PlatformRoot::path("/var/log/tlog");
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0 && errno == ENOENT) {
        // A fresh platform root may lack the log folder.
        mkdir(PlatformRoot::path("/var").c_str(), 0755);
        mkdir(PlatformRoot::path("/var/log").c_str(), 0755);
        fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    }
    if (fd < 0) {
        return;
    }
    ssize_t ignored = write(fd, text.data(), text.size());
    (void)ignored;
    close(fd);
}
