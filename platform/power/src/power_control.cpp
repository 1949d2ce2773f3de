// The host power control stand-in (see power_control.h).
#include "power_control.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>
#include <string>

#include "PlatformRoot.h"

namespace {

std::mutex g_mutex;

}  // namespace

extern "C" int SetPowerState(int count, int state)
{
    if (count < 1) {
        return -1;
    }
    std::lock_guard<std::mutex> lock(g_mutex);
    mkdir(PlatformRoot::path("/var/power").c_str(), 0755);
    if (FILE* calls = fopen(PlatformRoot::path("/var/power/calls").c_str(), "a")) {  // the state only
        fprintf(calls, "SetPowerState %d\n", state);
        fclose(calls);
    }
    std::string faultText;
    if (PlatformRoot::faultText("power", "SetPowerState", faultText)) {
        int code = -1;
        if (sscanf(faultText.c_str(), "%d", &code) != 1 || code == 0) {
            code = -1;
        }
        return code;
    }
    if (state != POWER_STATE_OFF && state != POWER_STATE_ON) {
        return -1;
    }
    std::string file = PlatformRoot::path("/var/aim/props/pwState");
    std::string temp =
        PlatformRoot::path("/var/aim/props/.tmp.power." + std::to_string(getpid()));  // dot files are no properties
    mkdir(PlatformRoot::path("/var/aim/props").c_str(), 0755);
    FILE* f = fopen(temp.c_str(), "w");
    if (f == nullptr) {
        return -1;
    }
    fprintf(f, "int\n%d\n", state);
    if (fclose(f) != 0 || rename(temp.c_str(), file.c_str()) != 0) {
        unlink(temp.c_str());
        return -1;
    }
    return 0;
}
