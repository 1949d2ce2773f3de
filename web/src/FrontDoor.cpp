#include "FrontDoor.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <vector>

#include "ConnectionQueue.h"
#include "DeadlineStream.h"
#include "HttpText.h"

namespace {

using httplib::Request;
using httplib::Response;

std::string json(const std::string& text)
{
    return GDSClient::jsonString(text);
}

void answerError(Response& res, int status, const std::string& message)
{
    res.status = status;
    res.set_content("{\"error\":" + json(message) + "}\n", "application/json");
}

// Paths of the front door's own requests and the methods each takes;
// everything else is a file of the page (GET and HEAD).
struct Route {
    const char* path;
    const char* allow;
    bool prefix;
};
const Route kRoutes[] = {
    {"/login", "POST", false},
    {"/logout", "POST", false},
    {"/session", "GET, HEAD", false},
    {"/data", "GET, HEAD, POST", false},
    {"/names", "GET, HEAD", false},
    {"/viewer.jnlp", "GET, HEAD", false},
    {"/bootCapture.jnlp", "GET, HEAD", false},
    {"/crashCapture.jnlp", "GET, HEAD", false},
    {"/sim/scenarios", "GET, HEAD", false},
    {"/sim/scenarios/", "POST", true},
};

const Route* routeOf(const std::string& path)
{
    for (const Route& r : kRoutes) {
        if (r.prefix ? path.compare(0, strlen(r.path), r.path) == 0 : path == r.path) {
            return &r;
        }
    }
    return nullptr;
}

bool allows(const char* allow, const std::string& method)
{
    std::string list = std::string(", ") + allow + ",";
    return list.find(", " + method + ",") != std::string::npos;
}

// Printable text for a log line (request paths are outside input).
std::string printable(const std::string& s)
{
    std::string out;
    for (char c : s.substr(0, 200)) {
        out.push_back(c >= 0x20 && c < 0x7f ? c : '?');
    }
    return out;
}

const char* reasonOf(int status)
{
    switch (status) {
        case 400:
            return "Bad Request";
        case 404:
            return "Not Found";
        case 413:
            return "Payload Too Large";
        case 414:
            return "URI Too Long";
        case 416:
            return "Range Not Satisfiable";
        default:
            return "Error";
    }
}

}  // namespace

FrontDoor::FrontDoor(const Config& config)
    : m_config(config),
      m_table(config.maxConnections),
      m_users(config.usersFile),
      m_link(config.dataPort),
      m_scenarios(config.simctl)
{
    new_task_queue = [this] { return new ConnectionQueue(m_table); };
    set_payload_max_length(kBodyLimit);
    // Only what the Keep-Alive answer header says; the keep-alive loop is ours.
    set_keep_alive_timeout(
        static_cast<time_t>(std::chrono::duration_cast<std::chrono::seconds>(m_config.keepAlive).count()));
    set_keep_alive_max_count(kRequestsPerConnection);
    set_tcp_nodelay(true);
    httplib::Headers pageHeaders = {{"Cache-Control", "no-cache"}};
    if (m_config.ownUi) {
        pageHeaders.emplace("Content-Security-Policy", "default-src 'self'; frame-ancestors 'none'");
    }
    set_mount_point("/", m_config.uiDir, pageHeaders);
    if (!m_config.explorerDir.empty()) {
        set_mount_point(
            "/gdsweb/", m_config.explorerDir,
            {{"Cache-Control", "no-cache"}, {"Content-Security-Policy", "default-src 'self'; frame-ancestors 'none'"}});
    }
    set_default_headers({{"X-Content-Type-Options", "nosniff"}, {"X-Frame-Options", "DENY"}});
    set_logger([](const Request& req, const Response& res) {
        // The path only: never a query, a body or a header (a login carries a password).
        printf("gdsweb: %s %s %d\n", printable(req.method).c_str(), printable(req.path).c_str(), res.status);
        fflush(stdout);
    });
    set_error_handler(HandlerWithResponse([](const Request&, Response& res) {
        if (!res.body.empty()) {
            return HandlerResponse::Unhandled;
        }
        res.set_content(std::to_string(res.status) + " " + reasonOf(res.status) + "\n", "text/plain");
        return HandlerResponse::Handled;
    }));
    set_exception_handler([](const Request&, Response& res, std::exception_ptr) {
        answerError(res, 500, "internal error of the front door");
    });
    routes();
}

