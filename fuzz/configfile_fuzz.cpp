// Fuzzes the configuration file reader: any bytes are parsed into a server's
// handler table without crashing, hanging or reading past the file.
#include <cstdint>
#include <cstdio>

#include "ConfigFile.h"
#include "GUIDataServer.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The reader and the server print what they find; libFuzzer reports on
    // standard error.
    if (freopen("/dev/null", "w", stdout) == nullptr) {
        return 0;
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const char path[] = "configfile-fuzz.conf";
    FILE* f = fopen(path, "wb");
    if (f == nullptr) {
        return 0;
    }
    fwrite(data, 1, size, f);
    fclose(f);
    GUIDataServer server;
    ConfigFile config;
    if (config.open(path) == 0) {
        config.parse(server);
    }
    return 0;
}
