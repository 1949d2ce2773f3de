// AComponentLog: a named log for one object (a server, a connection, an agent).
// It writes through a base ALog, either its own or, for a child, the one its
// parent component log resolves to at the time of writing. Used by the thread
// that owns the object; the ALog behind it does the locking. Holds no
// ownership: the base ALog and the parent must outlive it.
#pragma once

#include <cstdarg>
#include <string>

#include "ALog.h"

class AComponentLog {
public:
    explicit AComponentLog(const char* name = "");
    virtual ~AComponentLog() = default;

    // Copies keep the name and the attachment.
    AComponentLog(const AComponentLog&) = default;
    AComponentLog& operator=(const AComponentLog&) = default;

    void setBaseLog(ALog& log) { m_base = &log; }
    // Attaches this log below `parent`: it writes wherever the parent does.
    void setParent(AComponentLog& parent) { m_parent = &parent; }
    // The ALog this log writes through (the null log when unattached).
    ALog& getParentLog() const;

    const char* getName() const { return m_name.c_str(); }
    void setName(const char* name) { m_name = name != nullptr ? name : ""; }
    bool isEnabled(int level) const { return getParentLog().isEnabled(level); }

    void log(int level, const char* format, ...) __attribute__((format(printf, 3, 4)));
    void logError(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void logWarning(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void logInfo(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void logTrace(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void vlog(int level, const char* format, va_list args);
    void flush() { getParentLog().flush(); }

private:
    std::string m_name;
    ALog* m_base = nullptr;
    AComponentLog* m_parent = nullptr;
};
