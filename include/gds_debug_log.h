/* The data server's debug log: time-stamped lines appended to
 * "/var/log/gds.log", written only while the marker file
 * "/tmp/gdsprint_override" exists, so it can be switched on and off while the
 * server runs. Levels: 1 error, 2 information; others write nothing.
 * Thread-safe: the file is opened once under a lock and every line is one
 * flushed write. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

void gds_debug_log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

#ifdef __cplusplus
}
#endif
