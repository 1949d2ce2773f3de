// gdsbench: measures request round trips of the data server (build/bin/gds,
// started on a throwaway root with free ports) and of a bare framed echo
// server in this process, on loopback only, and prints every figure with its
// ratio to the echo baseline of the same run. The main thread drives the
// cases; each kept connection of a case gets its own thread.
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "GDSClient.h"

extern char** environ;

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

// Requests measured on every target. Add rows to measure more.
struct BenchRequest {
    const char* name;
    const char* text;
};
const BenchRequest kRequests[] = {
    {"minimal", "get="},
    {"get two", "get=hostname,sshPort"},
    {"set one", "set=sshPort:22"},
};

// Every new connection reads the property map; the last case measures
// connection set-up with a map this many lines longer than the simulator's.
const int kLargeMapExtraLines = 400;

// The echo server's reply: about the size of the data server's reply to a
// request without names.
const char kEchoReply[] = "<root><status>ok</status>\n</root>\n";

const int kMaxFrameLength = 8096;

bool recvAll(int fd, char* buf, size_t n)
{
    size_t got = 0;
    while (got < n) {
        ssize_t r = recv(fd, buf + got, n - got, 0);
        if (r < 0 && errno == EINTR) {
            continue;
        }
        if (r <= 0) {
            return false;
        }
        got += static_cast<size_t>(r);
    }
    return true;
}

uint32_t getInt32(const char* p)
{
    const unsigned char* u = reinterpret_cast<const unsigned char*>(p);
    return (uint32_t(u[0]) << 24) | (uint32_t(u[1]) << 16) | (uint32_t(u[2]) << 8) | uint32_t(u[3]);
}

// A bare server of the legacy frame: every request is answered with one
// final packet holding kEchoReply. One thread per connection, like the data
// server.
class EchoServer {
public:
    ~EchoServer() { stop(); }

