// Preloaded into the server by the connection-budget test: a thread that
// writes the process's virtual size in KiB, as the process itself sees it,
// to the file named by GDS_VMSIZE_FILE every 100 ms. Under qemu-user only
// the process's own /proc/self/maps shows the emulated 32-bit address space
// (the emulator's host view holds its 4 GiB reservation), so the number must
// be taken from inside. Does nothing when GDS_VMSIZE_FILE is unset.
#include <pthread.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Plain arrays: the constructor below may run before other static objects
// of this library are built.
char g_file[4096];
char g_temporary[4096 + 8];

// Sum of all mappings in /proc/self/maps, in KiB (0 when unreadable).
unsigned long long virtualKiB()
{
    FILE* maps = fopen("/proc/self/maps", "r");
    if (maps == nullptr) {
        return 0;
    }
    unsigned long long total = 0;
    char line[512];
    while (fgets(line, sizeof line, maps) != nullptr) {
        unsigned long long start = 0;
        unsigned long long end = 0;
        if (sscanf(line, "%llx-%llx", &start, &end) == 2 && end > start) {
            total += end - start;
        }
    }
    fclose(maps);
    return total / 1024;
}

void* report(void*)
{
    for (;;) {
        if (FILE* out = fopen(g_temporary, "w")) {
            fprintf(out, "%llu\n", virtualKiB());
            fclose(out);
            rename(g_temporary, g_file);
        }
        usleep(100 * 1000);
    }
    return nullptr;
}

__attribute__((constructor)) void start()
{
    const char* file = getenv("GDS_VMSIZE_FILE");
    if (file == nullptr || *file == '\0' || strlen(file) >= sizeof g_file) {
        return;
    }
    snprintf(g_file, sizeof g_file, "%s", file);
    snprintf(g_temporary, sizeof g_temporary, "%s.tmp", file);
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attr, 64 * 1024);  // counts towards the size it reports
    pthread_t thread;
    pthread_create(&thread, &attr, report, nullptr);
    pthread_attr_destroy(&attr);
}

}  // namespace
