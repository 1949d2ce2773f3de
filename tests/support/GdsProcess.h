// GdsProcess: runs the real build/bin/gds on a TestRoot for end-to-end tests:
// free loopback ports, its own configuration file, output captured in files
// of the root. Started through ProjectBinary (the emulator of a cross
// build). One per test, used from the test's main thread. stop() (or
// the destructor) ends the server (SIGTERM, SIGKILL after a grace period)
// and reaps it.
#pragma once

#include <sys/types.h>
#include <cstdint>
#include <string>
#include <vector>

#include "GDSClient.h"

class TestRoot;

class GdsProcess {
public:
    explicit GdsProcess(TestRoot& root);
    ~GdsProcess();
    GdsProcess(const GdsProcess&) = delete;
    GdsProcess& operator=(const GdsProcess&) = delete;

    // The configuration file's text ("" writes an empty file; the default is
    // the simulated controller's template).
    void setConfig(const std::string& text)
    {
        m_config = text;
        m_hasConfig = true;
    }
    void setEnv(const std::string& name, const std::string& value) { m_env.push_back(name + "=" + value); }

    // Starts the server and waits until both ports accept connections.
    // Retries with other ports when one was taken meanwhile. False (with the
    // server's output in output()) when it did not come up.
    bool start();
    // Runs the server with exactly `args` (no port or config options added)
    // and waits for it to exit; returns the exit status, or -1 after
    // `timeoutMs` times ProjectBinary::slowdown() (the process is then
    // killed).
    int runToExit(const std::vector<std::string>& args, int timeoutMs = 10000);
    void stop();
    bool isRunning();

    // The started process (the emulator's process under an emulator); -1
    // when none runs.
    pid_t pid() const { return m_pid; }
    int legacyPort() const { return m_legacyPort; }
    int nxtGenPort() const { return m_nxtGenPort; }
    std::string output() const;  // what the server printed (stdout and stderr)
    // One request on a fresh legacy-port connection with `privileges`; the
    // reply text. A reply in the envelope must be a well-formed document
    // (a test failure otherwise). Waits long: tools run on a busy machine.
    std::string ask(const std::string& text, uint32_t privileges = 0x7f);
    // Client options for one of its ports, with generous waits.
    GDSClient::Options options(bool nxtGen = false, uint32_t privileges = 0x7f) const;
    std::string configPath() const;

    // Two currently free loopback ports.
    static void freePorts(int& a, int& b);

private:
    pid_t spawn(const std::vector<std::string>& args);
    bool waitForPort(int port, int timeoutMs);

    TestRoot& m_root;
    std::string m_config;
    bool m_hasConfig = false;
    std::vector<std::string> m_env;
    pid_t m_pid = -1;
    int m_legacyPort = 0;
    int m_nxtGenPort = 0;
};
