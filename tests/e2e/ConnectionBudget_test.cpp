// The address-space budget of the 32-bit controller: the server holds 1000
// idle connections, one thread each, still answers on a new one, and its
// virtual size stays under 1 GiB (the controller's process has 3 GiB, shared
// with the heap, libraries and tools). Meant for the armhf build under
// qemu-arm (make test-arm), where the size is the emulated 32-bit process's
// own; native builds check the connections and report the size.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "GDSClient.h"
#include "GdsProcess.h"
#include "ProjectBinary.h"
#include "TestRoot.h"

namespace {

const int kConnections = 1000;
const unsigned long long kBudgetKiB = 1024 * 1024;

// The budget holds for the 32-bit target. Elsewhere the size is only
// reported: a 64-bit C library reserves 64 MiB of address space per malloc
// arena (1 MiB on 32-bit), and sanitizers reserve terabytes of shadow memory.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const bool kSanitized = true;
#else
const bool kSanitized = false;
#endif
const bool kBudgetApplies = sizeof(void*) == 4 && !kSanitized;

// VmSize of a native process, in KiB (0 when unknown).
unsigned long long statusVmSizeKiB(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, 7, "VmSize:") == 0) {
            return std::stoull(line.substr(7));
        }
    }
    return 0;
}

// Room for the test's own descriptors and the server's: each side holds one
// socket per connection.
void raiseDescriptorLimit()
{
    rlimit limit;
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    rlim_t wanted = kConnections + 200;
    if (limit.rlim_cur < wanted) {
        ASSERT_GE(limit.rlim_max, wanted) << "raise the hard limit of open files (ulimit -Hn)";
        limit.rlim_cur = wanted;
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    }
}

TEST(ConnectionBudget, ThousandIdleConnectionsFitInOneGiB)
{
    raiseDescriptorLimit();
    TestRoot root(true);
    GdsProcess gds(root);
    // Lift the server's connection cap above this test's count (the cap's
    // variable is GDS_MAX_CONNECTIONS).
    gds.setEnv("GDS_MAX_CONNECTIONS", "2000");
    // Under the emulator the size is taken inside the emulated process by a
    // preloaded reporter (tests/preload/vmsizereport.cpp); QEMU_SET_ENV sets
    // LD_PRELOAD for the emulated process only, not for the emulator.
    const bool emulated = !ProjectBinary::emulator().empty();
    const std::string report = root.path("/vmsize");
    if (emulated) {
        gds.setEnv("QEMU_SET_ENV", "LD_PRELOAD=" + TestRoot::libDir() + "/libvmsizereport.so");
        gds.setEnv("GDS_VMSIZE_FILE", report);
    }
    ASSERT_TRUE(gds.start()) << gds.output();

    const GDSClient::Options options = gds.options();
    // Each connection is asked once, so that it surely has its own thread,
    // and then stays open and idle. One at a time: the listening sockets'
    // backlog is 5, and a client that runs far ahead of the accept loop waits
    // for retransmitted handshakes.
    const std::string answer = "<root><mtu>1500</mtu>\n<status>ok</status>\n</root>\n";
    std::vector<std::unique_ptr<GDSClient>> idle;
    for (int i = 0; i < kConnections; ++i) {
        idle.push_back(std::make_unique<GDSClient>(options));
        std::string reply;
        ASSERT_NO_THROW({
            idle.back()->connect();
            reply = idle.back()->request("get=mtu").text;
        }) << "connection "
           << i << "\n"
           << gds.output();
        ASSERT_EQ(answer, reply) << "connection " << i;
    }
    GDSClient fresh(options);
    fresh.connect();
    EXPECT_EQ(answer, fresh.request("get=mtu").text);

    unsigned long long kib = 0;
    if (emulated) {
        // The reporter rewrites its file every 100 ms; wait for a number
        // taken after the last connection's thread started.
        std::this_thread::sleep_for(std::chrono::milliseconds(300 * ProjectBinary::slowdown()));
        std::ifstream in(report);
        in >> kib;
    } else {
        kib = statusVmSizeKiB(gds.pid());
    }
    ASSERT_GT(kib, 0u) << "virtual size not measured\n" << gds.output();
    std::ostringstream text;
    text << kib / 1024 << " MiB virtual with " << kConnections + 1 << " connections"
         << (emulated ? " (armhf under the emulator)" : "") << (kSanitized ? " (sanitizer build)" : "")
         << (kBudgetApplies ? "" : ", not held against the 32-bit budget");
    RecordProperty("virtual_size_kib", std::to_string(kib));
    printf("connection budget: %s\n", text.str().c_str());
    if (kBudgetApplies) {
        EXPECT_LT(kib, kBudgetKiB) << text.str();
    }
    EXPECT_TRUE(gds.isRunning()) << gds.output();
}

}  // namespace
