/* Safe execution: the controller's way of running tools. Command lines run
 * through /bin/sh, argument vectors without any shell, and user text is
 * checked against named rules before it may stand in a command line (see
 * docs/security.md). Children start with default signal dispositions, an
 * empty signal mask and only descriptors 0 to 2. Thread-safe.
 *
 * Tool paths are host paths: callers build them with PlatformRoot::path.
 * The stand-in appends every run to "/var/safeexec/commands" under the
 * platform root; the fault files "/var/safeexec/faults/system_secure" and
 * "/var/safeexec/faults/system_exec_command" make the calls return the
 * number written inside (-1 when there is none) without running anything. */
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Room of an argument vector: the program and at most 63 arguments, whose
 * texts (terminators included) take at most 8192 bytes together. */
#define SYSTEM_EXEC_MAX_ARGS 64
#define SYSTEM_EXEC_TEXT_SIZE 8192

/* An argument vector, filled by system_exec_set_command_arg. It owns copies
 * of its texts, needs no cleanup and may live on the stack. */
typedef struct system_exec_cmd {
    int argc;                             /* number of entries of argv, the program included; -1 when unusable */
    char* argv[SYSTEM_EXEC_MAX_ARGS + 1]; /* null-terminated, pointing into text */
    char text[SYSTEM_EXEC_TEXT_SIZE];
} system_exec_cmd_t;

/* Runs `command` with "/bin/sh -c" and waits for it. Returns the wait status
 * (as waitpid gives it), or -1 when the shell could not be started. */
int system_secure(const char* command);

/* Sets `command` to run `program` with the arguments that follow, up to a
 * null pointer. `program` is the file to execute (searched in PATH when it
 * has no slash) and also the vector's first entry. Texts are copied as they
 * are: no shell ever sees them. Returns 0, or -1 (and leaves `command`
 * unusable) when `program` is null or the vector does not fit. */
int system_exec_set_command_arg(system_exec_cmd_t* command, const char* program, ...) __attribute__((sentinel));

/* Runs the vector set by system_exec_set_command_arg and waits for it. When
 * `output` is not null and `output_size` is above 0, the program's standard
 * output is collected there (cut to output_size - 1 bytes, always
 * terminated); otherwise it goes where the caller's goes. Standard input is
 * /dev/null. Returns the exit status (0 means success; 128 + the signal
 * number when the program was killed), or -1 when it could not be run. */
int system_exec_command(system_exec_cmd_t* command, char* output, size_t output_size);

/* Non-zero when `text` obeys the rule named `rule`: "general_rule" for
 * names, addresses, paths and protocols; "password_rule" for passwords.
 * Both accept the empty text. A null text, a null or unknown rule: 0. */
int system_check_user_input(const char* text, const char* rule);

#ifdef __cplusplus
}
#endif
