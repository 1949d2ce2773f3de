// ProjectBinary: how tests start a program this project builds
// (build/bin/<name>): directly, or through the emulator named by GDS_EMULATOR
// when the build is for another architecture (the 32-bit ARM build runs under
// qemu-arm; test machines have no binfmt_misc, so the kernel cannot run an
// armhf binary by itself). Also how long tests wait for slow builds. Any
// thread; reads only the environment.
#pragma once

#include <string>
#include <vector>

class ProjectBinary {
public:
    // Argument vector that runs build/bin/<name>: {emulator words..., path}.
    // Extra arguments go after it; exec it with execvp (the emulator is
    // found on PATH).
    static std::vector<std::string> argv(const std::string& name);
    // The same as a shell command prefix, each word single-quoted, for
    // system() and popen().
    static std::string command(const std::string& name);
    // The emulator's words from GDS_EMULATOR (blank-separated; empty when
    // binaries run natively).
    static std::vector<std::string> emulator();
    // Factor for the deadlines of waits on the server (GDS_TEST_SLOWDOWN,
    // at least 1): a ThreadSanitizer build or the emulator runs the same
    // work several times slower. Waits only end sooner when the awaited
    // thing happens, so a large factor costs nothing when all is well.
    static int slowdown();
};
