/* GDS_TLOG: writes to the controller's trace log with the "<file>:<line>:"
 * prefix its readers expect. Any thread. */
#pragma once

#include "log_tlog.h"

#define GDS_TLOG(level, file, fmt, ...) log_tlog((level), "obj/../../src/" file ":%d:" fmt, __LINE__, ##__VA_ARGS__)
