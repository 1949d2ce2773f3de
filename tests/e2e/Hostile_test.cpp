// The real server against hostile local clients: stalled frames, peers that
// never read (which idle connection makes room at the cap is the connection
// manager's unit tests', forged and flooding log lines the log's). Deadlines are shortened through the
// environment; waits are bounded retries, never timing assertions.
#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "GDSClient.h"
#include "GdsProcess.h"
#include "ProjectBinary.h"
#include "RawWire.h"
#include "TestRoot.h"

namespace {

int threadCount(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("Threads:", 0) == 0) {
            return std::stoi(line.substr(8));
        }
    }
    return -1;
}

int descriptorCount(pid_t pid)
{
    DIR* d = opendir(("/proc/" + std::to_string(pid) + "/fd").c_str());
    if (d == nullptr) {
        return -1;
    }
    int n = 0;
    while (dirent* e = readdir(d)) {
        n += e->d_name[0] != '.';
    }
    closedir(d);
    return n;
}

class Hostile : public testing::Test {
protected:
    void start()
    {
        gds.setConfig("addHandler=test\n[test]\nlibFile=" + TestRoot::libDir() +
                      "/libtesthandler.so\nentryPoint=testhandler_init\n");
        gds.setEnv("GDS_FRAME_DEADLINE", "2");
        ASSERT_TRUE(gds.start()) << gds.output();
    }

    std::string ask(const std::string& text, bool nxtGen = false)
    {
        GDSClient client(gds.options(nxtGen));
        client.connect();
        return client.request(text).text;
    }

    // Threads and descriptors of the server once it has settled after a
    // request on each port (the gatherer thread is running by then).
    void baseline(int& threads, int& fds)
    {
        ask("get=");
        ask("get=", true);
        // Settled: the same counts twice, 300 ms apart (the threads of the
        // two requests above end shortly after their replies).
        threads = -1;
        for (int i = 0; i < 20; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            int t = threadCount(gds.pid());
            int f = descriptorCount(gds.pid());
            if (t == threads && f == fds) {
                break;
            }
            threads = t;
            fds = f;
        }
    }

    TestRoot root{true};
    GdsProcess gds{root};
};

TEST_F(Hostile, StalledHalfFramesAreClosedAtTheDeadline)
{
    gds.setEnv("GDS_MAX_CONNECTIONS", "400");
    start();
    int threads = 0, fds = 0;
    baseline(threads, fds);
    std::vector<int> clients;
    for (int i = 0; i < 300; ++i) {
        bool nxtGen = i % 2 == 1;
        int fd = connectTo(nxtGen ? gds.nxtGenPort() : gds.legacyPort());
        ASSERT_GE(fd, 0) << i;
        // A legacy header declaring the longest text, or part of a JSON text.
        std::string half = nxtGen ? be32(100) + "{\"Magic\":\"BE" : be32(8096) + be32(0) + "BEEFpart";
        ASSERT_EQ(static_cast<ssize_t>(half.size()), send(fd, half.data(), half.size(), 0));
        clients.push_back(fd);
    }
    EXPECT_TRUE(waitFor([&] { return threadCount(gds.pid()) > threads + 100; }, 10));
    // Deadline 2 s, plus a generous margin for a loaded machine.
    EXPECT_TRUE(waitFor([&] { return threadCount(gds.pid()) <= threads && descriptorCount(gds.pid()) <= fds; }, 20))
        << threadCount(gds.pid()) << " threads, " << descriptorCount(gds.pid()) << " descriptors";
    int open = 0;
    for (int fd : clients) {
        open += !closedByServer(fd);
        close(fd);
    }
    EXPECT_EQ(0, open);
    EXPECT_NE(std::string::npos, gds.output().find("not complete within 2 s, closing the connection"));
    EXPECT_EQ("<root><status>ok</status>\n</root>\n", ask("get="));
}

TEST_F(Hostile, PeerThatNeverReadsIsClosed)
{
    start();
    int threads = 0, fds = 0;
    baseline(threads, fds);
    int fd = connectTo(gds.legacyPort());
    ASSERT_GE(fd, 0);
    int small = 4096;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    fcntl(fd, F_SETFL, O_NONBLOCK);
    // Requests whose replies pile up unread until the server's writes stall.
    std::string text = "get=testEcho(" + std::string(7000, 'z') + ")";
    std::string frame = legacyFrame(text, 0);
    // Send as fast as the server reads until it gives up on the connection
    // (its reply writes stall, it closes, and sending fails). How much it
    // takes depends on the kernel's autotuned socket buffers, so the bound
    // is time, not a number of sends.
    size_t sent = 0;
    bool closed = false;
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(90 * ProjectBinary::slowdown());
    while (!closed && std::chrono::steady_clock::now() < end) {
        pollfd p{fd, POLLOUT, 0};
        if (poll(&p, 1, 500) == 0) {
            // Nothing moves: the server may have closed with our bytes
            // still queued on this side; its log says so, the socket too.
            if (gds.output().find("could not be written") != std::string::npos) {
                // Read what is queued here up to the end of the stream.
                char sink[65536];
                auto drained = std::chrono::steady_clock::now() + std::chrono::seconds(5 * ProjectBinary::slowdown());
                while (!closed && std::chrono::steady_clock::now() < drained) {
                    pollfd in{fd, POLLIN, 0};
                    if (poll(&in, 1, 500) > 0) {
                        ssize_t r = recv(fd, sink, sizeof sink, MSG_DONTWAIT);
                        closed = r == 0 || (r < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
                    }
                }
                break;
            }
            continue;
        }
        ssize_t n = send(fd, frame.data() + sent % frame.size(), frame.size() - sent % frame.size(), MSG_NOSIGNAL);
        if (n > 0) {
            sent += static_cast<size_t>(n);
        } else if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
            closed = true;
        }
    }
    EXPECT_TRUE(closed) << "the server did not close a connection whose peer reads nothing";
    EXPECT_TRUE(waitFor([&] { return threadCount(gds.pid()) <= threads; }, 20)) << threadCount(gds.pid());
    EXPECT_NE(std::string::npos, gds.output().find("could not be written")) << gds.output().substr(0, 2000);
    close(fd);
    EXPECT_EQ("<root><status>ok</status>\n</root>\n", ask("get="));
}

}  // namespace
