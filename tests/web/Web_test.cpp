// The web front door end to end: the real gds and gdsweb on a throwaway root,
// driven over HTTP with the same HTTP library's client (and a raw socket for
// the hostile cases).
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "GdsProcess.h"
#include "ProjectBinary.h"
#include "RawWire.h"
#include "ReplyText.h"
#include "TestRoot.h"

namespace {

// A raw loopback connection: sends bytes, reads what comes until the peer
// closes or `waitMs` pass without data.
class Raw {
public:
    explicit Raw(int port) : m_fd(connectTo(port)) {}
    ~Raw()
    {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    bool ok() const { return m_fd >= 0; }
    void send(const std::string& s) { ::send(m_fd, s.data(), s.size(), MSG_NOSIGNAL); }
    // Everything until the peer closes (true) or waitMs of silence (false).
    bool readAll(std::string& out, int waitMs)
    {
        timeval tv{waitMs / 1000, (waitMs % 1000) * 1000};
        setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
        char buf[4096];
        for (;;) {
            ssize_t n = recv(m_fd, buf, sizeof buf, 0);
            if (n == 0) {
                return true;
            }
            if (n < 0) {
                return errno == ECONNRESET;
            }
            out.append(buf, static_cast<size_t>(n));
        }
    }

private:
    int m_fd;
};

std::string repeat(const std::string& s, int n)
{
    std::string out;
    for (int i = 0; i < n; ++i) {
        out += s;
    }
    return out;
}

class Web : public testing::Test {
protected:
    void SetUp() override
    {
        // A stand-in for the scenario tool: records its arguments, knows one scenario.
        root.writeFile("/simctl",
                       "#!/bin/sh\n"
                       "echo \"$@\" >> \"$(dirname \"$0\")/simctl.log\"\n"
                       "case \"$1\" in\n"
                       "  list) echo '[{\"name\":\"fan-fail\",\"description\":\"a fan stops\",\"applied\":false}]' ;;\n"
                       "  apply|clear) [ \"$2\" = fan-fail ] || { echo \"no scenario $2\" >&2; exit 1; } ;;\n"
                       "esac\n");
        chmod(root.path("/simctl").c_str(), 0755);
        ASSERT_TRUE(gds.start()) << gds.output();
        int unused = 0;
        GdsProcess::freePorts(port, unused);
        std::vector<std::string> words = ProjectBinary::argv("gdsweb");
        words.insert(words.end(), {"-p", std::to_string(port), "--data-port", std::to_string(gds.nxtGenPort())});
        pid = fork();
        if (pid == 0) {
            int fd = open(root.path("/gdsweb.out").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
            dup2(fd, 1);
            dup2(fd, 2);
            setenv("GDS_ROOT", root.dir().c_str(), 1);
            setenv("GDSWEB_REQUEST_DEADLINE", "1", 1);
            setenv("GDSWEB_SIMCTL", root.path("/simctl").c_str(), 1);
            std::vector<char*> argv;
            for (std::string& w : words) {
                argv.push_back(&w[0]);
            }
            argv.push_back(nullptr);
            execvp(argv[0], argv.data());
            _exit(127);
        }
        ASSERT_TRUE(waitFor([this] { return Raw(port).ok(); }, 10)) << output();
    }
    void TearDown() override
    {
        if (pid > 0) {
            kill(pid, SIGTERM);
            waitpid(pid, nullptr, 0);
        }
    }
    std::string output() { return root.readFile("/gdsweb.out"); }

    httplib::Client client()
    {
        httplib::Client c("127.0.0.1", port);
        c.set_read_timeout(30 * ProjectBinary::slowdown(), 0);
        return c;
    }
    struct Login {
        int status = 0;
        std::string cookie, csrf, body;
    };
    Login login(const std::string& user, const std::string& password = "password")
    {
        auto r = client().Post("/login", "user=" + user + "&password=" + password, "application/x-www-form-urlencoded");
        Login l;
        if (!r) {
            return l;
        }
        l.status = r->status;
        l.body = r->body;
        std::string set = r->get_header_value("Set-Cookie");
        l.cookie = set.substr(0, set.find(';'));
        size_t at = r->body.find("\"csrfToken\":\"");
        if (at != std::string::npos) {
            l.csrf = r->body.substr(at + 13, 32);
        }
        return l;
    }
    // status and body of a request with a session's cookie (and its CSRF token when `csrf`).
    std::pair<int, std::string> ask(const char* method, const std::string& path, const Login& who, bool csrf = true,
                                    const std::string& body = "")
    {
        httplib::Headers h = {{"Cookie", who.cookie}};
        if (csrf) {
            h.emplace("X-CSRF-Token", who.csrf);
        }
        auto c = client();
        auto r = std::string(method) == "GET" ? c.Get(path, h) : c.Post(path, h, body, "text/plain");
        return r ? std::make_pair(r->status, r->body) : std::make_pair(-1, std::string());
    }
    // A fresh GET / answers: the front door still serves.
    void stillServes(const std::string& after)
    {
        auto r = client().Get("/");
        ASSERT_TRUE(r) << "after " << after << "\n" << output();
        EXPECT_EQ(200, r->status) << "after " << after;
    }

    TestRoot root{true};
    GdsProcess gds{root};
    int port = 0;
    pid_t pid = -1;
};

TEST_F(Web, SessionsRolesAndCsrf)
{
    EXPECT_EQ(401, ask("GET", "/data?get=sshPort", Login{}).first);
    EXPECT_EQ(401, login("admin", "Wrong-Zq9").status);
    Login admin = login("admin"), reader = login("readonly");
    ASSERT_EQ(200, admin.status) << output();
    ASSERT_EQ(32u, admin.csrf.size()) << admin.body;
    EXPECT_NE(std::string::npos, admin.body.find("\"role\":\"admin\""));
    auto json = client().Post("/login", R"({"user":"operator","password":"password"})", "application/json");
    ASSERT_TRUE(json);
    EXPECT_EQ(200, json->status);
    std::string cookie = json->get_header_value("Set-Cookie");
    EXPECT_NE(std::string::npos, cookie.find("HttpOnly")) << cookie;
    EXPECT_NE(std::string::npos, cookie.find("SameSite=Strict")) << cookie;
    EXPECT_EQ(32u + 15u, cookie.find(';')) << cookie;  // gdsweb_session= and 128 bits in hex

    struct Row {
        const char* method;
        std::string path;
        const Login* who;
        bool csrf;
        std::string body;
        int status;
        std::string replyHas;
    };
    const Row rows[] = {
        {"POST", "/data", &admin, false, "set=sshPort:2222", 403, "X-CSRF-Token"},
        {"POST", "/data", &reader, true, "set=sshPort:2222", 200, "<errorMsg>Insufficient privileges.</errorMsg>"},
        {"GET", "/data?get=sshPort", &reader, false, "", 200, "<sshPort>22</sshPort>"},
        {"POST", "/data", &admin, true, "set=sshPort:2222", 200, "<status>ok</status>"},
        {"GET", "/data?get%3DsshPort", &reader, false, "", 200, "<sshPort>2222</sshPort>"},
        {"GET", "/data?set=sshPort:23", &admin, false, "", 400, "only reads"},
        {"GET", "/data?get=a,set=sshPort:23", &admin, false, "", 400, "only reads"},
        {"GET", "/data?get=%zz", &admin, false, "", 400, "percent-encoding"},
        {"GET", "/names", &reader, false, "", 200, "\"sshPort\""},
    };
    for (const Row& r : rows) {
        auto [status, body] = ask(r.method, r.path, *r.who, r.csrf, r.body);
        EXPECT_EQ(r.status, status) << r.method << " " << r.path << " " << r.body << "\n" << body;
        EXPECT_NE(std::string::npos, body.find(r.replyHas)) << r.method << " " << r.path << " " << r.body << "\n"
                                                            << body;
    }
    auto out = client().Post("/logout", {{"Cookie", admin.cookie}}, "", "text/plain");
    ASSERT_TRUE(out);
    EXPECT_EQ(401, ask("GET", "/data?get=sshPort", admin).first);
    EXPECT_EQ(200, ask("GET", "/data?get=sshPort", reader).first);
    EXPECT_EQ(std::string::npos, output().find("Wrong-Zq9"));
    EXPECT_EQ(std::string::npos, gds.output().find("Wrong-Zq9"));
}

TEST_F(Web, LaunchDocumentsAndRefusals)
{
    Login admin = login("admin"), reader = login("readonly");
    auto c = client();
    auto doc = c.Get("/viewer.jnlp", {{"Cookie", admin.cookie}, {"Host", "192.0.2.7:8443"}});
    ASSERT_TRUE(doc);
    EXPECT_EQ(200, doc->status) << doc->body;
    EXPECT_EQ("application/x-java-jnlp-file", doc->get_header_value("Content-Type"));
    EXPECT_NE(std::string::npos, doc->get_header_value("Content-Disposition").find("viewer.jnlp"));
    EXPECT_NE(std::string::npos, doc->body.find("<jnlp codebase=\"https://192.0.2.7:443/*\""));
    EXPECT_NE(std::string::npos, doc->body.find("<argument>ip=192.0.2.7</argument>"));
    auto v6 = c.Get("/bootCapture.jnlp", {{"Cookie", admin.cookie}, {"Host", "[fd00::7]:8080"}});
    ASSERT_TRUE(v6);
    EXPECT_NE(std::string::npos, v6->body.find("<argument>dvcurl=http://[fd00::7]:8080/bootcaptures/")) << v6->body;
    EXPECT_EQ(403, ask("GET", "/viewer.jnlp", reader).first);
    root.writeFile("/var/aim/props/vkvm_bool_enabled", "bool\n0\n");
    EXPECT_EQ(404, ask("GET", "/viewer.jnlp", admin).first);
}

TEST_F(Web, SlowsDownGuessingAndExpiresSessions)
{
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(401, login("operator", "guess").status);
    }
    EXPECT_EQ(429, login("operator").status);
    EXPECT_EQ(200, login("admin").status);

