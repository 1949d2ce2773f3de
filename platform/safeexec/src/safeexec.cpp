#include "safeexec.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "PlatformRoot.h"
#include "clean_spawn.h"

namespace {

// Characters that a shell treats as plain text in an unquoted word.
bool isPlain(unsigned char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           (c != '\0' && strchr("-_.,/:=@%+", c) != nullptr);
}

// The characters the agents escape with a backslash before text goes into a
// command line; a backslash followed by one of them stands for that character.
bool isEscapable(unsigned char c)
{
    return c != '\0' && strchr(";|\"$!@#%^*-_+()`>?<[]&}{", c) != nullptr;
}

// Both rules: at most kMaxRuleText bytes made of plain characters and escape
// pairs; the password rule also allows a tilde that does not begin the text
// (only a leading tilde is expanded by the shell).
const size_t kMaxRuleText = 255;

bool obeysRule(const char* text, bool password)
{
    size_t length = strnlen(text, kMaxRuleText + 1);
    if (length > kMaxRuleText) {
        return false;
    }
    for (size_t i = 0; i < length; ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (isPlain(c) || (password && c == '~' && i > 0)) {
            continue;
        }
        if (c == '\\' && i + 1 < length && isEscapable(static_cast<unsigned char>(text[i + 1]))) {
            ++i;
            continue;
        }
        return false;
    }
    return true;
}

// The record and fault files are test aids of the stand-in; the controller's
// library has neither.
std::string encode(const char* text, bool blankToo)
{
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p != '\0'; ++p) {
        if (*p < 0x20 || *p >= 0x7f || *p == '%' || (blankToo && *p == ' ')) {
            out += '%';
            out += kHex[*p >> 4];
            out += kHex[*p & 15];
        } else {
            out += static_cast<char>(*p);
        }
    }
    return out;
}

// The word after a "-password" option is recorded as "********", as the
// server's own logs show it: the record is readable by anyone on the root.
bool passwordOption(const char* word)
{
    return strcmp(word, "-password") == 0 || strcmp(word, "--password") == 0;
}

std::string maskPasswords(const std::string& command)
{
    std::string out;
    size_t i = 0;
    bool hideNext = false;
    while (i < command.size()) {
        size_t end = command.find(' ', i);
        if (end == std::string::npos) {
            end = command.size();
        }
        std::string word = command.substr(i, end - i);
        out += hideNext && !word.empty() ? "********" : word;
        if (!word.empty()) {
            hideNext = passwordOption(word.c_str());
        }
        if (end < command.size()) {
            out += ' ';
        }
        i = end + 1;
    }
    return out;
}

// Appends one line to "/var/safeexec/commands"; a record that cannot be
// written never keeps a command from running.
void record(const std::string& kind, const std::string& what)
{
    mkdir(PlatformRoot::path("/var").c_str(), 0755);
    mkdir(PlatformRoot::path("/var/safeexec").c_str(), 0755);
    std::string path = PlatformRoot::path("/var/safeexec/commands");
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) {
        return;
    }
    timeval now;
    gettimeofday(&now, nullptr);
    char head[64];
    // long long: time_t is 64 bits on the 32-bit controller, long is not.
    snprintf(head, sizeof head, "%lld.%06ld ", static_cast<long long>(now.tv_sec), static_cast<long>(now.tv_usec));
    std::string line = head + kind + " " + what + "\n";
    if (flock(fd, LOCK_EX) == 0) {
        ssize_t ignored = write(fd, line.data(), line.size());
        (void)ignored;
    }
    close(fd);
}

// True when the fault file of `call` exists; `result` gets the number inside,
// -1 when there is none.
bool injectedFault(const char* call, int& result)
{
    std::string text;
    if (!PlatformRoot::faultText("safeexec", call, text)) {
        return false;
    }
    if (sscanf(text.c_str(), "%d", &result) != 1) {
        result = -1;
    }
    return true;
}

}  // namespace

extern "C" int system_secure(const char* command)
{
    if (command == nullptr) {
        return -1;
    }
    record("secure", maskPasswords(encode(command, false)));
    int fault = 0;
    if (injectedFault("system_secure", fault)) {
        return fault;
    }
    char* argv[] = {const_cast<char*>("sh"), const_cast<char*>("-c"), const_cast<char*>(command), nullptr};
    pid_t pid = spawn_clean("/bin/sh", argv, false, -1, false);
    return pid < 0 ? -1 : wait_child(pid);
}

extern "C" int system_exec_set_command_arg(system_exec_cmd_t* command, const char* program, ...)
{
    if (command == nullptr) {
        return -1;
    }
    command->argc = -1;
    command->argv[0] = nullptr;
    if (program == nullptr) {
        return -1;
    }
    va_list args;
    va_start(args, program);
    size_t used = 0;
    int count = 0;
    bool fits = true;
    for (const char* text = program; text != nullptr; text = va_arg(args, const char*)) {
        size_t size = strlen(text) + 1;
        if (count == SYSTEM_EXEC_MAX_ARGS || size > sizeof command->text - used) {
            fits = false;
            break;
        }
        memcpy(command->text + used, text, size);
        command->argv[count++] = command->text + used;
        used += size;
    }
    va_end(args);
    if (!fits) {
        command->argv[0] = nullptr;
        return -1;
    }
    command->argv[count] = nullptr;
    command->argc = count;
    return 0;
}

extern "C" int system_exec_command(system_exec_cmd_t* command, char* output, size_t output_size)
{
    bool collect = output != nullptr && output_size > 0;
    if (collect) {
        output[0] = '\0';
    }
    if (command == nullptr || command->argc < 1 || command->argc > SYSTEM_EXEC_MAX_ARGS ||
        command->argv[command->argc] != nullptr) {
        return -1;
    }
    std::string line;
    for (int i = 0; i < command->argc; ++i) {
        const bool hidden = i > 0 && passwordOption(command->argv[i - 1]) && command->argv[i][0] != '\0';
        line += (i > 0 ? " " : "") + (hidden                        ? "********"
                                      : command->argv[i][0] == '\0' ? "%00"
                                                                    : encode(command->argv[i], true));
    }
    record("exec", line);
    int fault = 0;
    if (injectedFault("system_exec_command", fault)) {
        return fault;
    }
    int fds[2] = {-1, -1};
    if (collect && pipe2(fds, O_CLOEXEC) != 0) {
        return -1;
    }
    const char* file = command->argv[0];
    pid_t pid = spawn_clean(file, command->argv, strchr(file, '/') == nullptr, fds[1], true);
    if (collect) {
        close(fds[1]);
        size_t used = 0;
        char chunk[512];
        for (;;) {
            ssize_t n = read(fds[0], chunk, sizeof chunk);
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n <= 0) {
                break;
            }
            size_t take =
                static_cast<size_t>(n) < output_size - 1 - used ? static_cast<size_t>(n) : output_size - 1 - used;
            memcpy(output + used, chunk, take);
            used += take;  // the rest is read and dropped, so the program never blocks
        }
        output[used] = '\0';
        close(fds[0]);
    }
    if (pid < 0) {
        return -1;
    }
    return child_exit_status(wait_child(pid));
}

extern "C" int system_check_user_input(const char* text, const char* rule)
{
    if (text == nullptr || rule == nullptr) {
        return 0;
    }
    if (strcmp(rule, "general_rule") == 0) {
        return obeysRule(text, false) ? 1 : 0;
    }
    if (strcmp(rule, "password_rule") == 0) {
        return obeysRule(text, true) ? 1 : 0;
    }
    return 0;
}