void FrontDoor::routes()
{
    set_pre_routing_handler([this](const Request& req, Response& res) {
        const Route* route = routeOf(req.path);
        const char* allow = route != nullptr ? route->allow : "GET, HEAD";
        if (!allows(allow, req.method)) {
            res.set_header("Allow", allow);
            answerError(res, 405, req.method + " is not taken here; allowed: " + allow);
            return HandlerResponse::Handled;
        }
        if (route == nullptr || (req.method != "GET" && req.method != "HEAD")) {
            return HandlerResponse::Unhandled;  // a file of the page, or a POST below
        }
        // GET requests of the front door are answered here, before the page's
        // files, so that no file of a --ui folder can hide them.
        res.set_header("Cache-Control", "no-store");
        const std::string& p = req.path;
        if (p == "/session") {
            if (auto s = sessionOf(req, res)) {
                res.set_content("{\"user\":" + json(s->user) + ",\"role\":" + json(s->role->name) +
                                    ",\"csrfToken\":" + json(s->csrfToken) + "}\n",
                                "application/json");
            }
        } else if (p == "/data") {
            data(req, res, false);
        } else if (p == "/names") {
            names(req, res);
        } else if (p == "/sim/scenarios") {
            scenarios(req, res);
        } else {
            launch(p.substr(1), req, res);
        }
        return HandlerResponse::Handled;
    });
    Post("/login", [this](const Request& req, Response& res) { login(req, res); });
    Post("/logout", [this](const Request& req, Response& res) { logout(req, res); });
    Post("/data", [this](const Request& req, Response& res) { data(req, res, true); });
    Post(R"(/sim/scenarios/.*)", [this](const Request& req, Response& res) { scenarioAction(req, res); });
}

bool FrontDoor::process_and_close_socket(socket_t sock)
{
    ConnectionTable::Slot* slot = ConnectionQueue::refusing() ? nullptr : m_table.add(sock);
    bool ret = false;
    if (slot == nullptr) {
        DeadlineStream refuse(sock, std::chrono::milliseconds(1000));
        refuse.writeAndClose(503, "Service Unavailable", "every connection of the front door is busy\n");
    } else {
        DeadlineStream strm(sock, m_config.requestDeadline);
        for (size_t n = 1; n <= kRequestsPerConnection && is_running(); ++n) {
            if (!strm.waitForRequest(m_config.keepAlive)) {
                break;
            }
            m_table.setIdle(slot, false);
            DeadlineStream::Head head = strm.readHead(kRequestLineLimit, kHeaderLimit);
            if (head == DeadlineStream::Head::kLineTooLong) {
                strm.writeAndClose(414, "URI Too Long", "the request line is longer than 8192 bytes\n");
                break;
            }
            if (head == DeadlineStream::Head::kHeadersTooLong) {
                strm.writeAndClose(431, "Request Header Fields Too Large", "the headers are longer than 8192 bytes\n");
                break;
            }
            if (head == DeadlineStream::Head::kFailed) {
                break;  // closed, or the request was not complete within the deadline
            }
            bool closed = false;
            ret = process_request(strm, n == kRequestsPerConnection, closed, nullptr);
            if (!ret || closed || strm.readFailed()) {
                break;
            }
            m_table.setIdle(slot, true);
        }
        m_table.remove(slot);
    }
    shutdown(sock, SHUT_RDWR);
    close(sock);
    return ret;
}

std::shared_ptr<Session> FrontDoor::sessionOf(const Request& req, Response& res)
{
    std::string cookie = HttpText::cookieValue(req.get_header_value("Cookie"), kCookie);
    std::shared_ptr<Session> s;
    if (!cookie.empty()) {
        s = m_sessions.find(cookie, m_link.sessionTimeoutSeconds());
    }
    if (!s) {
        answerError(res, 401, "no session: log in first (POST /login)");
    }
    return s;
}

