// Many connections at once against the state the server's threads share:
// the property service and the inventory cache (while the BIOS token gatherer applies documents the
// simulated BIOS keeps writing with biossim, polled every second), the debug log, and the accept loop with
// connections coming and going. Here it catches lost or torn values and
// mixed log lines; built with ThreadSanitizer (make test-tsan) it also
// catches the data races behind them. Caches that later agents share go in
// the workload table.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <iterator>
#include <mutex>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "GDSClient.h"
#include "GdsProcess.h"
#include "ProjectBinary.h"
#include "RawWire.h"
#include "ReplyText.h"
#include "TestRoot.h"
#include "aim_config.h"

namespace {

const int kThreadsPerWorkload = 3;
const int kRequestsPerThread = 25;

// One kind of traffic, run by kThreadsPerWorkload threads at the same time
// as every other kind.
struct Workload {
    const char* name;
    bool nxtGen;     // which port
    bool reconnect;  // a new connection for every request
    uint32_t privileges;
    // The request of `thread`'s `i`-th turn.
    std::function<std::string(int thread, int i)> request;
    // Empty when `reply` is right, else what is wrong with it.
    std::function<std::string(const std::string& reply)> check;
};

// Values the sshPort writers store: distinct per thread and turn.
int sshPortValue(int thread, int i)
{
    return 10000 + thread * 100 + i;
}

std::string expectEqual(const std::string& want, const std::string& got)
{
    return want == got ? "" : "want " + want + " got " + got;
}

// A value a reader may see for sshPort: the start value or one written.
bool isWrittenSshPort(int value)
{
    if (value == 22) {
        return true;
    }
    int thread = (value - 10000) / 100;
    int i = (value - 10000) % 100;
    return value >= 10000 && thread < kThreadsPerWorkload && i < kRequestsPerThread;
}

std::string checkSshRead(const std::string& reply)
{
    static const std::regex shape(
        "<root><sshPort>([0-9]+)</sshPort>\n<hostname>sim-bmc</hostname>\n"
        "<mtu>1500</mtu>\n<status>ok</status>\n</root>\n");
    std::smatch m;
    if (!std::regex_match(reply, m, shape)) {
        return "unexpected reply " + reply;
    }
    return isWrittenSshPort(std::stoi(m[1])) ? "" : "torn or foreign value " + m[1].str();
}

const Workload kWorkloads[] = {
    {"sshPort writers", false, false, 0x02,
     [](int t, int i) { return "set=sshPort:" + std::to_string(sshPortValue(t, i)); },
     [](const std::string& r) { return expectEqual(okReply(""), r); }},
    {"sshPort readers", true, false, 0x00, [](int, int) { return std::string("get=sshPort,hostname,mtu"); },
     checkSshRead},
    // the inventory cache, filled by whichever connection asks first
    {"inventory readers, a connection each", false, true, 0x00,
     [](int, int) { return std::string("get=inventoryMemory"); },
     [](const std::string& r) { return occurrences(r, "<DIMM>") == 12 ? "" : "not 12 DIMMs in " + r; }},
    {"unknown names and bad requests", false, true, 0x00,
     [](int t, int i) { return i % 2 == 0 ? std::string("get=noSuchThing") : std::string("set=mtu:abc"); },
     [](const std::string& r) { return r.find("<status>") != std::string::npos ? "" : "no status in " + r; }},
};

// What the simulated BIOS writes in turn (valid in the simulated schema;
// without blanks, because the first token's value of a document ends at one).
const char* const kBiosValues[] = {"Custom", "Enterprise"};

std::string aimText(const char* name)
{
    char value[256] = "";
    return aim_config_get_str(name, value) ? value : "<unset>";
}

class Concurrency : public testing::Test {
protected:
    void SetUp() override
    {
        root.writeFile("/tmp/gdsprint_override", "");  // every request writes its audit line
        gds.setEnv("GDS_BIOS_POLL_SECONDS", "1");
        ASSERT_TRUE(gds.start()) << gds.output();
        // The gatherer thread publishes the BIOS tokens at start.
        ASSERT_TRUE(waitFor([] { return aimText("BiosTokenDataAvailable") == "1"; }, 15)) << gds.output();
        EXPECT_TRUE(root.exists("/tmp/BiosTokens/advanced/cmd/validvalues"));
    }

