// gdsbench: an honest anchor for the data server's speed. Every figure of
// build/bin/gds (started on a throwaway root with free ports) is set against
// a bare framed echo server that runs in a process of its own with the
// server's minimum: the same listen queue, a thread per connection, a frame
// read in one call, and a reply of as many bytes as the data server's reply
// to the same request. The two targets are measured in interleaved rounds
// (echo, gds, echo, gds ...); each figure is the median of the rounds, with
// the spread (lowest-highest) beside it. The last table says which goals
// hold. Loopback only.
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "GDSClient.h"
#include "InventoryCases.h"

extern char** environ;

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

const int kMaxFrameLength = 8096;
const int kListenBacklog = 64;  // the data server's listen queue

// ---------------------------------------------------------------------------
// The echo server (its own process: gdsbench --echo-server)

bool sendAll(int fd, const char* data, size_t n)
{
    size_t sent = 0;
    while (sent < n) {
        ssize_t w = ::send(fd, data + sent, n - sent, MSG_NOSIGNAL);
        if (w < 0 && errno == EINTR) {
            continue;
        }
        if (w <= 0) {
            return false;
        }
        sent += static_cast<size_t>(w);
    }
    return true;
}

// Legacy frames; the reply carries as many data bytes as the low 24 bits of
// the privilege word ask for (the bench sets them to the data server's
// reply length for the same request), in one final packet.
void echoServe(int fd)
{
    std::vector<char> in(kMaxFrameLength + 16);
    size_t have = 0;
    std::string reply;
    for (;;) {
        while (have < 12 || have < 8 + ((static_cast<size_t>(static_cast<unsigned char>(in[0])) << 24) |
                                        (static_cast<size_t>(static_cast<unsigned char>(in[1])) << 16) |
                                        (static_cast<size_t>(static_cast<unsigned char>(in[2])) << 8) |
                                        static_cast<unsigned char>(in[3]))) {
            ssize_t r = recv(fd, in.data() + have, in.size() - have, 0);
            if (r < 0 && errno == EINTR) {
                continue;
            }
            if (r <= 0) {
                ::close(fd);
                return;
            }
            have += static_cast<size_t>(r);
            if (have >= 4) {
                uint32_t length = (static_cast<uint32_t>(static_cast<unsigned char>(in[0])) << 24) |
                                  (static_cast<uint32_t>(static_cast<unsigned char>(in[1])) << 16) |
                                  (static_cast<uint32_t>(static_cast<unsigned char>(in[2])) << 8) |
                                  static_cast<unsigned char>(in[3]);
                if (length < 4 || length > static_cast<uint32_t>(kMaxFrameLength)) {
                    ::close(fd);
                    return;
                }
            }
        }
        size_t length = (static_cast<size_t>(static_cast<unsigned char>(in[0])) << 24) |
                        (static_cast<size_t>(static_cast<unsigned char>(in[1])) << 16) |
                        (static_cast<size_t>(static_cast<unsigned char>(in[2])) << 8) |
                        static_cast<unsigned char>(in[3]);
        size_t want =
            ((static_cast<size_t>(static_cast<unsigned char>(in[5])) << 16) |
             (static_cast<size_t>(static_cast<unsigned char>(in[6])) << 8) | static_cast<unsigned char>(in[7])) %
            32000;
        reply.assign(8, '\0');
        reply[0] = static_cast<char>((want + 2) >> 8);
        reply[1] = static_cast<char>((want + 2) & 0xff);
        reply[2] = 1;
        memcpy(&reply[4], "BEEF", 4);
        reply.append(want, 'x');
        if (!sendAll(fd, reply.data(), reply.size())) {
            ::close(fd);
            return;
        }
        size_t used = 8 + length;
        memmove(in.data(), in.data() + used, have - used);
        have -= used;
    }
}

