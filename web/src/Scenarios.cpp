#include "Scenarios.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

extern char** environ;

Scenarios::Result Scenarios::run(const std::vector<std::string>& args)
{
    Result r;
    if (access(m_tool.c_str(), X_OK) != 0) {
        r.missing = true;
        return r;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    int out[2], err[2];
    if (pipe2(out, O_CLOEXEC) != 0) {
        return r;
    }
    if (pipe2(err, O_CLOEXEC) != 0) {
        close(out[0]);
        close(out[1]);
        return r;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(m_tool.c_str()));
    for (const std::string& a : args) {
        argv.push_back(const_cast<char*>(a.c_str()));
    }
    argv.push_back(nullptr);
    pid_t pid = -1;
    int rc = posix_spawn(&pid, m_tool.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    close(err[1]);
    if (rc != 0) {
        close(out[0]);
        close(err[0]);
        r.err = "cannot start " + m_tool;
        return r;
    }
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(kTimeLimitSeconds);
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    std::string* sinks[2] = {&r.out, &r.err};
    int open = 2;
    bool late = false;
    while (open > 0) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            late = true;
            break;
        }
        int n = poll(fds, 2, static_cast<int>(left.count()));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            continue;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) {
                continue;
            }
            char buf[4096];
            ssize_t got = read(fds[i].fd, buf, sizeof buf);
            if (got > 0) {
                if (sinks[i]->size() < kOutputLimit) {
                    sinks[i]->append(buf, static_cast<size_t>(got));
                }
            } else if (got == 0 || errno != EINTR) {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    for (pollfd& p : fds) {
        if (p.fd >= 0) {
            close(p.fd);
        }
    }
    if (late) {
        kill(pid, SIGKILL);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (!late && WIFEXITED(status)) {
        r.exitStatus = WEXITSTATUS(status);
    } else if (late) {
        r.err = m_tool + " did not finish within " + std::to_string(kTimeLimitSeconds) + " s";
    }
    return r;
}
