// The web front door's case of gdsbench: a two-property read through HTTP
// (GET /data on a kept connection, through gdsweb to the data server's port
// 8197) against the sum of its two parts measured alone: the same read
// straight to the data server on a kept connection, and the same HTTP library
// answering a fixed body of the same size on a kept connection. Goal: at most
// 1.3x that sum. Starts its own gds and gdsweb on a copy of sim/root.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "GDSClient.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

int freePort()
{
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    int port = 0;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) == 0) {
        port = ntohs(a.sin_port);
    }
    close(fd);
    return port;
}

pid_t spawn(const std::vector<std::string>& args, const std::string& root, const std::string& log,
            const std::vector<std::string>& env)
{
    pid_t pid = fork();
    if (pid == 0) {
        setenv("GDS_ROOT", root.c_str(), 1);
        for (const std::string& e : env) {
            putenv(strdup(e.c_str()));
        }
        if (freopen(log.c_str(), "w", stdout) == nullptr || dup2(fileno(stdout), 2) < 0 || chdir(root.c_str()) != 0) {
            _exit(127);
        }
        std::vector<char*> argv;
        for (const std::string& a : args) {
            argv.push_back(const_cast<char*>(a.c_str()));
        }
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

}  // namespace

void runWebCases(const std::string& binDir, const std::string& sourceDir, const std::string& buildDir, int rounds,
                 double seconds)
{
    printf("\nweb front door (gdsweb)\n");
    fflush(stdout);  // the children's freopen would write it again
    std::error_code ec;
    std::string root = buildDir + "/bench-roots/web-" + std::to_string(getpid());
    fs::remove_all(root, ec);
    fs::create_directories(root, ec);
    fs::copy(sourceDir + "/sim/root", root, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
    if (ec || access((binDir + "/gdsweb").c_str(), X_OK) != 0) {
        printf("  not measured: no simulated root or no gdsweb\n");
        return;
    }
    std::ofstream(root + "/etc/dataserver.conf") << "";
    const int legacy = freePort(), nxtGen = freePort(), web = freePort();
    pid_t gds = spawn({binDir + "/gds", "-configfile", root + "/etc/dataserver.conf", "-port", std::to_string(legacy)},
                      root, root + "/gds-bench.log", {"GDS_NXTGEN_PORT=" + std::to_string(nxtGen)});
    pid_t door = spawn({binDir + "/gdsweb", "-p", std::to_string(web), "--data-port", std::to_string(nxtGen)}, root,
                       root + "/gdsweb-bench.log", {});

    // The fixed body, answered by the same HTTP library in this process.
    httplib::Server fixed;
    std::string body;
    fixed.Get("/fixed",
              [&body](const httplib::Request&, httplib::Response& res) { res.set_content(body, "application/xml"); });
    fixed.set_tcp_nodelay(true);  // as gdsweb has it: no Nagle delay between head and body
    const int fixedPort = fixed.bind_to_any_port("127.0.0.1");
    std::thread fixedThread([&fixed] { fixed.listen_after_bind(); });

    const std::string getTwo = "get=hostname,sshPort";
    httplib::Client http("127.0.0.1", web);
    http.set_keep_alive(true);
    http.set_tcp_nodelay(true);
    httplib::Headers session;
    bool up = false;
    for (int i = 0; i < 100 && !up; ++i) {
        auto r = http.Post("/login", "user=admin&password=password", "application/x-www-form-urlencoded");
        if (r && r->status == 200) {
            std::string cookie = r->get_header_value("Set-Cookie");
            session = {{"Cookie", cookie.substr(0, cookie.find(';'))}};
            up = true;
        } else {
            usleep(100000);
        }
    }
    httplib::Result viaDoor = http.Get("/data?get=hostname,sshPort", session);
    for (int i = 0; i < 100 && up && (!viaDoor || viaDoor->status != 200); ++i) {
        usleep(100000);  // the data server is still starting
        viaDoor = http.Get("/data?get=hostname,sshPort", session);
    }
    if (!up || !viaDoor || viaDoor->status != 200) {
        printf("  not measured: gds or gdsweb did not come up (login %s, read %d; logs in %s)\n", up ? "ok" : "failed",
               viaDoor ? viaDoor->status : -1, root.c_str());
        kill(door, SIGKILL);
        kill(gds, SIGKILL);
        waitpid(door, nullptr, 0);
        waitpid(gds, nullptr, 0);
        fixed.stop();
        fixedThread.join();
        return;
    } else {
        body = viaDoor->body;
        GDSClient::Options o;
        o.port = nxtGen;
        o.layout = GDSClient::Layout::kNxtGen;
        o.user = "admin";
        o.interface = "gdsweb";
        GDSClient direct(o);
        httplib::Client fixedClient("127.0.0.1", fixedPort);
        fixedClient.set_keep_alive(true);
        fixedClient.set_tcp_nodelay(true);
        try {
            direct.connect();
        } catch (const GDSClientError&) {
        }
        // The three alternate request by request, so that a load that comes
        // and goes on the machine weighs on all of them alike.
        std::vector<double> door, data, lib;
        const std::function<bool()> calls[3] = {[&] {
                                                    auto x = http.Get("/data?get=hostname,sshPort", session);
                                                    return x && x->status == 200;
                                                },
                                                [&] {
                                                    try {
                                                        direct.request(getTwo);
                                                        return true;
                                                    } catch (const GDSClientError&) {
                                                        return false;
                                                    }
                                                },
                                                [&] {
                                                    auto x = fixedClient.Get("/fixed");
                                                    return x && x->status == 200;
                                                }};
        std::vector<double>* sinks[3] = {&door, &data, &lib};
        bool failed = false;
        const Clock::time_point until =
            Clock::now() + std::chrono::microseconds(static_cast<long long>(rounds * seconds * 1e6));
        while (!failed && Clock::now() < until) {
            for (int i = 0; i < 3; ++i) {
                Clock::time_point t0 = Clock::now();
                failed = failed || !calls[i]();
                sinks[i]->push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
            }
        }
        if (failed) {
            door.clear();
        }
        double d = median(door), g = median(data), l = median(lib);
        printf("  %-56s %10.1f us\n", "GET /data (get of two) through gdsweb, kept, p50", d);
        printf("  %-56s %10.1f us\n", "the same get straight to port 8197, kept, p50", g);
        printf("  %-56s %10.1f us\n", "the HTTP library, fixed body of the same size, kept, p50", l);
        double ratio = g + l > 0 ? d / (g + l) : 0;
        bool measured = d > 0 && g > 0 && l > 0;
        printf("  %-56s %10.2f  %s\n", "through gdsweb / (straight + fixed body) <= 1.3", ratio,
               !measured      ? "not measured"
               : ratio <= 1.3 ? "holds"
                              : "MISSED");
    }
    fixed.stop();
    fixedThread.join();
    kill(door, SIGKILL);
    kill(gds, SIGKILL);
    waitpid(door, nullptr, 0);
    waitpid(gds, nullptr, 0);
    fs::remove_all(root, ec);
}
