#include "GdsProcess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "GDSClient.h"
#include "ProjectBinary.h"
#include "RawWire.h"
#include "TestRoot.h"
#include "XmlCheck.h"

GdsProcess::GdsProcess(TestRoot& root) : m_root(root) {}

GdsProcess::~GdsProcess()
{
    stop();
}

void GdsProcess::freePorts(int& a, int& b)
{
    int s1 = listenOnLoopback(a);
    int s2 = listenOnLoopback(b);
    close(s1);
    close(s2);
}

std::string GdsProcess::configPath() const
{
    return m_root.path("/etc/dataserver.conf");
}

std::string GdsProcess::output() const
{
    return m_root.readFile("/gds.out");
}

pid_t GdsProcess::spawn(const std::vector<std::string>& args)
{
    // Through the emulator when the build is for another architecture.
    std::vector<std::string> words = ProjectBinary::argv("gds");
    std::string out = m_root.path("/gds.out");
    std::vector<std::string> env = m_env;
    env.push_back("GDS_ROOT=" + m_root.dir());
    pid_t pid = fork();
    if (pid == 0) {
        int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        if (fd >= 0) {
            dup2(fd, 1);
            dup2(fd, 2);
            close(fd);
        }
        if (chdir(m_root.dir().c_str()) != 0) {
            _exit(126);
        }
        for (const std::string& e : env) {
            putenv(strdup(e.c_str()));
        }
        std::vector<char*> argv;
        for (const std::string& w : words) {
            argv.push_back(const_cast<char*>(w.c_str()));
        }
        for (const std::string& a : args) {
            argv.push_back(const_cast<char*>(a.c_str()));
        }
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

bool GdsProcess::waitForPort(int port, int timeoutMs)
{
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < deadline) {
        if (!isRunning()) {
            return false;
        }
        int s = connectTo(port);
        if (s >= 0) {
            close(s);
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

bool GdsProcess::start()
{
    if (!m_hasConfig) {
        std::ifstream in(std::string(TestRoot::simRoot()) + "/../dataserver.conf.in");
        std::stringstream ss;
        ss << in.rdbuf();
        m_config = ss.str();
    }
    std::string conf = m_config;
    for (size_t at; (at = conf.find("@GDS_LIB_DIR@")) != std::string::npos;) {
        conf.replace(at, 13, TestRoot::libDir());
    }
    m_root.writeFile("/etc/dataserver.conf", conf);
    for (int attempt = 0; attempt < 5; ++attempt) {
        freePorts(m_legacyPort, m_nxtGenPort);
        std::vector<std::string> args = {"-configfile", configPath(), "-port", std::to_string(m_legacyPort)};
        m_env.push_back("GDS_NXTGEN_PORT=" + std::to_string(m_nxtGenPort));
        m_pid = spawn(args);
        m_env.pop_back();
        int slow = ProjectBinary::slowdown();
        if (waitForPort(m_legacyPort, 20000 * slow) && waitForPort(m_nxtGenPort, 5000 * slow)) {
            return true;
        }
        stop();
    }
    return false;
}

int GdsProcess::runToExit(const std::vector<std::string>& args, int timeoutMs)
{
    pid_t pid = spawn(args);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs) * ProjectBinary::slowdown();
    while (std::chrono::steady_clock::now() < deadline) {
        int status = 0;
        pid_t r = waitpid(pid, &status, WNOHANG);
        if (r == pid) {
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return -1;
}

GDSClient::Options GdsProcess::options(bool nxtGen, uint32_t privileges) const
{
    GDSClient::Options o;
    o.layout = nxtGen ? GDSClient::Layout::kNxtGen : GDSClient::Layout::kLegacy;
    o.port = nxtGen ? m_nxtGenPort : m_legacyPort;
    o.privileges = privileges;
    o.connectTimeoutMs = 3000 * ProjectBinary::slowdown();  // sanitizers and the emulator are slower
    o.replyTimeoutMs = 10000 * ProjectBinary::slowdown();
    return o;
}

std::string GdsProcess::ask(const std::string& text, uint32_t privileges)
{
    GDSClient::Options o = options(false, privileges);
    o.replyTimeoutMs = 30000 * ProjectBinary::slowdown();  // tools run on a busy machine
    GDSClient client(o);
    client.connect();
    std::string reply = client.request(text).text;
    if (reply.compare(0, 6, "<root>") == 0) {
        EXPECT_TRUE(isWellFormedXml(reply)) << text.substr(0, 200) << "\n" << reply;
    }
    return reply;
}

bool GdsProcess::isRunning()
{
    if (m_pid <= 0) {
        return false;
    }
    int status = 0;
    pid_t r = waitpid(m_pid, &status, WNOHANG);
    if (r == m_pid) {
        m_pid = -1;
        return false;
    }
    return true;
}

void GdsProcess::stop()
{
    if (m_pid <= 0) {
        return;
    }
    // SIGTERM first: the coverage build's server writes its counters then
    // (under a file lock that other ending processes may hold).
    kill(m_pid, SIGTERM);
    for (int i = 0; i < 500 * ProjectBinary::slowdown(); ++i) {
        if (waitpid(m_pid, nullptr, WNOHANG) == m_pid) {
            m_pid = -1;
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
    m_pid = -1;
}
