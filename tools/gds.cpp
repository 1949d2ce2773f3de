// The data server's process entry: one GUIDataServer, initialised from the
// process arguments, then started (start() never returns).
#include <malloc.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "GUIDataServer.h"
#include "PlatformRoot.h"

#ifdef GDS_COVERAGE
#include <unistd.h>
extern "C" void __gcov_dump(void);

// The coverage build only: a server the tests stop with SIGTERM writes its
// coverage counters first (the default action would lose them). Nothing else
// runs at exit: the connection threads are still going.
static void writeCountersAndExit(int)
{
    __gcov_dump();
    _exit(0);
}
#endif

int main(int argc, char** argv)
{
    // A web server that hangs up mid-reply must not end the process: writes
    // to a closed connection fail with EPIPE instead.
    signal(SIGPIPE, SIG_IGN);
#ifdef GDS_COVERAGE
    signal(SIGTERM, writeCountersAndExit);
#endif
    // Connection threads would each get a malloc arena of their own; a few
    // shared ones keep the memory of many short connections from scattering
    // over arenas that are never handed back.
    mallopt(M_ARENA_MAX, 2);
    // Controller paths (and tool paths inside command lines) are placed
    // under the platform root; a root that a shell would split is refused.
    if (!PlatformRoot::isShellSafe()) {
        fprintf(stderr, "GDS_ROOT \"%s\" may only hold letters, digits and \"/._-+\"\n", PlatformRoot::root().c_str());
        return 1;
    }
    // Bare tool names in command lines ("sender", "cardutil") find the
    // simulated controller's tools first when the platform root is not "/".
    std::string root = PlatformRoot::root();
    if (!root.empty()) {
        const char* path = getenv("PATH");
        std::string toolPath = root + "/usr/local/bin:" + root + "/usr/bin:" + root + "/bin:" + root + "/sbin";
        setenv("PATH", (toolPath + ":" + (path != nullptr ? path : "/usr/bin:/bin")).c_str(), 1);
    }
    // A property service that cannot be used ends start-up: its message is
    // printed and the process ends with status 1, like every other start-up
    // failure. After "-help" nothing was read, so the process ends at once
    // with status 0.
    GUIDataServer* server = new GUIDataServer();
    try {
        server->initialize(argc, argv);
    } catch (const char* message) {
        printf("%s\n", message != nullptr ? message : "");
        fflush(stdout);
        delete server;
        return 1;
    }
    if (server->helpShown()) {
        delete server;
        return 0;
    }
    fflush(stdout);
    server->start();
    return 1;  // start() does not return
}