bool FrontDoor::csrfHolds(const Session& s, const Request& req, Response& res)
{
    if (!HttpText::sameSecret(req.get_header_value("X-CSRF-Token"), s.csrfToken)) {
        answerError(res, 403, "missing or wrong X-CSRF-Token header");
        return false;
    }
    return true;
}

bool FrontDoor::forward(Session& s, const std::string& text, DataServerLink::Answer& answer, Response& res)
{
    try {
        answer = m_link.ask(s, text);
        return true;
    } catch (const GDSClientError& e) {
        if (e.kind() == GDSClientError::kRequest) {
            answerError(res, 413, "the request text is too long for the data server");
        } else {
            answerError(res, 502, std::string("the data server did not answer: ") + e.what());
        }
        return false;
    }
}

void FrontDoor::login(const Request& req, Response& res)
{
    res.set_header("Cache-Control", "no-store");
    // A page of another site whose name was made to resolve to 127.0.0.1
    // (DNS rebinding) would be same-origin with the front door and could
    // log in with the sample users; its requests carry its own host name.
    if (m_config.loopbackOnly && !HttpText::loopbackHost(req.get_header_value("Host"))) {
        answerError(res, 403, "log in through 127.0.0.1 or localhost");
        return;
    }
    std::string user, password;
    if (!HttpText::parseLogin(req.get_header_value("Content-Type"), req.body, user, password)) {
        answerError(res, 400, "send the fields user and password (form fields or JSON)");
        return;
    }
    Users::Account account;
    int retryAfter = 0;
    switch (m_users.check(user, password, account, retryAfter)) {
        case Users::Outcome::kSlowDown:
            res.set_header("Retry-After", std::to_string(retryAfter));
            answerError(res, 429,
                        "too many failed logins for this user: retry in " + std::to_string(retryAfter) + " s");
            return;
        case Users::Outcome::kWrong:
            answerError(res, 401, "wrong user or password");
            return;
        case Users::Outcome::kOk:
            break;
    }
    std::string old = HttpText::cookieValue(req.get_header_value("Cookie"), kCookie);
    if (!old.empty()) {
        m_sessions.end(old);
    }
    std::shared_ptr<Session> s = m_sessions.create(account);
    res.set_header("Set-Cookie", std::string(kCookie) + "=" + s->cookie + "; Path=/; HttpOnly; SameSite=Strict");
    res.set_content("{\"user\":" + json(s->user) + ",\"role\":" + json(s->role->name) +
                        ",\"csrfToken\":" + json(s->csrfToken) + "}\n",
                    "application/json");
}

void FrontDoor::logout(const Request& req, Response& res)
{
    std::string cookie = HttpText::cookieValue(req.get_header_value("Cookie"), kCookie);
    if (!cookie.empty()) {
        m_sessions.end(cookie);
    }
    res.set_header("Set-Cookie", std::string(kCookie) + "=; Path=/; HttpOnly; SameSite=Strict; Max-Age=0");
    res.set_content("{}\n", "application/json");
}

void FrontDoor::data(const Request& req, Response& res, bool post)
{
    if (post) {
        res.set_header("Cache-Control", "no-store");
    }
    std::shared_ptr<Session> s = sessionOf(req, res);
    if (!s) {
        return;
    }
    std::string text;
    if (post) {
        if (!csrfHolds(*s, req, res)) {
            return;
        }
        text = req.body;
        if (text.find('\0') != std::string::npos) {
            answerError(res, 400, "the request text holds a NUL byte");
            return;
        }
    } else {
        if (!HttpText::percentDecode(HttpText::rawQuery(req.target), text, false)) {
            answerError(res, 400, "bad percent-encoding in the request text");
            return;
        }
        if (!HttpText::readsOnly(text)) {
            answerError(res, 400, "GET /data only reads (get= or a launch document); send set= with POST");
            return;
        }
    }
    if (text.empty()) {
        answerError(res, 400, "no request text");
        return;
    }
    DataServerLink::Answer answer;
    if (forward(*s, text, answer, res)) {
        res.set_content(answer.text, "application/xml");
    }
}

