// ToolRun: runs one of the controller's tool command lines without a shell.
// The line is split as the shell would split it (parse) and its programs
// are started directly with argument vectors; the filters it ends in
// (grep, awk) run in the server (ToolFilter). One object per run, used by
// one thread; it owns the children and the stream until finish() or its
// destruction (which waits for them).
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "ToolFilter.h"

class ToolRun {
public:
    // A command line after word splitting and quote removal.
    struct Command {
        std::vector<std::vector<std::string>> programs;  // piped one into the next
        ToolFilter filter;                               // then these filters, in the server
        bool joinErrors = false;                         // "2>&1" on the last program
        std::string input;                               // "< FILE"
        std::string output;                              // "> FILE"
        bool background = false;                         // a final "&": nobody waits for it
    };
    // Splits `text` into words: blanks and tabs separate; '...' is taken
    // literally; "..." too, except that a backslash keeps the next $ ` " \;
    // outside quotes a backslash keeps the next character. "|" separates
    // programs, "2>&1", "< FILE", "> FILE" and a final "&" are kept as said
    // above, and grep/awk stages after the last program become filters.
    // Refused (false, `error` says why): an expansion ($, backquote), ";",
    // "&&", "||", other redirections, parentheses, a "#" or "~" opening a
    // word, an assignment as the first word, line breaks, an unterminated
    // quote, a program after a filter, a filter that would need a regular
    // expression. The pattern characters * ? [ ] are plain text (no file
    // name expansion).
    static bool parse(const std::string& text, Command& command, std::string* error = nullptr);

    ToolRun() = default;
    ~ToolRun();
    ToolRun(const ToolRun&) = delete;
    ToolRun& operator=(const ToolRun&) = delete;

    // Starts `text`: false when it is refused or cannot be started (no
    // pipe, no memory). A program that does not exist counts as started and
    // exits 127, as under a shell. Children start clean: default signal
    // dispositions, nothing blocked, standard input from /dev/null (unless
    // redirected), no descriptor above 2, the server's environment.
    bool start(const char* text);
    // Starts a command built by the caller: its words go to the programs
    // as they are (no splitting, no quotes), so a value with blanks or
    // quotes stays one argument. Empty programs are refused.
    bool start(const Command& command);
    // One program with its arguments, then `filters` in the server.
    static Command program(std::vector<std::string> words, std::vector<ToolFilter::Step> filters = {});
    // The output of the last program (after the filters), or null before a
    // successful start. With filters the output is collected first.
    FILE* stream() { return m_stream; }
    // Closes the stream (a program still writing gets SIGPIPE) and waits
    // for every program: the exit status of the last stage (the filter's,
    // when there is one; 128 + the signal of a killed program), or -1.
    int finish();

    // Runs `text` and appends its whole output to `output`: the exit status,
    // or -1 when it cannot be started.
    static int run(const char* text, std::string& output);
    static int run(const Command& command, std::string& output);
    // Processes started by this process so far (every program of every run).
    static unsigned long startedCount() { return s_started.load(std::memory_order_relaxed); }

private:
    pid_t spawn(const std::vector<std::string>& argv, int in, int out, bool joinErrors);
    void reapAll();

    std::vector<pid_t> m_pids;  // -1 for a program that could not be executed
    int m_lastExec = 0;         // exit status of a last program that could not be executed
    FILE* m_stream = nullptr;
    std::string m_filtered;  // the filtered output the stream reads
    int m_filterStatus = 0;
    bool m_filteredRun = false;
    static std::atomic<unsigned long> s_started;
};
