#include "clean_spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

extern char** environ;

namespace {

// Standard input: from `in_fd` when it is not -1, else from /dev/null when
// `null_input` is set, else inherited.
pid_t spawn(const char* file, char* const argv[], bool search_path, int in_fd, int out_fd, bool null_input)
{
    posix_spawnattr_t attr;
    posix_spawn_file_actions_t actions;
    if (posix_spawnattr_init(&attr) != 0) {
        return -1;
    }
    if (posix_spawn_file_actions_init(&actions) != 0) {
        posix_spawnattr_destroy(&attr);
        return -1;
    }
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    int rc = posix_spawnattr_setsigdefault(&attr, &all);
    if (rc == 0) {
        rc = posix_spawnattr_setsigmask(&attr, &none);
    }
    if (rc == 0) {
        rc = posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
    if (rc == 0 && in_fd >= 0) {
        rc = posix_spawn_file_actions_adddup2(&actions, in_fd, 0);
    } else if (rc == 0 && null_input) {
        rc = posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    }
    if (rc == 0 && out_fd >= 0) {
        rc = posix_spawn_file_actions_adddup2(&actions, out_fd, 1);
    }
    if (rc == 0) {
        rc = posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    }
    pid_t pid = -1;
    if (rc == 0) {
        rc = search_path ? posix_spawnp(&pid, file, &actions, &attr, argv, environ)
                         : posix_spawn(&pid, file, &actions, &attr, argv, environ);
    }
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    return rc == 0 ? pid : -1;
}

}  // namespace

pid_t spawn_clean(const char* file, char* const argv[], bool search_path, int out_fd, bool null_input)
{
    return spawn(file, argv, search_path, -1, out_fd, null_input);
}

pid_t spawn_clean_writer(const char* file, char* const argv[], int out_fd, int* in_fd)
{
    int fds[2];
    if (in_fd == nullptr || pipe2(fds, O_CLOEXEC) != 0) {
        return -1;
    }
    pid_t pid = spawn(file, argv, false, fds[0], out_fd, false);
    close(fds[0]);
    if (pid < 0) {
        close(fds[1]);
        return -1;
    }
    *in_fd = fds[1];
    return pid;
}

int wait_child(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return status;
}

int child_exit_status(int status)
{
    if (status == -1) {
        return -1;
    }
    if (WIFEXITED(status)) {
        return WEXITSTATUS(status);
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
}