int echoServerMain()
{
    signal(SIGPIPE, SIG_IGN);
    int s = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int one = 1;
    setsockopt(s, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    if (s < 0 || bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || listen(s, kListenBacklog) != 0 ||
        getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
        return 1;
    }
    printf("%d\n", ntohs(a.sin_port));
    fflush(stdout);
    for (;;) {
        int fd = accept(s, nullptr, nullptr);
        if (fd < 0) {
            continue;
        }
        std::thread(echoServe, fd).detach();
    }
}

class EchoProcess {
public:
    ~EchoProcess() { stop(); }
    bool start(std::string& why)
    {
        int out[2];
        if (pipe(out) != 0) {
            why = strerror(errno);
            return false;
        }
        const pid_t parent = getpid();
        m_pid = fork();
        if (m_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != parent) {
                _exit(127);
            }
            dup2(out[1], 1);
            execl("/proc/self/exe", "gdsbench", "--echo-server", static_cast<char*>(nullptr));
            _exit(127);
        }
        ::close(out[1]);
        char buf[16] = "";
        ssize_t n = read(out[0], buf, sizeof buf - 1);
        ::close(out[0]);
        m_port = n > 0 ? atoi(buf) : 0;
        if (m_port <= 0) {
            why = "the echo server did not start";
            return false;
        }
        return true;
    }
    void stop()
    {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
            m_pid = -1;
        }
    }
    int port() const { return m_port; }
    pid_t pid() const { return m_pid; }

private:
    pid_t m_pid = -1;
    int m_port = 0;
};

// Two distinct ports that were free a moment ago.
bool freePorts(int& a, int& b)
{
    int fds[2];
    int ports[2];
    for (int i = 0; i < 2; ++i) {
        fds[i] = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in s{};
        s.sin_family = AF_INET;
        s.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof s;
        if (fds[i] < 0 || bind(fds[i], reinterpret_cast<sockaddr*>(&s), sizeof s) != 0 ||
            getsockname(fds[i], reinterpret_cast<sockaddr*>(&s), &len) != 0) {
            return false;
        }
        ports[i] = ntohs(s.sin_port);
    }
    ::close(fds[0]);
    ::close(fds[1]);
    a = ports[0];
    b = ports[1];
    return true;
}

std::string exeDir()
{
    std::error_code ec;
    fs::path self = fs::read_symlink("/proc/self/exe", ec);
    return ec ? std::string(".") : self.parent_path().string();
}

// The data server as a child process on its own copy of sim/root. The root
// is removed when the server is stopped, unless it failed (then its log is
// kept for a look).
class ServerProcess {
public:
    ~ServerProcess() { stop(); }

    // extraMapLines: synthetic lines appended to the root's property map.
    bool start(std::string& why, int extraMapLines = 0)
    {
        const std::string binary = exeDir() + "/gds";
        if (access(binary.c_str(), X_OK) != 0) {
            why = binary + " not found";
            return false;
        }
        if (!makeRoot(why) || !freePorts(m_legacyPort, m_nxtGenPort)) {
            if (why.empty()) {
                why = "no free ports";
            }
            return false;
        }
        m_log = m_root + "/gds-bench.log";
        if (extraMapLines > 0) {
            FILE* map = fopen((m_root + "/usr/local/etc/appweb/map.properties").c_str(), "a");
            if (map == nullptr) {
                why = "cannot extend the property map";
                return false;
            }
            for (int i = 0; i < extraMapLines; ++i) {
                fprintf(map, "benchProperty%d,bench_property_%d,int,2,0,1000000\n", i, i);
            }
            fclose(map);
        }

        // Everything the child needs is prepared before fork: the echo
        // server's threads are running, so the child may only exec.
        const std::string conf = m_root + "/etc/dataserver.conf";
        const std::string port = std::to_string(m_legacyPort);
        std::vector<std::string> args = {binary, "-port", port, "-configfile", conf};
        std::vector<std::string> env;
        for (char** e = environ; *e != nullptr; ++e) {
            std::string s = *e;
            for (const char* drop :
                 {"GDS_ROOT=", "GDS_NXTGEN_PORT=", "DATA_SERVER_PORT=", "MORVANE_DATASERVER_DEBUG=", "configfile="}) {
                if (s.compare(0, strlen(drop), drop) == 0) {
                    s.clear();
                }
            }
            if (!s.empty()) {
                env.push_back(s);
            }
        }
        env.push_back("GDS_ROOT=" + m_root);
        // The idle-memory case holds 1000 connections: above the default cap.
        env.push_back("GDS_MAX_CONNECTIONS=4096");
        env.push_back("GDS_NXTGEN_PORT=" + std::to_string(m_nxtGenPort));
        std::vector<char*> argv, envp;
        for (std::string& s : args) {
            argv.push_back(&s[0]);
        }
        argv.push_back(nullptr);
        for (std::string& s : env) {
            envp.push_back(&s[0]);
        }
        envp.push_back(nullptr);

        int logFd = open(m_log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (logFd < 0) {
            why = "cannot create " + m_log + ": " + strerror(errno);
            return false;
        }
        const pid_t parent = getpid();
        m_pid = fork();
        if (m_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != parent || chdir(m_root.c_str()) != 0) {
                _exit(127);
            }
            dup2(logFd, 1);
            dup2(logFd, 2);
            execve(argv[0], argv.data(), envp.data());
            _exit(127);
        }
        ::close(logFd);
        if (m_pid < 0) {
            why = std::string("fork failed: ") + strerror(errno);
            return false;
        }
        return waitReady(why);
    }