    root.writeFile("/var/aim/props/gui_int_session_timeout", "int\n1\n");
    Login admin = login("admin");
    EXPECT_EQ(200, ask("GET", "/data?get=sshPort", admin).first);
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    EXPECT_EQ(401, ask("GET", "/data?get=sshPort", admin).first);
}

TEST_F(Web, Scenarios)
{
    Login admin = login("admin"), oper = login("operator");
    struct Row {
        const char* method;
        const char* path;
        const Login* who;
        bool csrf;
        int status;
    };
    const Row rows[] = {
        {"GET", "/sim/scenarios", &oper, false, 200},
        {"POST", "/sim/scenarios/fan-fail/apply", &oper, true, 403},
        {"POST", "/sim/scenarios/fan-fail/apply", &admin, false, 403},
        {"POST", "/sim/scenarios/fan;rm/apply", &admin, true, 400},
        {"POST", "/sim/scenarios/nope/apply", &admin, true, 400},
        {"POST", "/sim/scenarios/fan-fail/apply", &admin, true, 200},
        {"POST", "/sim/scenarios/fan-fail/clear", &admin, true, 200},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(r.status, ask(r.method, r.path, *r.who, r.csrf).first) << r.method << " " << r.path;
    }
    EXPECT_EQ("list --json\napply nope\napply fan-fail\nclear fan-fail\n", root.readFile("/simctl.log"));
    unlink(root.path("/simctl").c_str());
    EXPECT_EQ(503, ask("GET", "/sim/scenarios", oper).first);
}

TEST_F(Web, HostileRequestsAreAnsweredNotObeyed)
{
    Login admin = login("admin");
    const std::string big(9000, 'a');
    struct Row {
        const char* what;
        std::string request;
        std::string answer;  // the status line's beginning; "" : closed without an answer
    };
    const Row rows[] = {
        {"long request line", "GET /" + big + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n", "HTTP/1.1 414"},
        {"long headers", "GET / HTTP/1.1\r\nHost: x\r\nConnection: close\r\nX-A: " + big + "\r\n\r\n", "HTTP/1.1 431"},
        {"many headers", "GET / HTTP/1.1\r\n" + repeat("X-B: 1234567890\r\n", 1000) + "\r\n", "HTTP/1.1 431"},
        {"big body",
         "POST /data HTTP/1.1\r\nHost: x\r\nConnection: close\r\nContent-Length: 100000\r\n\r\n" +
             std::string(100000, 'g'),
         "HTTP/1.1 413"},
        {"bad percent-encoding",
         "GET /data?get=%4 HTTP/1.1\r\nHost: x\r\nConnection: close\r\nCookie: " + admin.cookie + "\r\n\r\n",
         "HTTP/1.1 400"},
        {"method not taken", "DELETE /data HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n", "HTTP/1.1 405"},
        {"unknown method", "BREW /data HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n", "HTTP/1.1 400"},
        {"text without a session", "GET /data?get=sshPort HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n",
         "HTTP/1.1 401"},
        {"login from a foreign host name",
         "POST /login HTTP/1.1\r\nHost: rebound.example:8080\r\nConnection: close\r\n"
         "Content-Length: 32\r\n\r\nuser=admin&password=password&x=y",
         "HTTP/1.1 403"},
        {"half a request", "GET /data?get=sshPort HTTP/1.1\r\nHost: x\r\nConnection: close\r\n", ""},
        {"half a body", "POST /login HTTP/1.1\r\nHost: x\r\nConnection: close\r\nContent-Length: 50\r\n\r\nuser=admin",
         ""},
    };
    for (const Row& r : rows) {
        Raw raw(port);
        raw.send(r.request);
        std::string got;
        EXPECT_TRUE(raw.readAll(got, 10000 * ProjectBinary::slowdown())) << r.what << ": not closed\n" << got;
        EXPECT_EQ(0u, got.find(r.answer)) << r.what << "\n" << got.substr(0, 300);
        stillServes(r.what);
    }

    // A client that stops reading: pipelined requests whose answers it never reads.
    {
        Raw raw(port);
        raw.send(repeat("GET /explorer.js HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n", 2000));
        std::this_thread::sleep_for(std::chrono::milliseconds(3000));
        std::string got;
        EXPECT_TRUE(raw.readAll(got, 10000 * ProjectBinary::slowdown())) << "a client that stops reading: not dropped";
        EXPECT_LT(occurrences(got, "HTTP/1.1 200"), 2000u) << "every answer was written";
        stillServes("a client that stops reading");
    }
    // Idle keep-alive connections never lock a new client out.
    std::vector<std::unique_ptr<Raw>> idle;
    for (int i = 0; i < 64; ++i) {
        idle.push_back(std::make_unique<Raw>(port));
        idle.back()->send("GET /explorer.css HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    }
    EXPECT_EQ(200, login("operator").status);
    stillServes("64 idle connections");
    EXPECT_EQ(std::string::npos, output().find("password=")) << output();
}

}  // namespace
