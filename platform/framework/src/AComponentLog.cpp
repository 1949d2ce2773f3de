#include "AComponentLog.h"

AComponentLog::AComponentLog(const char* name) : m_name(name != nullptr ? name : "") {}

ALog& AComponentLog::getParentLog() const
{
    // Walk up to the first log with a base; the depth is tiny (server ->
    // connection -> handler -> agent), and a cycle cannot be built through
    // the constructors that attach children.
    const AComponentLog* c = this;
    for (int depth = 0; c != nullptr && depth < 16; ++depth) {
        if (c->m_base != nullptr) {
            return *c->m_base;
        }
        c = c->m_parent;
    }
    // Not attached yet (the object is still being constructed): the
    // process's log, so that construction messages are not lost.
    return ALog::processLog();
}

void AComponentLog::vlog(int level, const char* format, va_list args)
{
    ALog& base = getParentLog();
    if (base.isEnabled(level)) {
        base.vlog(level, m_name.c_str(), format, args);
    }
}

#define ACOMPONENTLOG_FORWARD(LEVEL) \
    va_list args;                    \
    va_start(args, format);          \
    vlog(LEVEL, format, args);       \
    va_end(args)

void AComponentLog::log(int level, const char* format, ...)
{
    ACOMPONENTLOG_FORWARD(level);
}

void AComponentLog::logError(const char* format, ...)
{
    ACOMPONENTLOG_FORWARD(ALog::kError);
}

void AComponentLog::logWarning(const char* format, ...)
{
    ACOMPONENTLOG_FORWARD(ALog::kWarning);
}

void AComponentLog::logInfo(const char* format, ...)
{
    ACOMPONENTLOG_FORWARD(ALog::kInfo);
}

void AComponentLog::logTrace(const char* format, ...)
{
    ACOMPONENTLOG_FORWARD(ALog::kTrace);
}
