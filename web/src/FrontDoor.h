// FrontDoor: the development web front door. An HTTP server on loopback
// that does for a browser what the controller's web server does: sessions
// from a users file, /data forwarded to the data server with the session's
// privilege mask, launch documents, the explorer page (or a developer's own
// build) from /. Built on the HTTP library's server; the connection handling
// (a thread per connection, deadlines, head limits) is its own. Constructed
// and started on the main thread; handlers run on the connection threads.
#pragma once

#include <chrono>
#include <string>

#include "ConnectionTable.h"
#include "DataServerLink.h"
#include "HttpLib.h"
#include "Scenarios.h"
#include "Sessions.h"
#include "Users.h"

class FrontDoor : public httplib::Server {
public:
    struct Config {
        int dataPort = 8197;
        std::string usersFile;    // <GDS_ROOT>/etc/gdsweb/users
        std::string namesFile;    // <GDS_ROOT>/var/canned/names
        std::string uiDir;        // served from /
        std::string explorerDir;  // also served from /gdsweb/
        bool ownUi = false;       // uiDir is the explorer (not --ui)
        std::string simctl;       // the scenario tool
        std::chrono::milliseconds requestDeadline{10000};
        std::chrono::milliseconds keepAlive{30000};
        size_t maxConnections = 256;
        // Listening on loopback only: a login must name a loopback host.
        bool loopbackOnly = true;
    };

    // Limits of a request: its line, its header block, its body.
    static constexpr size_t kRequestLineLimit = 8192;
    static constexpr size_t kHeaderLimit = 8192;
    static constexpr size_t kBodyLimit = 65536;
    static constexpr size_t kRequestsPerConnection = 10000;
    static constexpr const char* kCookie = "gdsweb_session";

    explicit FrontDoor(const Config& config);

private:
    // Serves one accepted connection on its own thread (the library's
    // keep-alive loop replaced: deadlines, head limits, the table's cap).
    bool process_and_close_socket(socket_t sock) override;

    void routes();
    // The request's session, or nullptr after answering 401.
    std::shared_ptr<Session> sessionOf(const httplib::Request& req, httplib::Response& res);
    // False after answering 403 when the X-CSRF-Token header is not the session's.
    bool csrfHolds(const Session& s, const httplib::Request& req, httplib::Response& res);
    // Forwards `text`; false after answering 413 or 502.
    bool forward(Session& s, const std::string& text, DataServerLink::Answer& answer, httplib::Response& res);

    void login(const httplib::Request& req, httplib::Response& res);
    void logout(const httplib::Request& req, httplib::Response& res);
    void data(const httplib::Request& req, httplib::Response& res, bool post);
    void launch(const std::string& document, const httplib::Request& req, httplib::Response& res);
    void names(const httplib::Request& req, httplib::Response& res);
    void scenarios(const httplib::Request& req, httplib::Response& res);
    void scenarioAction(const httplib::Request& req, httplib::Response& res);

    Config m_config;
    ConnectionTable m_table;
    Users m_users;
    Sessions m_sessions;
    DataServerLink m_link;
    Scenarios m_scenarios;
};
