// PlatformRoot: maps an absolute controller path ("/etc/product", "/tmp/...")
// onto the platform root named by GDS_ROOT ("/" when unset), so a developer
// machine or a test runs the controller's file layout inside one folder.
// Thread-safe: GDS_ROOT is read on every call so tests may switch it; the
// fault-file snapshots are kept under a lock.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

class PlatformRoot {
public:
    // The root folder without a trailing slash; "" when the root is "/".
    static std::string root();

    // The host path of controller path `path`. An absolute path gets the root
    // prepended; a relative path is returned unchanged.
    static std::string path(const char* path);
    static std::string path(const std::string& path) { return PlatformRoot::path(path.c_str()); }

    // Whether the root is usable inside a shell command line: only letters,
    // digits and "/._-+" are allowed. Tool paths built with path() go into
    // command lines, so the server refuses to start on any other root.
    static bool isShellSafe();

    // Opens host path `hostPath` like fopen with `mode` ("r", "w" or "a";
    // created 0644), except that a symbolic link there is never followed:
    // null with errno ELOOP. For names fixed in a shared folder such as
    // /tmp, which another local process could plant first.
    static FILE* openNoFollow(const std::string& hostPath, const char* mode);

    // Whether host path `hostPath` is a folder of this process's user and
    // not a symbolic link: files it holds cannot be planted by others.
    static bool ownFolder(const std::string& hostPath);

    // Reads the whole file at controller path `path` (at most `limit`
    // bytes) into `text`; false when it cannot be opened. For the stand-ins'
    // fixtures.
    static bool readFile(const std::string& path, std::string& text, size_t limit = 1u << 20);

    // The fault file of a stand-in call, "/var/<standIn>/faults/<call>":
    // -1 when there is none; n >= 0 when it reads "short <n>" (the call
    // returns only n bytes); -2 otherwise (empty or "fail": the call fails).
    static int faultFile(const char* standIn, const char* call);

    // The text of fault file "/var/<standIn>/faults/<call>"; false when
    // there is none. A stand-in's faults folder is listed and read at most
    // once per recheckMs() and the snapshot answers in between, so a call
    // costs no file lookup; with recheckMs() 0 the file is read every time.
    static bool faultText(const char* standIn, const char* call, std::string& text);

    // How long (milliseconds) a stand-in may answer from what it read from
    // its files before reading them again (fault files, the property
    // service's values): GDS_STANDIN_RECHECK_MS, default 1000; 0 reads the
    // files at every call. The test support sets 0, so a fault file or a
    // fixture a test has just written takes effect at the next call.
    static int recheckMs();

    // Milliseconds of a monotonic clock, for the stand-ins' snapshots.
    static long long monotonicMs();
};