void FrontDoor::launch(const std::string& document, const Request& req, Response& res)
{
    std::shared_ptr<Session> s = sessionOf(req, res);
    if (!s) {
        return;
    }
    HttpText::Reached reached = HttpText::reachedFrom(req.get_header_value("Host"), req.local_addr, req.local_port);
    std::string cache = std::to_string(
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count());
    std::string text = HttpText::launchText(document, reached, cache, s->number, s->role->userPrivilege, s->reference);
    DataServerLink::Answer answer;
    if (!forward(*s, text, answer, res)) {
        return;
    }
    if (answer.silent) {
        answerError(res, 403, "the data server sent nothing: this session has no KVM console right");
    } else if (answer.text.empty()) {
        answerError(res, 404, "the data server has no " + document + " (an empty reply)");
    } else {
        res.set_header("Content-Disposition", "attachment; filename=\"" + document + "\"");
        res.set_content(answer.text, "application/x-java-jnlp-file");
    }
}

void FrontDoor::names(const Request& req, Response& res)
{
    if (!sessionOf(req, res)) {
        return;
    }
    // "agent<TAB>name" lines, written by the canned library at the data
    // server's first connection, in the order names are looked up.
    std::ifstream in(m_config.namesFile);
    std::vector<std::string> order;
    std::map<std::string, std::vector<std::string>> byAgent;
    std::string line;
    while (std::getline(in, line)) {
        size_t tab = line.find('\t');
        if (tab == std::string::npos) {
            continue;
        }
        std::string agent = line.substr(0, tab);
        if (byAgent.count(agent) == 0) {
            order.push_back(agent);
        }
        byAgent[agent].push_back(line.substr(tab + 1));
    }
    std::string out = "[";
    for (const std::string& agent : order) {
        out += (out.size() > 1 ? ",\n" : "") + std::string("{\"agent\":") + json(agent) + ",\"names\":[";
        const auto& list = byAgent[agent];
        for (size_t i = 0; i < list.size(); ++i) {
            out += (i > 0 ? "," : "") + json(list[i]);
        }
        out += "]}";
    }
    out += "]\n";
    res.set_content(out, "application/json");
}

void FrontDoor::scenarios(const Request& req, Response& res)
{
    if (!sessionOf(req, res)) {
        return;
    }
    Scenarios::Result r = m_scenarios.run({"list", "--json"});
    if (r.missing) {
        answerError(res, 503, "no scenario tool: " + m_scenarios.tool() + " is not there (build simctl)");
    } else if (r.exitStatus != 0 || r.out.find('[') == std::string::npos) {
        answerError(res, 502, "simctl list failed: " + r.err);
    } else {
        res.set_content(r.out, "application/json");
    }
}

void FrontDoor::scenarioAction(const Request& req, Response& res)
{
    std::shared_ptr<Session> s = sessionOf(req, res);
    if (!s || !csrfHolds(*s, req, res)) {
        return;
    }
    if (std::string(s->role->name) != "admin") {
        answerError(res, 403, "only an admin session may switch scenarios");
        return;
    }
    // /sim/scenarios/<name>/apply or /clear
    std::string rest = req.path.substr(strlen("/sim/scenarios/"));
    size_t slash = rest.find('/');
    std::string name = rest.substr(0, slash);
    std::string action = slash == std::string::npos ? "" : rest.substr(slash + 1);
    if (action != "apply" && action != "clear") {
        answerError(res, 404, "POST /sim/scenarios/<name>/apply or /clear");
        return;
    }
    if (!HttpText::plainWord(name)) {
        answerError(res, 400, "a scenario name is a plain word (letters, digits, _ - .)");
        return;
    }
    Scenarios::Result r = m_scenarios.run({action, name});
    if (r.missing) {
        answerError(res, 503, "no scenario tool: " + m_scenarios.tool() + " is not there (build simctl)");
    } else if (r.exitStatus != 0) {
        answerError(res, 400, "simctl " + action + " " + name + " failed: " + r.err);
    } else {
        res.set_content("{\"scenario\":" + json(name) + ",\"done\":" + json(action) + "}\n", "application/json");
    }
}
