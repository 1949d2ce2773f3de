#include "ALog.h"

#include <sys/time.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

namespace {
int levelFromEnvironment()
{
    const char* v = getenv("GDS_LOG_LEVEL");
    if (v == nullptr || *v == '\0') {
        return ALog::kInfo;
    }
    char* end = nullptr;
    long n = strtol(v, &end, 10);
    if (end == v || *end != '\0' || n < 0 || n > 9) {
        return ALog::kInfo;
    }
    return static_cast<int>(n);
}

const char* levelName(int level)
{
    switch (level) {
        case ALog::kError:
            return "ERROR";
        case ALog::kWarning:
            return "WARN";
        case ALog::kInfo:
            return "INFO";
        default:
            return "TRACE";
    }
}
}  // namespace

ALog::ALog(const char* name) : ALog(name, nullptr) {}

ALog::ALog(const char* name, FILE* file)
    : m_name(name != nullptr ? name : ""), m_file(file), m_level(levelFromEnvironment())
{
}

namespace {
std::atomic<ALog*> g_processLog{nullptr};
// -1: no budget (outside a request); otherwise the lines still allowed.
thread_local int t_itemBudget = -1;
thread_local int t_itemHeld = 0;
}  // namespace

ALog& ALog::processLog()
{
    ALog* log = g_processLog.load();
    return log != nullptr ? *log : nullLog();
}

void ALog::setProcessLog(ALog* log)
{
    g_processLog.store(log);
}

std::string ALog::escapeControls(const char* in, bool keepFinalLineEnd)
{
    std::string out;
    if (in == nullptr) {
        return out;
    }
    size_t len = strlen(in);
    bool finalLineEnd = keepFinalLineEnd && len > 0 && in[len - 1] == '\n';
    if (finalLineEnd) {
        --len;
    }
    out.reserve(len + 1);
    for (size_t i = 0; i < len; ++i) {
        unsigned char c = static_cast<unsigned char>(in[i]);
        if (c >= 0x20 && c != 0x7f) {
            out += static_cast<char>(c);
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else {
            char hex[5];
            snprintf(hex, sizeof hex, "\\x%02x", c);
            out += hex;
        }
    }
    if (finalLineEnd) {
        out += '\n';
    }
    return out;
}

void ALog::beginItemLines(int limit)
{
    t_itemBudget = limit < 0 ? 0 : limit;
    t_itemHeld = 0;
}

bool ALog::takeItemLine()
{
    if (t_itemBudget < 0) {
        return true;
    }
    if (t_itemBudget > 0) {
        --t_itemBudget;
        return true;
    }
    ++t_itemHeld;
    return false;
}

int ALog::endItemLines()
{
    int held = t_itemHeld;
    t_itemBudget = -1;
    t_itemHeld = 0;
    return held;
}

ALog& ALog::nullLog()
{
    static ALog* log = [] {
        ALog* l = new ALog("null");
        l->setLevel(0);
        return l;
    }();
    return *log;
}

void ALog::vlog(int level, const char* component, const char* format, va_list args)
{
    if (!isEnabled(level) || format == nullptr) {
        return;
    }
    char small[512];
    va_list copy;
    va_copy(copy, args);
    int n = vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (n < 0) {
        return;
    }
    // Line ends that open the format are the developer's layout (a blank
    // line before a message) and stay; everything the arguments bring is
    // escaped in write().
    size_t lead = strspn(format, "\n");
    if (static_cast<size_t>(n) < sizeof small) {
        writeLine(level, component, small, lead);
        return;
    }
    std::vector<char> big(static_cast<size_t>(n) + 1);
    vsnprintf(big.data(), big.size(), format, args);
    writeLine(level, component, big.data(), lead);
}

void ALog::write(int level, const char* component, const char* message)
{
    writeLine(level, component, message, 0);
}

namespace {

// What this thread's log lines and console text are waiting to leave: the
// log file's (by descriptor) and the console's. Beyond the original, which
// writes every line under one process-wide lock (and localtime's): a
// connection thread collects its request's lines without any shared lock
// and hands them over in one write per target at flush(), so connections
// never wait for each other's logging.
struct Pending {
    int fileFd = -1;
    std::string file;
    std::string console;
    bool collect = false;        // a connection thread: lines wait for flush()
    long long stampSecond = -1;  // the second `stampText` shows
    char stampText[24] = "";
};
thread_local Pending t_pending;

void writeAll(int fd, const std::string& text)
{
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return;
        }
        done += static_cast<size_t>(n);
    }
}

