/* Starting child processes in a clean state, shared by the data server's
 * tool runner and the safe-execution stand-in. The server ignores SIGPIPE
 * and holds client connections and listening sockets; a child must inherit
 * none of that. Thread-safe: no state. */
#pragma once

#include <sys/types.h>

/* Starts `file` with `argv`: every signal at its default disposition, none
 * blocked, standard output to `out_fd` when it is not -1, standard input
 * from /dev/null when `null_input` is set, and no descriptor above 2.
 * `search_path` looks `file` up in PATH. The child's pid, or -1. */
pid_t spawn_clean(const char* file, char* const argv[], bool search_path, int out_fd, bool null_input);

/* popen(..., "w") without a shell: starts `file` (a path, not looked up)
 * with `argv` like spawn_clean, its standard output to `out_fd` when it is
 * not -1, and its standard input from a pipe whose writing end (close on
 * exec) is stored in `in_fd`; the caller writes, closes it, then waits. The
 * child's pid, or -1 (nothing to close then). */
pid_t spawn_clean_writer(const char* file, char* const argv[], int out_fd, int* in_fd);

/* Waits for `pid`, retrying after interruptions: the wait status, or -1. */
int wait_child(pid_t pid);

/* A wait status as an exit status: the program's exit code, 128 + the
 * signal number for a killed program (so a crash never reads as success),
 * or -1 for a status that is neither. */
int child_exit_status(int status);