    void stop()
    {
        if (m_pid > 0) {
            kill(m_pid, SIGTERM);
            int status = 0;
            bool gone = false;
            for (int i = 0; i < 100 && !gone; ++i) {
                gone = waitpid(m_pid, &status, WNOHANG) == m_pid;
                if (!gone) {
                    usleep(20000);
                }
            }
            if (!gone) {
                kill(m_pid, SIGKILL);
                waitpid(m_pid, &status, 0);
            }
            m_pid = -1;
        }
        if (!m_root.empty() && !m_keepRoot) {
            std::error_code ec;
            fs::remove_all(m_root, ec);
        }
    }

    // Keeps the root (and its log) after stop().
    void keepRoot() { m_keepRoot = true; }
    int legacyPort() const { return m_legacyPort; }
    int nxtGenPort() const { return m_nxtGenPort; }
    pid_t pid() const { return m_pid; }
    const std::string& root() const { return m_root; }
    const std::string& log() const { return m_log; }

private:
    bool makeRoot(std::string& why)
    {
        const std::string base = std::string(GDS_BINARY_DIR) + "/bench-roots";
        std::error_code ec;
        fs::create_directories(base, ec);
        std::string tmpl = base + "/root-XXXXXX";
        if (mkdtemp(&tmpl[0]) == nullptr) {
            why = "cannot create a root under " + base + ": " + strerror(errno);
            return false;
        }
        m_root = tmpl;
        const fs::path sim = fs::path(GDS_SOURCE_DIR) / "sim" / "root";
        if (fs::is_directory(sim, ec)) {
            fs::copy(sim, m_root, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
            if (ec) {
                why = "cannot copy " + sim.string() + ": " + ec.message();
                return false;
            }
        }
        fs::create_directories(m_root + "/etc", ec);
        const std::string conf = m_root + "/etc/dataserver.conf";
        if (!fs::exists(conf, ec)) {
            // No handler libraries: the built-in agents only.
            FILE* f = fopen(conf.c_str(), "w");
            if (f != nullptr) {
                fclose(f);
            }
        }
        return true;
    }

    bool waitReady(std::string& why)
    {
        GDSClient::Options o;
        o.port = m_legacyPort;
        o.connectTimeoutMs = 200;
        const Clock::time_point deadline = Clock::now() + std::chrono::seconds(5);
        while (Clock::now() < deadline) {
            int status = 0;
            if (waitpid(m_pid, &status, WNOHANG) == m_pid) {
                m_pid = -1;
                why = WIFEXITED(status) ? "exited with status " + std::to_string(WEXITSTATUS(status))
                                        : "ended by signal " + std::to_string(WTERMSIG(status));
                return false;
            }
            try {
                GDSClient probe(o);
                probe.connect();
                return true;
            } catch (const GDSClientError&) {
                usleep(50000);
            }
        }
        why = "no connection on port " + std::to_string(m_legacyPort) + " within 5 s";
        return false;
    }

    std::string m_root;
    std::string m_log;
    bool m_keepRoot = false;
    pid_t m_pid = -1;
    int m_legacyPort = 0;
    int m_nxtGenPort = 0;
};

struct Target {
    std::string name;
    GDSClient::Options options;
    pid_t pid;
};

double microsSince(Clock::time_point t0)
{
    return std::chrono::duration<double, std::micro>(Clock::now() - t0).count();
}

double percentile(std::vector<double>& v, double p)
{
    if (v.empty()) {
        return 0;
    }
    std::sort(v.begin(), v.end());
    size_t i = static_cast<size_t>(p / 100.0 * (v.size() - 1) + 0.5);
    return v[std::min(i, v.size() - 1)];
}

// One round of a case: the figure it yields (microseconds, or KiB) and errors.
struct Round {
    double value = 0;
    int errors = 0;
};

// Requests one after another on `conns` kept connections for `seconds`: p50.
Round keptRound(const Target& t, const std::string& text, int conns, double seconds)
{
    std::vector<std::vector<double>> lat(static_cast<size_t>(conns));
    std::atomic<int> errors{0};
    std::vector<std::thread> threads;
    const Clock::time_point deadline = Clock::now() + std::chrono::microseconds(static_cast<long long>(seconds * 1e6));
    for (int i = 0; i < conns; ++i) {
        threads.emplace_back([&, i] {
            GDSClient c(t.options);
            try {
                c.connect();
                while (Clock::now() < deadline) {
                    Clock::time_point t0 = Clock::now();
                    c.request(text);
                    lat[static_cast<size_t>(i)].push_back(microsSince(t0));
                }
            } catch (const GDSClientError&) {
                ++errors;
            }
        });
    }
    std::vector<double> all;
    for (size_t i = 0; i < threads.size(); ++i) {
        threads[i].join();
        all.insert(all.end(), lat[i].begin(), lat[i].end());
    }
    return {percentile(all, 50), errors.load()};
}

// Connect, one request, close, by `clients` threads for `seconds`: p50. The
// client resets instead of closing in order, so that no TIME_WAIT sockets
// pile up and slow later connects.
Round connectRound(const Target& t, const std::string& text, int clients, double seconds)
{
    std::vector<std::vector<double>> lat(static_cast<size_t>(clients));
    std::atomic<int> errors{0};
    std::vector<std::thread> threads;
    const Clock::time_point deadline = Clock::now() + std::chrono::microseconds(static_cast<long long>(seconds * 1e6));
    for (int i = 0; i < clients; ++i) {
        threads.emplace_back([&, i] {
            while (Clock::now() < deadline) {
                Clock::time_point t0 = Clock::now();
                try {
                    GDSClient c(t.options);
                    c.connect();
                    c.request(text);
                    linger reset{1, 0};
                    setsockopt(c.fd(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
                    c.close();
                    lat[static_cast<size_t>(i)].push_back(microsSince(t0));
                } catch (const GDSClientError&) {
                    ++errors;
                }
            }
        });
    }
    std::vector<double> all;
    for (size_t i = 0; i < threads.size(); ++i) {
        threads[i].join();
        all.insert(all.end(), lat[i].begin(), lat[i].end());
    }
    return {percentile(all, 50), errors.load()};
}

// 64 clients connect at the same moment: the longest connect time.
Round burstRound(const Target& t, const std::string& text, int clients)
{
    std::atomic<int> ready{0};
    std::atomic<bool> go{false};
    std::vector<double> connectUs(static_cast<size_t>(clients), 0);
    std::atomic<int> errors{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < clients; ++i) {
        threads.emplace_back([&, i] {
            GDSClient::Options o = t.options;
            o.connectTimeoutMs = 60000;
            GDSClient c(o);
            ++ready;
            while (!go.load()) {
                std::this_thread::yield();
            }
            Clock::time_point t0 = Clock::now();
            try {
                c.connect();
                connectUs[static_cast<size_t>(i)] = microsSince(t0);
                c.request(text);
                linger reset{1, 0};
                setsockopt(c.fd(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
                c.close();
            } catch (const GDSClientError&) {
                ++errors;
            }
        });
    }
    while (ready.load() < clients) {
        std::this_thread::yield();
    }
    go = true;
    for (std::thread& th : threads) {
        th.join();
    }
    return {*std::max_element(connectUs.begin(), connectUs.end()), errors.load()};
}

long rssKiB(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return atol(line.c_str() + 6);
        }
    }
    return -1;
}

// RSS per idle connection (KiB) with 1000 connections open, each after one
// request; `after` gets the RSS a few seconds after they closed, as a share
// of the RSS before they opened.
Round idleRound(const Target& t, const std::string& text, double& afterShare)
{
    const int n = 1000;
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    long before = rssKiB(t.pid);
    std::vector<std::unique_ptr<GDSClient>> clients;
    int errors = 0;
    for (int i = 0; i < n; ++i) {
        auto c = std::make_unique<GDSClient>(t.options);
        try {
            c->connect();
            c->request(text);
            clients.push_back(std::move(c));
        } catch (const GDSClientError&) {
            ++errors;
        }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    long open = rssKiB(t.pid);
    clients.clear();
    std::this_thread::sleep_for(std::chrono::seconds(3));
    long after = rssKiB(t.pid);
    afterShare = before > 0 ? static_cast<double>(after) / static_cast<double>(before) : 0;
    return {static_cast<double>(open - before) / n, errors};
}

struct Figure {
    std::vector<double> values;
    int errors = 0;
    double median() { return percentile(values, 50); }
    std::string spread()
    {
        if (values.empty()) {
            return "-";
        }
        char b[64];
        snprintf(b, sizeof b, "%.0f-%.0f", *std::min_element(values.begin(), values.end()),
                 *std::max_element(values.begin(), values.end()));
        return b;
    }
};

struct Goal {
    std::string what;
    double value;
    double limit;
    bool measured;
};

// Runs `round` for the echo and the data server, interleaved, `rounds`
// times each, and prints one row with the medians, spreads and ratio.
double compare(const char* caseName, const char* unit, const Target& echo, const Target& gds, int rounds,
               const std::function<Round(const Target&)>& round)
{
    Figure e, g;
    for (int r = 0; r < rounds; ++r) {
        // A B A B ...; the order flips every round so neither always goes first.
        const Target* order[2] = {&echo, &gds};
        if (r % 2 == 1) {
            std::swap(order[0], order[1]);
        }
        for (const Target* t : order) {
            Round x = round(*t);
            Figure& f = t == &echo ? e : g;
            f.values.push_back(x.value);
            f.errors += x.errors;
        }
    }
    double ratio = e.median() > 0 ? g.median() / e.median() : 0;
    printf("  %-44s %-5s %10.1f %13s %10.1f %13s %7.2f", caseName, unit, e.median(), e.spread().c_str(), g.median(),
           g.spread().c_str(), ratio);
    if (e.errors + g.errors > 0) {
        printf("  errors echo %d gds %d", e.errors, g.errors);
    }
    printf("\n");
    fflush(stdout);
    return ratio;
}

void usage(FILE* out)
{
    fprintf(out,
            "usage: gdsbench [-d seconds] [-r rounds] [-m] [-w] [-h]\n"
            "  -d seconds  time per round of a timed case (default 0.5)\n"
            "  -r rounds   rounds per target and case, at least 5 (default 5)\n"
            "  -m          only the memory cases of the simulated map\n"
            "  -w          only the web front door's case\n");
}

// The data server's reply length for `text`, which the echo then sends too.
size_t replyLength(const GDSClient::Options& o, const std::string& text)
{
    GDSClient c(o);
    c.connect();
    return c.request(text).text.size();
}

// A server with `extraMapLines` more map lines and its echo counterpart.
bool startServer(ServerProcess& server, int extraMapLines, Target& gds)
{
    std::string why;
    if (!server.start(why, extraMapLines)) {
        printf("  gds not measured (%d more map lines): %s\n", extraMapLines, why.c_str());
        return false;
    }
    gds.options.port = server.legacyPort();
    gds.pid = server.pid();
    return true;
}

}  // namespace

#ifdef GDSBENCH_WEB
// bench/web_cases.cpp
void runWebCases(const std::string& binDir, const std::string& sourceDir, const std::string& buildDir, int rounds,
                 double seconds);
#endif

int main(int argc, char** argv)
{
    if (argc == 2 && strcmp(argv[1], "--echo-server") == 0) {
        return echoServerMain();
    }
    double seconds = 0.5;
    int rounds = 5;
    int opt;
    bool webOnly = false;
    bool memoryOnly = false;
    while ((opt = getopt(argc, argv, "d:r:mwh")) != -1) {
        char* end = nullptr;
        switch (opt) {
            case 'd':
                seconds = strtod(optarg, &end);
                if (end == optarg || *end != '\0' || !(seconds > 0 && seconds <= 60)) {
                    fprintf(stderr, "gdsbench: bad time '%s' (seconds, above 0, at most 60)\n", optarg);
                    return 2;
                }
                break;
            case 'r':
                rounds = static_cast<int>(strtol(optarg, &end, 10));
                if (end == optarg || *end != '\0' || rounds < 5 || rounds > 99) {
                    fprintf(stderr, "gdsbench: bad round count '%s' (5 to 99)\n", optarg);
                    return 2;
                }
                break;
            case 'm':
                memoryOnly = true;
                break;
            case 'w':
                webOnly = true;
                break;
            case 'h':
                usage(stdout);
                return 0;
            default:
                usage(stderr);
                return 2;
        }
    }
    signal(SIGPIPE, SIG_IGN);
    // 1000 idle connections and 64-client cases need descriptors.
    struct rlimit lim;
    if (getrlimit(RLIMIT_NOFILE, &lim) == 0 && lim.rlim_cur < lim.rlim_max) {
        lim.rlim_cur = lim.rlim_max;
        setrlimit(RLIMIT_NOFILE, &lim);
    }

    if (webOnly) {
#ifdef GDSBENCH_WEB
        runWebCases(exeDir(), GDS_SOURCE_DIR, GDS_BINARY_DIR, rounds, seconds);
        return 0;
#else
        fprintf(stderr, "gdsbench: built without the web front door (no cpp-httplib)\n");
        return 1;
#endif
    }

    std::string why;
    EchoProcess echoProcess;
    if (!echoProcess.start(why)) {
        fprintf(stderr, "gdsbench: %s\n", why.c_str());
        return 1;
    }
    ServerProcess server;
    Target gds{"gds", {}, -1};
    gds.options.connectTimeoutMs = 5000;
    gds.options.replyTimeoutMs = 10000;
    if (!startServer(server, 0, gds)) {
        return 1;
    }
    const std::string getTwo = "get=hostname,sshPort";
    Target echo{"echo", gds.options, echoProcess.pid()};
    echo.options.port = echoProcess.port();
    // The echo replies with as many bytes as the data server does.
    echo.options.privileges = static_cast<uint32_t>(replyLength(gds.options, getTwo));

    printf("gdsbench: \"%s\" on 127.0.0.1; %d interleaved rounds per target, %.1f s per timed round\n", getTwo.c_str(),
           rounds, seconds);
    printf(
        "  echo: its own process (pid %d), listen queue %d, a thread per connection, a frame in one read, a\n"
        "        reply of %u bytes like the data server's; figures are medians of the rounds, spread "
        "lowest-highest\n\n",
        static_cast<int>(echo.pid), kListenBacklog, echo.options.privileges);
    printf("  %-44s %-5s %10s %13s %10s %13s %7s\n", "case", "unit", "echo", "spread", "gds", "spread", "ratio");

    double keptOne = 0, keptEight = 0, keptMany = 0, cprOne = 0;
    Figure burst;
    if (!memoryOnly) {
        keptOne = compare("1 kept connection, p50", "us", echo, gds, rounds,
                          [&](const Target& t) { return keptRound(t, getTwo, 1, seconds); });
        keptEight = compare("8 kept connections, p50", "us", echo, gds, rounds,
                            [&](const Target& t) { return keptRound(t, getTwo, 8, seconds); });
        keptMany = compare("64 kept connections, p50", "us", echo, gds, rounds,
                           [&](const Target& t) { return keptRound(t, getTwo, 64, seconds); });
        cprOne = compare("connect+get+close, 1 client, p50", "us", echo, gds, rounds,
                         [&](const Target& t) { return connectRound(t, getTwo, 1, seconds); });
        compare("connect+get+close, 64 clients, p50", "us", echo, gds, rounds,
                [&](const Target& t) { return connectRound(t, getTwo, 64, seconds); });
        compare("64 simultaneous connects, longest connect", "us", echo, gds, rounds, [&](const Target& t) {
            Round r = burstRound(t, getTwo, 64);
            if (&t == &gds) {
                burst.values.push_back(r.value);
            }
            return r;
        });
    }
    double afterShare = 0;
    Figure rssSim;
    compare("idle RSS per connection (1000 open)", "KiB", echo, gds, 1, [&](const Target& t) {
        double share = 0;
        Round r = idleRound(t, "get=", share);
        if (&t == &gds) {
            afterShare = share;
            rssSim.values.push_back(r.value);
        }
        return r;
    });
    printf("  %-44s %-5s %10s %13s %10.2f\n", "gds RSS 3 s after they closed / before", "", "", "", afterShare);
    Figure rssWorked;
    compare("RSS per connection after a get of two", "KiB", echo, gds, 1, [&](const Target& t) {
        double share = 0;
        Round r = idleRound(t, getTwo, share);
        if (&t == &gds) {
            rssWorked.values.push_back(r.value);
        }
        return r;
    });
    server.stop();
    if (memoryOnly) {
        echoProcess.stop();
        return 0;
    }

    double cprLarge = 0;
    Figure rssLarge;
    for (int lines : {1000, 10000}) {
        ServerProcess large;
        Target big{"gds", gds.options, -1};
        if (!startServer(large, lines, big)) {
            continue;
        }
        char name[80];
        snprintf(name, sizeof name, "connect+get+close, %d-line map, p50", lines);
        double r = compare(name, "us", echo, big, rounds,
                           [&](const Target& t) { return connectRound(t, getTwo, 1, seconds); });
        if (lines == 10000) {
            cprLarge = r;
            double share = 0;
            snprintf(name, sizeof name, "idle RSS per connection, %d-line map", lines);
            compare(name, "KiB", echo, big, 1, [&](const Target& t) {
                Round x = idleRound(t, "get=", share);
                if (&t == &big) {
                    rssLarge.values.push_back(x.value);
                }
                return x;
            });
        }
        large.stop();
    }
    echoProcess.stop();

    // The inventory page, cached against uncached and against a get of two;
    // an adapter read; a get that needs no card during a slow card listing.
    InventoryFigures inv = runInventoryCases(exeDir(), exeDir() + "/../lib", GDS_SOURCE_DIR, GDS_BINARY_DIR);

    printf("\ngoals (one run on this machine)\n");
    const Goal goals[] = {
        {"get of two, 1 kept connection: p50 ratio <= 1.5", keptOne, 1.5, keptOne > 0},
        {"get of two, 8 kept connections: p50 ratio <= 1.5", keptEight, 1.5, keptEight > 0},
        {"get of two, 64 kept connections: p50 ratio <= 1.5", keptMany, 1.5, keptMany > 0},
        {"connect+get+close, simulated map: p50 ratio <= 1.5", cprOne, 1.5, cprOne > 0},
        {"connect+get+close, 10000-line map: p50 ratio <= 2", cprLarge, 2.0, cprLarge > 0},
        {"64 simultaneous connects: longest <= 50000 us", burst.values.empty() ? 0 : burst.median(), 50000,
         !burst.values.empty()},
        {"idle RSS per connection, simulated map <= 16 KiB", rssSim.values.empty() ? 0 : rssSim.median(), 16,
         !rssSim.values.empty()},
        {"idle RSS per connection, 10000-line map <= 16 KiB", rssLarge.values.empty() ? 0 : rssLarge.median(), 16,
         !rssLarge.values.empty()},
        {"RSS after 1000 connections closed <= 1.10 x before", afterShare, 1.10, afterShare > 0},
        {"RSS per connection after a get of two <= 16 KiB", rssWorked.values.empty() ? 0 : rssWorked.median(), 16,
         !rssWorked.values.empty()},
        {"cached inventory page: ratio to a get of two <= 3", inv.pageRatio, 3, inv.measured},
        {"cached inventory page: processes started <= 0", static_cast<double>(inv.pagePrograms), 0,
         inv.pagePrograms >= 0},
        {"adapter read adapterFW[2]: processes started <= 1", static_cast<double>(inv.adapterPrograms), 1,
         inv.adapterPrograms >= 0},
        {"nextOrder during a 2 s card listing <= 50 ms", inv.noCardMs, 50, inv.noCardMs >= 0},
    };
    for (const Goal& g : goals) {
        printf("  %-56s %10.2f  %s\n", g.what.c_str(), g.value,
               !g.measured          ? "not measured"
               : g.value <= g.limit ? "holds"
                                    : "MISSED");
    }
#ifdef GDSBENCH_WEB
    runWebCases(exeDir(), GDS_SOURCE_DIR, GDS_BINARY_DIR, rounds, seconds);
#endif
    return 0;
}