// Hands this thread's pending text over. The console text follows whatever
// the process printed through stdio before (fflush keeps the order).
void flushPending()
{
    Pending& p = t_pending;
    if (!p.file.empty() && p.fileFd >= 0) {
        writeAll(p.fileFd, p.file);
    }
    p.file.clear();
    if (!p.console.empty()) {
        fflush(stdout);
        writeAll(STDOUT_FILENO, p.console);
        p.console.clear();
    }
    // The buffers are given back: an idle connection keeps nothing of its
    // request's lines.
    std::string().swap(p.file);
    std::string().swap(p.console);
}

const size_t kPendingLimit = 16 * 1024;  // more than this leaves at once

}  // namespace

void ALog::writeLine(int level, const char* component, const char* message, size_t keepLeadingLineEnds)
{
    if (!isEnabled(level) || message == nullptr) {
        return;
    }
    Pending& p = t_pending;
    char stamp[40] = "";
    if (m_timestamp) {
        struct timeval tv;
        gettimeofday(&tv, nullptr);
        // The date and time of a second are formatted once per thread (the
        // local-time conversion takes a process-wide lock).
        if (static_cast<long long>(tv.tv_sec) != p.stampSecond) {
            struct tm tmv;
            localtime_r(&tv.tv_sec, &tmv);
            strftime(p.stampText, sizeof p.stampText, "%Y-%m-%d %H:%M:%S", &tmv);
            p.stampSecond = static_cast<long long>(tv.tv_sec);
        }
        snprintf(stamp, sizeof stamp, "%.23s.%03d ", p.stampText, static_cast<int>(tv.tv_usec / 1000 % 1000));
    }
    // One message is one line: line ends and other control characters
    // inside it (a request text, a tool's output) are written as escapes.
    size_t lead = std::min(keepLeadingLineEnds, strspn(message, "\n"));
    const std::string text = std::string(lead, '\n') + escapeControls(message + lead, true);
    const char* eol = (!text.empty() && text.back() == '\n') ? "" : "\n";
    const char* comp = component != nullptr ? component : "";
    std::string line;
    line.reserve(text.size() + m_name.size() + strlen(comp) + 48);
    line.append(stamp).append(m_name).append(" ").append(levelName(level)).append(" ").append(comp).append(": ");
    line.append(text).append(eol);

    if (m_file != nullptr) {
        int fd = fileno(m_file);
        if (p.fileFd != fd && !p.file.empty()) {
            flushPending();
        }
        p.fileFd = fd;
        p.file += line;
    }
    if (m_echo) {
        p.console += line;
    }
    if (!p.collect || level <= kWarning || p.file.size() + p.console.size() > kPendingLimit) {
        flushPending();
    }
}

void ALog::collectLines(bool collect)
{
    t_pending.collect = collect;
    if (!collect) {
        flushPending();
    }
}

void ALog::console(const char* format, ...)
{
    char small[512];
    va_list args;
    va_start(args, format);
    int n = vsnprintf(small, sizeof small, format, args);
    va_end(args);
    if (n < 0) {
        return;
    }
    if (static_cast<size_t>(n) < sizeof small) {
        t_pending.console.append(small, static_cast<size_t>(n));
    } else {
        std::vector<char> big(static_cast<size_t>(n) + 1);
        va_start(args, format);
        vsnprintf(big.data(), big.size(), format, args);
        va_end(args);
        t_pending.console.append(big.data(), static_cast<size_t>(n));
    }
    if (!t_pending.collect || t_pending.console.size() > kPendingLimit) {
        flushPending();
    }
}

void ALog::flush()
{
    flushPending();
}
