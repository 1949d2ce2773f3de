// The HTTP library (Debian's cpp-httplib, a compiled shared library). Its
// configuration macros (CPPHTTPLIB_*) are fixed when the library is built, so
// defining them here would change nothing; the front door sets its limits
// through the server's setters and its own connection handling instead.
#pragma once

#include <httplib.h>
