// gdsweb: the development web front door. Plays the controller's web server
// for a browser: serves the explorer page (or a developer's own build with
// --ui) and forwards the browser's data requests to the data server's port
// 8197 with the session's privileges. Development only.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "FrontDoor.h"
#include "PlatformRoot.h"

#ifdef GDS_COVERAGE
extern "C" void __gcov_dump(void);
#endif

namespace {

#ifdef GDS_COVERAGE
// The coverage build only: a front door the tests stop with SIGTERM writes
// its coverage counters first (the default action would lose them).
void writeCountersAndExit(int)
{
    __gcov_dump();
    _exit(0);
}
#endif

void usage(FILE* out)
{
    fprintf(out,
            "usage: gdsweb [-p PORT] [--data-port PORT] [--ui DIR] [--address ADDR]\n"
            "  -p PORT           HTTP port (default 8080)\n"
            "  --data-port PORT  the data server's JSON-header port (default GDS_NXTGEN_PORT, else 8197)\n"
            "  --ui DIR          serve this folder from / instead of the explorer (which stays at /gdsweb/)\n"
            "  --address ADDR    listen on ADDR instead of 127.0.0.1 (development only: a warning)\n"
            "The simulated controller's root comes from GDS_ROOT; users from <root>/etc/gdsweb/users.\n");
}

int portArg(const char* text)
{
    char* end = nullptr;
    long v = strtol(text, &end, 10);
    return end != text && *end == '\0' && v >= 1 && v <= 65535 ? static_cast<int>(v) : 0;
}

bool isDir(const std::string& path)
{
    struct stat st;
    return !path.empty() && stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string exeDir()
{
    char buf[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    if (n <= 0) {
        return ".";
    }
    buf[n] = '\0';
    std::string p(buf);
    return p.substr(0, p.rfind('/'));
}

// Seconds from the environment (a test and development aid), else `fallback`.
int secondsFromEnv(const char* name, int fallback)
{
    const char* v = getenv(name);
    int n = v != nullptr ? atoi(v) : 0;
    return n >= 1 && n <= 3600 ? n : fallback;
}

}  // namespace

int main(int argc, char** argv)
{
    int port = 8080;
    int dataPort = 8197;
    if (const char* env = getenv("GDS_NXTGEN_PORT")) {
        dataPort = portArg(env) != 0 ? portArg(env) : dataPort;
    }
    std::string ui;
    std::string address = "127.0.0.1";
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        bool hasValue = i + 1 < argc;
        if (a == "-h" || a == "--help") {
            usage(stdout);
            return 0;
        } else if (a == "-p" && hasValue) {
            port = portArg(argv[++i]);
        } else if (a == "--data-port" && hasValue) {
            dataPort = portArg(argv[++i]);
        } else if (a == "--ui" && hasValue) {
            ui = argv[++i];
        } else if (a == "--address" && hasValue) {
            address = argv[++i];
        } else {
            usage(stderr);
            return 2;
        }
        if (port == 0 || dataPort == 0) {
            fprintf(stderr, "gdsweb: a port is a number from 1 to 65535\n");
            return 2;
        }
    }
    signal(SIGPIPE, SIG_IGN);
#ifdef GDS_COVERAGE
    signal(SIGTERM, writeCountersAndExit);
#endif

    FrontDoor::Config config;
    config.dataPort = dataPort;
    config.usersFile = PlatformRoot::path("/etc/gdsweb/users");
    config.namesFile = PlatformRoot::path("/var/canned/names");
    const std::string here = exeDir();
    // The installed page, else the source tree's.
    config.explorerDir = isDir(here + "/../share/gds/web") ? here + "/../share/gds/web" : GDSWEB_UI_SOURCE_DIR;
    config.simctl = getenv("GDSWEB_SIMCTL") != nullptr ? getenv("GDSWEB_SIMCTL") : here + "/simctl";
    config.requestDeadline = std::chrono::seconds(secondsFromEnv("GDSWEB_REQUEST_DEADLINE", 10));
    if (ui.empty()) {
        config.uiDir = config.explorerDir;
        config.ownUi = true;
    } else if (!isDir(ui)) {
        fprintf(stderr, "gdsweb: --ui %s is not a folder\n", ui.c_str());
        return 2;
    } else {
        config.uiDir = ui;
    }
    config.loopbackOnly = address == "127.0.0.1" || address == "::1" || address == "localhost";
    if (!config.loopbackOnly) {
        fprintf(stderr,
                "gdsweb: WARNING: listening on %s, not loopback: anyone who reaches it can log in with the "
                "sample users. Development only.\n",
                address.c_str());
    }

    FrontDoor door(config);
    if (!door.bind_to_port(address, port)) {
        fprintf(stderr, "gdsweb: cannot listen on %s:%d\n", address.c_str(), port);
        return 1;
    }
    std::string host = address.find(':') != std::string::npos ? "[" + address + "]" : address;
    printf("gdsweb: listening on http://%s:%d/ (data server 127.0.0.1:%d, users %s, page %s)\n", host.c_str(), port,
           dataPort, config.usersFile.c_str(), config.uiDir.c_str());
    fflush(stdout);
    return door.listen_after_bind() ? 0 : 1;
}
