// ToolRun: the controller's tool command lines, run without a shell.
//
// Beyond the original, which hands every line to /bin/sh (popen): on the
// controller's single core a shell costs a fork and exec of several
// milliseconds, and the grep and awk of a pipeline two more processes, for
// filtering a few lines. Here the line is split as the shell would split it,
// the programs start directly, and the filters run in the server. Nothing
// between request text and the tool interprets the line a second time.
#include "ToolRun.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <thread>

#include "clean_spawn.h"
#include "log_tlog.h"

extern char** environ;

std::atomic<unsigned long> ToolRun::s_started{0};

namespace {

enum TokenKind { kWord, kPipe, kInput, kOutput, kJoin, kBackground };

struct Token {
    TokenKind kind;
    std::string text;
};

bool refuse(std::string* error, const char* why)
{
    if (error != nullptr) {
        *error = why;
    }
    return false;
}

bool blank(char c)
{
    return c == ' ' || c == '\t';
}

bool split(const std::string& text, std::vector<Token>& tokens, std::string* error)
{
    size_t i = 0;
    const size_t n = text.size();
    while (i < n) {
        while (i < n && blank(text[i])) {
            ++i;
        }
        if (i == n) {
            break;
        }
        char c = text[i];
        if (c == '|') {
            if (i + 1 < n && text[i + 1] == '|') {
                return refuse(error, "\"||\" is not supported");
            }
            tokens.push_back({kPipe, ""});
            ++i;
            continue;
        }
        if (c == '&') {
            size_t rest = i + 1;
            while (rest < n && blank(text[rest])) {
                ++rest;
            }
            if (rest != n) {
                return refuse(error, "\"&\" only ends a line");
            }
            tokens.push_back({kBackground, ""});
            break;
        }
        if (c == '<' || c == '>') {
            if (i + 1 < n && (text[i + 1] == '<' || text[i + 1] == '>' || text[i + 1] == '&')) {
                return refuse(error, "unsupported redirection");
            }
            tokens.push_back({c == '<' ? kInput : kOutput, ""});
            ++i;
            continue;
        }
        if (text.compare(i, 4, "2>&1") == 0 && (i + 4 == n || blank(text[i + 4]) || text[i + 4] == '|')) {
            tokens.push_back({kJoin, ""});
            i += 4;
            continue;
        }
        if (c == '#' || c == '~') {
            return refuse(error, "a word may not begin with # or ~");
        }
        // One word, up to an unquoted blank or operator.
        std::string word;
        bool quoted = false;
        while (i < n && !blank(text[i])) {
            c = text[i];
            if (c == '|' || c == '&' || c == '<' || c == '>') {
                break;
            }
            if (c == ';' || c == '(' || c == ')' || c == '`' || c == '$' || c == '\n' || c == '\r') {
                return refuse(error, "shell syntax or expansion");
            }
            if (c == '\'') {
                size_t close = text.find('\'', i + 1);
                if (close == std::string::npos) {
                    return refuse(error, "unterminated quote");
                }
                word.append(text, i + 1, close - i - 1);
                quoted = true;
                i = close + 1;
                continue;
            }
            if (c == '"') {
                quoted = true;
                ++i;
                bool closed = false;
                while (i < n) {
                    c = text[i];
                    if (c == '"') {
                        closed = true;
                        ++i;
                        break;
                    }
                    if (c == '$' || c == '`' || c == '\n') {
                        return refuse(error, "expansion inside double quotes");
                    }
                    if (c == '\\' && i + 1 < n && strchr("$`\"\\", text[i + 1]) != nullptr) {
                        word += text[i + 1];
                        i += 2;
                        continue;
                    }
                    word += c;
                    ++i;
                }
                if (!closed) {
                    return refuse(error, "unterminated quote");
                }
                continue;
            }
            if (c == '\\') {
                if (i + 1 >= n || text[i + 1] == '\n') {
                    return refuse(error, "backslash at the end of the line");
                }
                word += text[i + 1];
                quoted = true;
                i += 2;
                continue;
            }
            word += c;
            ++i;
        }
        (void)quoted;
        tokens.push_back({kWord, word});
    }
    return true;
}

// A grep pattern with no regular-expression meaning, as the plain text it
// matches: "\-" and "\." stand for "-" and ".".
bool plainPattern(const std::string& pattern, std::string& text)
{
    text.clear();
    for (size_t i = 0; i < pattern.size(); ++i) {
        char c = pattern[i];
        if (c == '\\') {
            if (i + 1 >= pattern.size() || isalnum(static_cast<unsigned char>(pattern[i + 1])) ||
                pattern[i + 1] == '(' || pattern[i + 1] == ')' || pattern[i + 1] == '{' || pattern[i + 1] == '}' ||
                pattern[i + 1] == '|' || pattern[i + 1] == '<' || pattern[i + 1] == '>' || pattern[i + 1] == '?' ||
                pattern[i + 1] == '+') {
                return false;  // a back-reference, a group, an anchor, a class
            }
            text += pattern[++i];
            continue;
        }
        if (strchr(".[]*^$", c) != nullptr) {
            return false;
        }
        text += c;
    }
    return !text.empty();
}

bool plainSeparator(const std::string& separator)
{
    return separator.find_first_of("\\^$.[]|()*+?{}") == std::string::npos;
}

// "{print $N}" (blanks allowed around the parts): N, or -1.
int printField(const std::string& program)
{
    size_t i = 0;
    auto skip = [&] {
        while (i < program.size() && blank(program[i])) {
            ++i;
        }
    };
    skip();
    if (i >= program.size() || program[i++] != '{') {
        return -1;
    }
    skip();
    if (program.compare(i, 5, "print") != 0) {
        return -1;
    }
    i += 5;
    skip();
    if (i >= program.size() || program[i++] != '$') {
        return -1;
    }
    size_t digits = i;
    int n = 0;
    while (i < program.size() && isdigit(static_cast<unsigned char>(program[i])) && n < 1000) {
        n = n * 10 + (program[i++] - '0');
    }
    if (i == digits) {
        return -1;
    }
    skip();
    if (i >= program.size() || program[i++] != '}') {
        return -1;
    }
    skip();
    return i == program.size() ? n : -1;
}

bool filterStage(const std::vector<std::string>& words, ToolFilter::Step& step)
{
    if (words[0] == "grep") {
        bool invert = words.size() == 3 && words[1] == "-v";
        if (words.size() != (invert ? 3u : 2u)) {
            return false;
        }
        step.kind = invert ? ToolFilter::Step::kGrepInvert : ToolFilter::Step::kGrep;
        return plainPattern(words.back(), step.text);
    }
    // awk [-F SEP | -FSEP] '{print $N}'
    size_t next = 1;
    std::string separator;
    if (words.size() > 1 && words[1].compare(0, 2, "-F") == 0) {
        if (words[1].size() > 2) {
            separator = words[1].substr(2);
            next = 2;
        } else if (words.size() > 2) {
            separator = words[2];
            next = 3;
        } else {
            return false;
        }
        if (separator.empty() || !plainSeparator(separator)) {
            return false;
        }
    }
    if (words.size() != next + 1) {
        return false;
    }
    int n = printField(words[next]);
    if (n < 0) {
        return false;
    }
    step.kind = ToolFilter::Step::kField;
    step.text = separator;
    step.field = n;
    return true;
}

}  // namespace