    // extraMapLines: synthetic lines appended to the root's property map.
    bool start(std::string& why, int extraMapLines = 0)
    {
        m_listen = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        if (m_listen < 0 || bind(m_listen, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 ||
            listen(m_listen, 64) != 0 || getsockname(m_listen, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
            why = strerror(errno);
            return false;
        }
        m_port = ntohs(a.sin_port);
        const size_t n = sizeof kEchoReply - 1;
        m_packet = {static_cast<char>((n + 2) >> 8), static_cast<char>((n + 2) & 0xFF), 1, 0};
        m_packet += "BEEF";
        m_packet += kEchoReply;
        m_acceptor = std::thread([this] { acceptLoop(); });
        return true;
    }

    int port() const { return m_port; }

    void stop()
    {
        if (!m_acceptor.joinable()) {
            return;
        }
        m_stop = true;
        m_acceptor.join();
        std::unique_lock<std::mutex> lock(m_mutex);
        for (int fd : m_conns) {
            shutdown(fd, SHUT_RDWR);
        }
        m_done.wait(lock, [this] { return m_active == 0; });
        ::close(m_listen);
        m_listen = -1;
    }

private:
    void acceptLoop()
    {
        while (!m_stop) {
            pollfd p{m_listen, POLLIN, 0};
            if (poll(&p, 1, 100) != 1) {
                continue;
            }
            int fd = accept4(m_listen, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) {
                continue;
            }
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                m_conns.insert(fd);
                ++m_active;
            }
            std::thread([this, fd] { serve(fd); }).detach();
        }
    }

    void serve(int fd)
    {
        int one = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        std::vector<char> text(kMaxFrameLength);
        char head[12];
        while (recvAll(fd, head, sizeof head)) {
            uint32_t length = getInt32(head);
            if (length < 4 || length > kMaxFrameLength || memcmp(head + 8, "BEEF", 4) != 0 ||
                !recvAll(fd, text.data(), length - 4)) {
                break;
            }
            if (::send(fd, m_packet.data(), m_packet.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(m_packet.size())) {
                break;
            }
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        m_conns.erase(fd);
        ::close(fd);
        --m_active;
        m_done.notify_all();
    }

    int m_listen = -1;
    int m_port = 0;
    std::string m_packet;
    std::atomic<bool> m_stop{false};
    std::thread m_acceptor;
    std::mutex m_mutex;
    std::condition_variable m_done;
    std::set<int> m_conns;
    int m_active = 0;
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
};

struct Result {
    uint64_t ops = 0;
    uint64_t errors = 0;
    std::string firstError;
    double seconds = 0;
    std::vector<double> latencyUs;

    double perSecond() const { return seconds > 0 ? ops / seconds : 0; }
    double percentile(double p) const
    {
        if (latencyUs.empty()) {
            return 0;
        }
        size_t i = static_cast<size_t>(p / 100.0 * (latencyUs.size() - 1) + 0.5);
        return latencyUs[std::min(i, latencyUs.size() - 1)];
    }
    void merge(Result& other)
    {
        ops += other.ops;
        errors += other.errors;
        if (firstError.empty()) {
            firstError = other.firstError;
        }
        latencyUs.insert(latencyUs.end(), other.latencyUs.begin(), other.latencyUs.end());
    }
    void noteError(const GDSClientError& e)
    {
        ++errors;
        if (firstError.empty()) {
            firstError = e.what();
        }
    }
};

double microsSince(Clock::time_point t0)
{
    return std::chrono::duration<double, std::micro>(Clock::now() - t0).count();
}

// Requests one after another on one kept connection until the deadline. A
// connection lost to an error is opened again; a failed reconnect ends the run.
void keptConnection(const Target& target, const std::string& text, Clock::time_point deadline, Result& r)
{
    GDSClient client(target.options);
    while (Clock::now() < deadline) {
        try {
            if (!client.isOpen()) {
                client.connect();
            }
            Clock::time_point t0 = Clock::now();
            client.request(text);
            r.latencyUs.push_back(microsSince(t0));
            ++r.ops;
        } catch (const GDSClientError& e) {
            r.noteError(e);
            if (e.kind() == GDSClientError::kConnect) {
                return;
            }
        }
    }
}

// Connect, one request, close, until the deadline or maxCycles. The client
// resets the connection instead of closing it in order: a normal close
// leaves a socket in TIME_WAIT per cycle, and tens of thousands of those
// exhaust the loopback port range and make later connects slow.
void connectPerRequest(const Target& target, const std::string& text, Clock::time_point deadline, Result& r)
{
    const uint64_t maxCycles = 20000;
    while (Clock::now() < deadline && r.ops + r.errors < maxCycles) {
        Clock::time_point t0 = Clock::now();
        try {
            GDSClient client(target.options);
            client.connect();
            client.request(text);
            linger reset{1, 0};
            setsockopt(client.fd(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
            client.close();
            r.latencyUs.push_back(microsSince(t0));
            ++r.ops;
        } catch (const GDSClientError& e) {
            r.noteError(e);
            if (e.kind() == GDSClientError::kConnect) {
                return;
            }
        }
    }
}

struct Case {
    const char* name;
    int connections;  // 0: a new connection per request
};

Result runCase(const Case& c, const Target& target, const std::string& text, double seconds)
{
    const Clock::time_point start = Clock::now();
    const Clock::time_point deadline = start + std::chrono::microseconds(static_cast<long long>(seconds * 1e6));
    Result total;
    if (c.connections == 0) {
        connectPerRequest(target, text, deadline, total);
    } else {
        std::vector<Result> parts(c.connections);
        std::vector<std::thread> threads;
        for (int i = 0; i < c.connections; ++i) {
            threads.emplace_back([&, i] { keptConnection(target, text, deadline, parts[i]); });
        }
        for (std::thread& t : threads) {
            t.join();
        }
        for (Result& p : parts) {
            total.merge(p);
        }
    }
    total.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    std::sort(total.latencyUs.begin(), total.latencyUs.end());
    return total;
}

std::string ratio(double value, double base)
{
    char b[32];
    if (base <= 0) {
        return "-";
    }
    snprintf(b, sizeof b, "%.2f", value / base);
    return b;
}

void printRow(const char* caseName, const std::string& target, const Result& r, const Result* base)
{
    // The baseline row has no ratios.
    auto rat = [base](double value, double of) { return base != nullptr ? ratio(value, of) : std::string(); };
    char line[512];
    int n = snprintf(line, sizeof line, "  %-22s %-13s %10.0f %6s", caseName, target.c_str(), r.perSecond(),
                     rat(r.perSecond(), base != nullptr ? base->perSecond() : 0).c_str());
    for (double p : {50.0, 90.0, 99.0}) {
        n += snprintf(line + n, sizeof line - n, " %9.1f %6s", r.percentile(p),
                      rat(r.percentile(p), base != nullptr ? base->percentile(p) : 0).c_str());
    }
    std::string out = line;
    out.erase(out.find_last_not_of(' ') + 1);
    if (r.errors > 0) {
        out += "  errors " + std::to_string(r.errors) + " (" + r.firstError + ")";
    }
    printf("%s\n", out.c_str());
}

void usage(FILE* out)
{
    fprintf(out,
            "usage: gdsbench [-d seconds] [-c connections] [-E] [-h]\n"
            "  -d seconds      time per case (default 2)\n"
            "  -c connections  kept connections at once in the parallel case (default 4)\n"
            "  -E              measure the echo baseline only (do not start the data server)\n");
}

}  // namespace

// bench/inventory_cases.cpp
void runInventoryCases(const std::string& binDir, const std::string& libDir, const std::string& sourceDir,
                       const std::string& buildDir);

int main(int argc, char** argv)
{
    double seconds = 2.0;
    int connections = 4;
    bool echoOnly = false;
    int opt;
    while ((opt = getopt(argc, argv, "d:c:Eh")) != -1) {
        char* end = nullptr;
        switch (opt) {
            case 'd':
                seconds = strtod(optarg, &end);
                if (end == optarg || *end != '\0' || !(seconds > 0 && seconds <= 600)) {
                    fprintf(stderr, "gdsbench: bad time '%s' (seconds, above 0, at most 600)\n", optarg);
                    return 2;
                }
                break;
            case 'c': {
                long v = strtol(optarg, &end, 10);
                if (end == optarg || *end != '\0' || v < 1 || v > 64) {
                    fprintf(stderr, "gdsbench: bad connection count '%s' (1 to 64)\n", optarg);
                    return 2;
                }
                connections = static_cast<int>(v);
                break;
            }
            case 'E':
                echoOnly = true;
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

    std::vector<Target> targets;
    EchoServer echo;
    std::string why;
    if (!echo.start(why)) {
        fprintf(stderr, "gdsbench: cannot start the echo server: %s\n", why.c_str());
        return 1;
    }
    GDSClient::Options base;
    base.connectTimeoutMs = 2000;
    base.replyTimeoutMs = 5000;
    base.port = echo.port();
    targets.push_back({"echo", base});

    printf("gdsbench: %.1f s per case, 127.0.0.1 only; ratio = figure / echo baseline figure\n", seconds);
    printf("  echo       port %d, in-process, reply %zu bytes\n", echo.port(), sizeof kEchoReply - 1);

    ServerProcess server;
    if (echoOnly) {
        printf("  gds        not started (-E)\n");
    } else if (!server.start(why)) {
        printf("  gds        not measured: %s\n", why.c_str());
        if (!server.log().empty()) {
            server.keepRoot();
            printf("             its output: %s\n", server.log().c_str());
        }
    } else {
        printf("  gds        pid %d, legacy port %d, next-generation port %d\n", static_cast<int>(server.pid()),
               server.legacyPort(), server.nxtGenPort());
        printf("             root %s\n", server.root().c_str());
        GDSClient::Options legacy = base;
        legacy.port = server.legacyPort();
        GDSClient::Options nxtGen = base;
        nxtGen.port = server.nxtGenPort();
        nxtGen.layout = GDSClient::Layout::kNxtGen;
        nxtGen.user = "bench";
        nxtGen.interface = "web";
        bool any = false;
        for (const Target& t : {Target{"gds legacy", legacy}, Target{"gds next-gen", nxtGen}}) {
            // One probe per port: a server that accepts but does not answer
            // is reported, not measured.
            GDSClient::Options probeOptions = t.options;
            probeOptions.replyTimeoutMs = 2000;
            GDSClient probe(probeOptions);
            try {
                probe.connect();
                GDSReply reply = probe.request(kRequests[0].text);
                printf("  %-12s answers \"%s\" with %zu bytes in %zu packets\n", t.name.c_str(), kRequests[0].text,
                       reply.text.size(), reply.packets.size());
                targets.push_back(t);
                any = true;
            } catch (const GDSClientError& e) {
                printf("  %-12s not measured: no answer to \"%s\": %s\n", t.name.c_str(), kRequests[0].text, e.what());
            }
        }
        if (!any) {
            server.keepRoot();
            printf("             its output: %s\n", server.log().c_str());
        }
    }

    const std::string parallel = std::to_string(connections) + " connections";
    const Case cases[] = {
        {"1 connection", 1},
        {parallel.c_str(), connections},
        {"connect+request+close", 0},
    };
    for (const BenchRequest& req : kRequests) {
        printf("\nrequest \"%s\" (%s)\n", req.text, req.name);
        printf("  %-22s %-13s %10s %6s %9s %6s %9s %6s %9s %6s\n", "case", "target", "req/s", "ratio", "p50 us",
               "ratio", "p90 us", "ratio", "p99 us", "ratio");
        for (const Case& c : cases) {
            Result baseline;
            for (size_t i = 0; i < targets.size(); ++i) {
                Result r = runCase(c, targets[i], req.text, seconds);
                printRow(i == 0 ? c.name : "", targets[i].name, r, i == 0 ? nullptr : &baseline);
                fflush(stdout);
                if (i == 0) {
                    baseline = std::move(r);
                }
            }
        }
    }
    // Connection set-up cost of the property map: the same connect + get +
    // close against a server whose map has kLargeMapExtraLines more lines.
    if (targets.size() > 1) {
        server.stop();
        ServerProcess large;
        if (!large.start(why, kLargeMapExtraLines)) {
            printf("\nlarge property map: not measured: %s\n", why.c_str());
        } else {
            const BenchRequest& req = kRequests[1];
            printf("\nrequest \"%s\" with %d more property map lines (read at every connection)\n", req.text,
                   kLargeMapExtraLines);
            const Case c = {"connect+request+close", 0};
            Result baseline = runCase(c, targets[0], req.text, seconds);
            printRow(c.name, targets[0].name, baseline, nullptr);
            GDSClient::Options legacy = targets[0].options;
            legacy.port = large.legacyPort();
            Result r = runCase(c, Target{"gds legacy", legacy}, req.text, seconds);
            printRow("", "gds legacy", r, &baseline);
        }
        large.stop();
    }
    server.stop();
    echo.stop();
    if (!echoOnly) {
        runInventoryCases(exeDir(), exeDir() + "/../lib", GDS_SOURCE_DIR, GDS_BINARY_DIR);
    }
    return 0;
}
