#include "ALog.h"

#include <sys/time.h>
#include <algorithm>
#include <atomic>
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

void ALog::writeLine(int level, const char* component, const char* message, size_t keepLeadingLineEnds)
{
    if (!isEnabled(level) || message == nullptr) {
        return;
    }
    char stamp[40] = "";
    if (m_timestamp) {
        struct timeval tv;
        gettimeofday(&tv, nullptr);
        struct tm tmv;
        localtime_r(&tv.tv_sec, &tmv);
        size_t len = strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &tmv);
        snprintf(stamp + len, sizeof stamp - len, ".%03ld ", static_cast<long>(tv.tv_usec / 1000));
    }
    // One message is one line: line ends and other control characters
    // inside it (a request text, a tool's output) are written as escapes.
    size_t lead = std::min(keepLeadingLineEnds, strspn(message, "\n"));
    const std::string text = std::string(lead, '\n') + escapeControls(message + lead, true);
    const char* eol = (!text.empty() && text.back() == '\n') ? "" : "\n";
    const char* comp = component != nullptr ? component : "";

    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_file != nullptr) {
        fprintf(m_file, "%s%s %s %s: %s%s", stamp, m_name.c_str(), levelName(level), comp, text.c_str(), eol);
        if (level <= kWarning) {
            fflush(m_file);
        }
    }
    if (m_echo) {
        fprintf(stdout, "%s%s %s %s: %s%s", stamp, m_name.c_str(), levelName(level), comp, text.c_str(), eol);
        if (level <= kWarning) {
            fflush(stdout);
        }
    }
}

void ALog::flush()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_file != nullptr) {
        fflush(m_file);
    }
    if (m_echo) {
        fflush(stdout);
    }
}