bool ToolRun::parse(const std::string& text, Command& command, std::string* error)
{
    command = Command();
    std::vector<Token> tokens;
    if (!split(text, tokens, error)) {
        return false;
    }
    std::vector<std::vector<Token>> stages(1);
    for (const Token& t : tokens) {
        if (t.kind == kPipe) {
            stages.emplace_back();
        } else if (t.kind == kBackground) {
            command.background = true;
        } else {
            stages.back().push_back(t);
        }
    }
    for (size_t s = 0; s < stages.size(); ++s) {
        const bool first = s == 0;
        const bool last = s + 1 == stages.size();
        std::vector<std::string> words;
        bool join = false;
        std::string input, output;
        const std::vector<Token>& stage = stages[s];
        for (size_t k = 0; k < stage.size(); ++k) {
            const Token& t = stage[k];
            if (t.kind == kWord) {
                words.push_back(t.text);
            } else if (t.kind == kJoin) {
                join = true;
            } else {  // < or >: the next word is the file
                if (k + 1 >= stage.size() || stage[k + 1].kind != kWord || stage[k + 1].text.empty()) {
                    return refuse(error, "a redirection without a file");
                }
                (t.kind == kInput ? input : output) = stage[++k].text;
            }
        }
        if (words.empty()) {
            return refuse(error, "an empty command");
        }
        bool filter = words[0] == "grep" || words[0] == "awk";
        if (filter) {
            ToolFilter::Step step{ToolFilter::Step::kGrep, "", 0};
            if (command.programs.empty() || !filterStage(words, step)) {
                return refuse(error, "unsupported filter");
            }
            if (join || !input.empty() || !output.empty()) {
                return refuse(error, "a redirection on a filter");
            }
            command.filter.add(step);
            continue;
        }
        if (!command.filter.empty()) {
            return refuse(error, "a program after a filter");
        }
        if (words[0].find('=') != std::string::npos) {
            return refuse(error, "an assignment");
        }
        if ((!input.empty() && !first) || ((!output.empty() || join) && !last)) {
            return refuse(error, "a redirection inside a pipeline");
        }
        if (!input.empty()) {
            command.input = input;
        }
        if (!output.empty()) {
            command.output = output;
        }
        command.joinErrors = command.joinErrors || join;
        command.programs.push_back(words);
    }
    if (!command.output.empty() && !command.filter.empty()) {
        return refuse(error, "output to a file and a filter");
    }
    if (command.background && (command.programs.size() != 1 || !command.filter.empty())) {
        return refuse(error, "only a single program runs in the background");
    }
    return true;
}

