// biossim: plays the host BIOS against the simulated MDR regions of the
// platform root ($GDS_ROOT/var/mdr): shows region status, writes a token
// document into region 3 as the BIOS does after POST, reads what the
// controller wrote into region 2, sets lock state and queues IPMI faults.
// Usage: biossim -h (see docs/bios.md).
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>
#include <string>

#include "MdrSim.h"
#include "PlatformRoot.h"

namespace {

const char kUsage[] =
    "usage: biossim COMMAND [ARGS]   (the simulated MDR below $GDS_ROOT/var/mdr)\n"
    "  init                      create the store with empty regions 2 and 3\n"
    "  status [REGION...]        show region status (default: 3 and 2)\n"
    "  write FILE|- [REGION]     write a document as the BIOS (default region 3): in-use count = its\n"
    "                            length, valid, unlocked, update counter bumped\n"
    "  read [REGION]             print the region's bytes in use (default 2, what the controller sent)\n"
    "  lock REGION [STATE]       set the lock state byte (default 1); unlock REGION clears it\n"
    "  set REGION FIELD VALUE    set valid, counter, lock, session, capacity or used\n"
    "  fault CMD OUTCOME...      queue outcomes for IPMI command CMD (hex 20 21 23 24 25), one per call:\n"
    "                            ok, fail, cc=XX, len=N, nocc; a leading * makes one stick\n"
    "  fault CMD                 clear CMD's faults;  fault clear: clear all\n"
    "  trace on|off|show         record every IPMI call in var/mdr/calls.log\n";

int usage()
{
    fputs(kUsage, stderr);
    return 2;
}

bool parseInt(const char* text, long long lo, long long hi, int base, long long& out)
{
    if (text == nullptr || *text == '\0') {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    out = strtoll(text, &end, base);
    return errno == 0 && *end == '\0' && out >= lo && out <= hi;
}

bool parseRegion(const char* text, int& region)
{
    long long v;
    if (!parseInt(text, 0, 255, 10, v)) {
        fprintf(stderr, "biossim: bad region \"%s\" (0..255)\n", text);
        return false;
    }
    region = static_cast<int>(v);
    return true;
}

int showStatus(int region)
{
    MdrSim::Region r;
    if (!MdrSim::status(region, r)) {
        printf("region %d: not present\n", region);
        return 1;
    }
    printf("region %d: valid=%d counter=%d lock=%d session=%d used=%d capacity=%d\n", region, r.valid, r.counter,
           r.lock, r.session, r.used, r.capacity);
    return 0;
}

int writeDocument(int argc, char** argv)
{
    if (argc < 3 || argc > 4) {
        return usage();
    }
    int region = 3;
    if (argc == 4 && !parseRegion(argv[3], region)) {
        return 2;
    }
    std::string data;
    if (strcmp(argv[2], "-") == 0) {
        data.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    } else {
        FILE* f = fopen(argv[2], "rb");
        if (f == nullptr) {
            fprintf(stderr, "biossim: cannot open %s: %s\n", argv[2], strerror(errno));
            return 1;
        }
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, f)) > 0) {
            data.append(buf, n);
        }
        fclose(f);
    }
    std::string error;
    if (!MdrSim::biosWrite(region, data, &error)) {
        fprintf(stderr, "biossim: %s\n", error.c_str());
        return 1;
    }
    return showStatus(region);
}

int faults(int argc, char** argv)
{
    if (argc < 3) {
        return usage();
    }
    if (strcmp(argv[2], "clear") == 0) {
        MdrSim::clearFaults();
        return 0;
    }
    long long cmd;
    if (!parseInt(argv[2], 0x20, 0x25, 16, cmd)) {
        fprintf(stderr, "biossim: bad command code \"%s\" (hex 20..25)\n", argv[2]);
        return 2;
    }
    std::string outcomes;
    for (int i = 3; i < argc; ++i) {
        std::string w = argv[i];
        std::string plain = w[0] == '*' ? w.substr(1) : w;
        long long v;
        bool ok = plain == "ok" || plain == "fail" || plain == "nocc" ||
                  (plain.compare(0, 3, "cc=") == 0 && parseInt(plain.c_str() + 3, 0, 255, 16, v)) ||
                  (plain.compare(0, 4, "len=") == 0 && parseInt(plain.c_str() + 4, 0, VKCS_IPMI_MAX_DATA, 10, v));
        if (!ok) {
            fprintf(stderr, "biossim: bad outcome \"%s\"\n", argv[i]);
            return 2;
        }
        outcomes += w + " ";
    }
    if (!MdrSim::setFaults(static_cast<int>(cmd), outcomes)) {
        fprintf(stderr, "biossim: no MDR store below %s\n", PlatformRoot::path("/var/mdr").c_str());
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || strcmp(argv[1], "-h") == 0 || strcmp(argv[1], "--help") == 0) {
        return argc < 2 ? usage() : (fputs(kUsage, stdout), 0);
    }
    const std::string cmd = argv[1];
    int region = 0;
    if (cmd == "init" && argc == 2) {
        bool ok = MdrSim::createRegion(2, MdrSim::kMaxRegionSize) && MdrSim::createRegion(3, MdrSim::kMaxRegionSize);
        if (!ok) {
            fprintf(stderr, "biossim: cannot create %s\n", PlatformRoot::path("/var/mdr").c_str());
        }
        return ok ? 0 : 1;
    }
    if (cmd == "status") {
        if (argc == 2) {
            return showStatus(3) | showStatus(2);
        }
        int rc = 0;
        for (int i = 2; i < argc; ++i) {
            if (!parseRegion(argv[i], region)) {
                return 2;
            }
            rc |= showStatus(region);
        }
        return rc;
    }
    if (cmd == "write") {
        return writeDocument(argc, argv);
    }
    if (cmd == "read" && argc <= 3) {
        region = 2;
        if (argc == 3 && !parseRegion(argv[2], region)) {
            return 2;
        }
        std::string data;
        if (!MdrSim::readData(region, data)) {
            fprintf(stderr, "biossim: region %d not present\n", region);
            return 1;
        }
        fwrite(data.data(), 1, data.size(), stdout);
        if (!data.empty() && data.back() != '\n') {
            putchar('\n');
        }
        return 0;
    }
    if ((cmd == "lock" && (argc == 3 || argc == 4)) || (cmd == "unlock" && argc == 3)) {
        long long state = cmd == "unlock" ? 0 : 1;
        if (!parseRegion(argv[2], region) || (argc == 4 && !parseInt(argv[3], 0, 255, 0, state))) {
            return 2;
        }
        if (!MdrSim::setField(region, "lock", state)) {
            fprintf(stderr, "biossim: region %d not present\n", region);
            return 1;
        }
        return showStatus(region);
    }
    if (cmd == "set" && argc == 5) {
        long long value;
        if (!parseRegion(argv[2], region) || !parseInt(argv[4], 0, MdrSim::kMaxRegionSize, 0, value)) {
            return 2;
        }
        if (!MdrSim::setField(region, argv[3], value)) {
            fprintf(stderr, "biossim: region %d not present or bad field \"%s\"\n", region, argv[3]);
            return 1;
        }
        return showStatus(region);
    }
    if (cmd == "fault") {
        return faults(argc, argv);
    }
    if (cmd == "trace" && argc == 3) {
        std::string what = argv[2];
        if (what == "show") {
            fputs(MdrSim::trace().c_str(), stdout);
            return 0;
        }
        if (what == "on" || what == "off") {
            return MdrSim::setTrace(what == "on") ? 0 : 1;
        }
    }
    return usage();
}
