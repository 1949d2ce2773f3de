// ALog: a named log sink writing lines to a file and/or the console.
// Thread-safe: many component logs on many threads write through one ALog.
// A connection thread collects its lines (and its console() text) in a
// buffer of its own, without a shared lock; errors and warnings leave at
// once with what the thread collected before them, information and trace
// lines at flush(), which the connection handler calls once per request
// (one write per target, whole lines). Other threads write line by line. The ALog does not own the FILE* it is given
// (the process keeps its log file open for life); it writes to its
// descriptor.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>

class ALog {
public:
    // Severity levels; a message is written when its level is at most the
    // log's threshold. The threshold comes from GDS_LOG_LEVEL (default kInfo),
    // so per-request trace lines cost nothing unless asked for.
    enum Level { kError = 1, kWarning = 2, kInfo = 3, kTrace = 4 };

    explicit ALog(const char* name);
    // `file` may be null (a log file that could not be opened): the log then
    // writes to the console only, when echo is on.
    ALog(const char* name, FILE* file);
    virtual ~ALog() = default;

    ALog(const ALog&) = delete;
    ALog& operator=(const ALog&) = delete;

    void setEchoToConsole(bool echo) { m_echo = echo; }
    void setShowTimestamp(bool show) { m_timestamp = show; }
    void setLevel(int level) { m_level = level; }
    int getLevel() const { return m_level; }
    bool isEnabled(int level) const { return level <= m_level && (m_file != nullptr || m_echo); }
    const char* getName() const { return m_name.c_str(); }

    // Writes one message from `component`; a line end is added when the
    // message does not end with one.
    void write(int level, const char* component, const char* message);
    void vlog(int level, const char* component, const char* format, va_list args);
    // Writes what this thread collected (its lines of every ALog, and its
    // console text).
    void flush();
    // printf to standard output, collected with the calling thread's lines
    // and written at its next flush (or error line): for the lines a request
    // prints, which would otherwise take stdout's lock each.
    static void console(const char* format, ...) __attribute__((format(printf, 1, 2)));
    // Whether the calling thread's lines wait for flush() (connection
    // threads) or leave line by line (every other thread, the default).
    static void collectLines(bool collect);

    // A log that writes nothing.
    static ALog& nullLog();
    // The process's log: what a component log writes through before it is
    // attached (objects log while they are constructed). The null log until
    // setProcessLog is called; `log` must live for the rest of the process.
    static ALog& processLog();
    static void setProcessLog(ALog* log);

    // Control characters of `in` (bytes below 32 and 127) become visible
    // escapes (\n, \r, \t, \xNN), so a text from a client can never start
    // a line of its own in a log. A line end that ends `in` is kept when
    // `keepFinalLineEnd` is set.
    static std::string escapeControls(const char* in, bool keepFinalLineEnd);

    // Per-request bound on the lines written for a request's items (the
    // calling thread only). beginItemLines starts a budget of `limit`
    // lines; takeItemLine says whether one more may be written (always true
    // outside a budget); endItemLines returns how many were held back.
    static void beginItemLines(int limit);
    static bool takeItemLine();
    static int endItemLines();

private:
    // write(), keeping up to `keepLeadingLineEnds` line ends that open the
    // message (those of a format) as they are.
    void writeLine(int level, const char* component, const char* message, size_t keepLeadingLineEnds);

    std::string m_name;
    FILE* m_file;
    bool m_echo = false;
    bool m_timestamp = false;
    int m_level;
};