ToolRun::~ToolRun()
{
    if (m_stream != nullptr || !m_pids.empty()) {
        finish();
    }
}

pid_t ToolRun::spawn(const std::vector<std::string>& words, int in, int out, bool joinErrors)
{
    std::vector<char*> argv;
    for (const std::string& w : words) {
        argv.push_back(const_cast<char*>(w.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawnattr_t attr;
    posix_spawn_file_actions_t actions;
    if (posix_spawnattr_init(&attr) != 0) {
        return -2;
    }
    if (posix_spawn_file_actions_init(&actions) != 0) {
        posix_spawnattr_destroy(&attr);
        return -2;
    }
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    int rc = posix_spawnattr_setsigdefault(&attr, &all);
    rc = rc == 0 ? posix_spawnattr_setsigmask(&attr, &none) : rc;
    rc = rc == 0 ? posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK) : rc;
    if (rc == 0) {
        rc = in >= 0 ? posix_spawn_file_actions_adddup2(&actions, in, 0)
                     : posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    }
    rc = rc == 0 && out >= 0 ? posix_spawn_file_actions_adddup2(&actions, out, 1) : rc;
    rc = rc == 0 && joinErrors ? posix_spawn_file_actions_adddup2(&actions, 1, 2) : rc;
    rc = rc == 0 ? posix_spawn_file_actions_addclosefrom_np(&actions, 3) : rc;
    pid_t pid = -1;
    if (rc == 0) {
        // A name without "/" is looked up in PATH, as the shell does.
        rc = words[0].find('/') == std::string::npos
                 ? posix_spawnp(&pid, argv[0], &actions, &attr, argv.data(), environ)
                 : posix_spawn(&pid, argv[0], &actions, &attr, argv.data(), environ);
        if (rc != 0) {
            // The program could not be executed: as under a shell, 127 for
            // a missing program, 126 for one that cannot run.
            pid = rc == ENOENT ? -127 : -126;
        }
    } else {
        pid = -2;
    }
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    if (pid > 0) {
        s_started.fetch_add(1, std::memory_order_relaxed);
        log_tlog(0, "ToolRun.cpp %d: started %s (pid %d)\n", __LINE__, words[0].c_str(), static_cast<int>(pid));
    }
    return pid;
}

bool ToolRun::start(const char* text)
{
    if (text == nullptr) {
        return false;
    }
    Command command;
    std::string error;
    if (!parse(text, command, &error)) {
        log_tlog(4, "ToolRun.cpp %d: command refused (%s): %s\n", __LINE__, error.c_str(), text);
        return false;
    }
    return start(command);
}

bool ToolRun::start(const Command& command)
{
    if (m_stream != nullptr || !m_pids.empty() || command.programs.empty()) {
        return false;
    }
    for (const std::vector<std::string>& program : command.programs) {
        if (program.empty()) {
            return false;
        }
    }
    int in = -1;
    if (!command.input.empty()) {
        in = open(command.input.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
        if (in < 0) {
            log_tlog(4, "ToolRun.cpp %d: cannot read %s\n", __LINE__, command.input.c_str());
            return false;
        }
    }
    int outFile = -1;
    if (!command.output.empty() || command.background) {
        outFile = command.output.empty()
                      ? open("/dev/null", O_WRONLY | O_CLOEXEC)
                      : open(command.output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
        if (outFile < 0) {
            if (in >= 0) {
                close(in);
            }
            return false;
        }
    }
    bool ok = true;
    int readEnd = -1;
    for (size_t s = 0; s < command.programs.size() && ok; ++s) {
        bool last = s + 1 == command.programs.size();
        int fds[2] = {-1, -1};
        if (!last || outFile < 0) {
            if (pipe2(fds, O_CLOEXEC) != 0) {
                ok = false;
                break;
            }
        }
        int out = last && outFile >= 0 ? outFile : fds[1];
        pid_t pid = spawn(command.programs[s], in, out, last && command.joinErrors);
        if (in >= 0) {
            close(in);
        }
        if (fds[1] >= 0) {
            close(fds[1]);
        }
        in = fds[0];
        if (pid == -2) {
            ok = false;
        } else {
            m_pids.push_back(pid > 0 ? pid : -1);
            if (pid < 0 && last) {
                m_lastExec = -pid;
            }
        }
    }
    if (outFile >= 0) {
        close(outFile);
    }
    readEnd = in;
    if (!ok) {
        if (readEnd >= 0) {
            close(readEnd);
        }
        for (pid_t pid : m_pids) {
            if (pid > 0) {
                kill(pid, SIGKILL);
            }
        }
        reapAll();
        return false;
    }
    if (command.background) {
        // Nobody waits for it here: a thread of its own reaps it.
        for (pid_t pid : m_pids) {
            if (pid > 0) {
                std::thread([pid] { wait_child(pid); }).detach();
            }
        }
        m_pids.clear();
        m_stream = fopen("/dev/null", "re");
        return m_stream != nullptr;
    }
    if (readEnd < 0) {  // the output went to a file
        m_stream = fopen("/dev/null", "re");
        return m_stream != nullptr;
    }
    if (command.filter.empty()) {
        m_stream = fdopen(readEnd, "r");
        if (m_stream == nullptr) {
            close(readEnd);
            reapAll();
            return false;
        }
        return true;
    }
    // Filters: the whole output first, then the filtered text as the stream.
    std::string raw;
    char buffer[4096];
    for (;;) {
        ssize_t r = read(readEnd, buffer, sizeof buffer);
        if (r < 0 && errno == EINTR) {
            continue;
        }
        if (r <= 0) {
            break;
        }
        raw.append(buffer, static_cast<size_t>(r));
    }
    close(readEnd);
    m_filtered = command.filter.apply(raw, m_filterStatus);
    m_filteredRun = true;
    m_stream = m_filtered.empty() ? fopen("/dev/null", "re") : fmemopen(&m_filtered[0], m_filtered.size(), "r");
    if (m_stream == nullptr) {
        reapAll();
        return false;
    }
    return true;
}

void ToolRun::reapAll()
{
    for (pid_t pid : m_pids) {
        if (pid > 0) {
            wait_child(pid);
        }
    }
    m_pids.clear();
}

int ToolRun::finish()
{
    if (m_stream != nullptr) {
        fclose(m_stream);
        m_stream = nullptr;
    }
    int status = m_lastExec != 0 ? m_lastExec : 0;
    bool lastWaited = false;
    for (size_t i = 0; i < m_pids.size(); ++i) {
        if (m_pids[i] > 0) {
            int s = child_exit_status(wait_child(m_pids[i]));
            if (i + 1 == m_pids.size()) {
                status = s;
                lastWaited = true;
            }
        }
    }
    (void)lastWaited;
    m_pids.clear();
    if (m_filteredRun) {
        status = m_filterStatus;
    }
    m_lastExec = 0;
    m_filteredRun = false;
    m_filtered.clear();
    return status;
}

ToolRun::Command ToolRun::program(std::vector<std::string> words, std::vector<ToolFilter::Step> filters)
{
    Command command;
    command.programs.push_back(std::move(words));
    for (const ToolFilter::Step& step : filters) {
        command.filter.add(step);
    }
    return command;
}

int ToolRun::run(const char* text, std::string& output)
{
    Command command;
    std::string error;
    if (text == nullptr || !parse(text, command, &error)) {
        log_tlog(4, "ToolRun.cpp %d: command refused (%s): %s\n", __LINE__, error.c_str(), text ? text : "");
        return -1;
    }
    return run(command, output);
}

int ToolRun::run(const Command& command, std::string& output)
{
    ToolRun tool;
    if (!tool.start(command)) {
        return -1;
    }
    char piece[4096];
    for (size_t n; (n = fread(piece, 1, sizeof piece, tool.stream())) > 0;) {
        output.append(piece, n);
    }
    return tool.finish();
}
