/* The controller's trace log. log_tlog(level, format, line, ...) formats a
 * message whose format begins with the source file's name and "%d:" for the
 * line number. Levels: 0 debug, 1 detail, 2 information, 4 error.
 * The stand-in appends "<level> <message>" lines to "/var/log/tlog" under the
 * platform root, one write(2) per line, so threads and processes interleave
 * whole lines. Thread-safe. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

void log_tlog(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

#ifdef __cplusplus
}
#endif