    // Runs `w` as thread `t`; problems are collected, not asserted, because
    // gtest assertions belong on the main thread.
    void drive(const Workload& w, int t)
    {
        GDSClient client(gds.options(w.nxtGen, w.privileges));
        for (int i = 0; i < kRequestsPerThread; ++i) {
            std::string request = w.request(t, i);
            try {
                if (w.reconnect || !client.isOpen()) {
                    client.connect();
                }
                std::string problem = w.check(client.request(request).text);
                if (!problem.empty()) {
                    report(std::string(w.name) + ": " + request + ": " + problem);
                }
            } catch (const std::exception& e) {
                report(std::string(w.name) + ": " + request + ": " + e.what());
            }
        }
    }

    void report(const std::string& problem)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_problems.push_back(problem);
    }

    TestRoot root{true};
    GdsProcess gds{root};
    std::mutex m_mutex;
    std::vector<std::string> m_problems;
};

TEST_F(Concurrency, SharedStateFromManyConnections)
{
    // The simulated BIOS writes a new document while the connections run, so
    // the gatherer thread writes the property service at the same time.
    std::atomic<bool> running{true};
    std::atomic<int> documents{0};
    std::thread bios([&] {
        for (int n = 0; running; ++n) {
            std::string doc = root.writeFile("/doc" + std::to_string(n % 2) + ".xml",
                                             std::string("<?xml version='1.0' ?><bios-params><CPUPerformance value='") +
                                                 kBiosValues[n % 2] + "' /></bios-params>");
            std::string line = "GDS_ROOT='" + root.dir() + "' " + ProjectBinary::command("biossim") + " write - < '" +
                               doc + "' >/dev/null";
            if (system(line.c_str()) == 0) {
                documents = n + 1;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(700));
        }
    });

    std::vector<std::thread> threads;
    for (const Workload& w : kWorkloads) {
        for (int t = 0; t < kThreadsPerWorkload; ++t) {
            threads.emplace_back([this, &w, t] { drive(w, t); });
        }
    }
    for (std::thread& t : threads) {
        t.join();
    }
    running = false;
    bios.join();

    for (const std::string& p : m_problems) {
        ADD_FAILURE() << p;
    }
    ASSERT_TRUE(gds.isRunning()) << gds.output();

    // No write was lost or garbled: the value is the last of some writer.
    std::set<std::string> lastWrites;
    for (int t = 0; t < kThreadsPerWorkload; ++t) {
        lastWrites.insert(std::to_string(sshPortValue(t, kRequestsPerThread - 1)));
    }
    std::string port = aimText("pm_int_ssh_port");
    EXPECT_TRUE(lastWrites.count(port) == 1) << "pm_int_ssh_port is " << port;

    // The gatherer kept up with the BIOS: the last document is applied.
    ASSERT_GT(documents.load(), 0);
    std::string last = kBiosValues[(documents - 1) % 2];
    EXPECT_TRUE(waitFor([&] { return aimText("CPUPerformance") == last; }, 15))
        << "CPUPerformance is " << aimText("CPUPerformance") << ", want " << last;

    // One connection filled the inventory cache (keeping and dropping it by
    // the data version is the unit tests').
    EXPECT_EQ(1u, occurrences(gds.output(), "cachedSmVersion 0x0, New smVersion: 0x1"));

    // One whole audit line per request, none mixed with another.
    std::istringstream log(root.readFile("/var/log/gds.log"));
    static const std::regex auditLine(R"(\(\d+\)\[[0-9: -]+\] GDS_DBG_ERROR: interface \S* => (get|set)=.*)");
    int audits = 0;
    for (std::string line; std::getline(log, line);) {
        if (line.find(" => ") == std::string::npos) {
            continue;
        }
        ++audits;
        EXPECT_TRUE(std::regex_match(line, auditLine)) << line;
    }
    EXPECT_EQ(static_cast<int>(std::size(kWorkloads)) * kThreadsPerWorkload * kRequestsPerThread, audits);
}

}  // namespace
