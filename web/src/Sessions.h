// Sessions: the front door's logged-in browser sessions. A session is found
// by its cookie (128 random bits), carries its CSRF token, role and its own
// connection to the data server (agents keep per-connection state, so no two
// sessions share one), and ends after the simulated "webTimeout" seconds
// without a request. Any thread: the table has its own mutex; a session's
// data-server connection is used under the session's `io` mutex.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "GDSClient.h"
#include "Users.h"

struct Session {
    std::string cookie;     // the session cookie's value
    std::string csrfToken;  // X-CSRF-Token of every changing request
    std::string user;
    const Users::Role* role = nullptr;
    int number = 0;         // the session's id at the session manager (launch documents)
    std::string reference;  // the session identifier a capture player gets (not the cookie)
    std::mutex io;          // guards `data`
    GDSClient data;         // this session's connection to the data server
};

class Sessions {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr size_t kMaxSessions = 1024;

    // A new session for a checked account. At kMaxSessions the session idle
    // longest ends to make room.
    std::shared_ptr<Session> create(const Users::Account& account);
    // The session of a cookie value, when it exists and was used within
    // `timeoutSeconds`; it counts as used now. An expired one ends.
    std::shared_ptr<Session> find(const std::string& cookie, int timeoutSeconds);
    void end(const std::string& cookie);
    size_t count();

    // 128 random bits as 32 hex digits (getrandom).
    static std::string randomToken();

private:
    struct Entry {
        std::shared_ptr<Session> session;
        Clock::time_point lastUsed;
    };
    std::mutex m_mutex;
    std::map<std::string, Entry> m_table;
    int m_nextNumber = 1;
};
