// bios_util: the BIOS token code's ties to the C library: its syslog lines
// (LOG_INFO) and the command lines it runs through the platform's command
// runner. Used by the BIOS token gatherer thread; the log hook is for tests.
#pragma once

// Formats and sends one syslog message at LOG_INFO; below a platform root
// other than "/" also appends it to <root>/var/log/syslog; hands the text to
// the hook when one is set.
void bios_syslog(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Appends `message` as "<identity>: <message>" to <root>/var/log/syslog
// when the platform root is not "/" (where a syslog daemon has it); line
// ends and control characters escaped. Any thread.
void syslog_mirror(const char* identity, const char* message);

// Receives every message bios_syslog sends (tests); null switches it off.
typedef void (*bios_syslog_hook_t)(const char* message);
void bios_syslog_set_hook(bios_syslog_hook_t hook);

// Formats a command line (at most 1023 characters) and runs it through the
// shell with the platform's `system_secure`. The arguments must be
// controller paths made with PlatformRoot::path, never user text. A line that
// would be cut, or a platform root a shell would split, is not run.
// Returns the wait status, or -1 when nothing was run.
int bios_run_command(const char* format, ...) __attribute__((format(printf, 1, 2)));
