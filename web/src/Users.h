// Users: the front door's users file (<GDS_ROOT>/etc/gdsweb/users, lines
// "name:role:crypt(3) hash"), the roles' privilege masks, and the slowing
// down of repeated failed logins per user name. Any thread: the failure
// table is guarded by its own mutex; the file is read at every login.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

class Users {
public:
    struct Role {
        const char* name;
        uint32_t mask;      // privilege mask sent with every request of the session
        int userPrivilege;  // the session's privilege at the session manager (launch documents)
    };
    // admin, operator, readonly; nullptr for another name.
    static const Role* role(const std::string& name);

    enum class Outcome { kOk, kWrong, kSlowDown };
    struct Account {
        std::string user;
        const Role* role = nullptr;
    };

    explicit Users(const std::string& path) : m_path(path) {}

    // Checks a login. kSlowDown (with the seconds to wait) when this user
    // name failed too often lately; the password is not even checked then.
    Outcome check(const std::string& user, const std::string& password, Account& account, int& retryAfterSeconds);
    const std::string& path() const { return m_path; }

    // Failures allowed before each further attempt must wait; the wait
    // doubles with every failure up to kMaxWaitSeconds.
    static constexpr int kFreeFailures = 3;
    static constexpr int kMaxWaitSeconds = 60;

private:
    using Clock = std::chrono::steady_clock;
    struct Failures {
        int count = 0;
        Clock::time_point last;
    };
    // The stored hash and role of `user`; false when not listed.
    bool lookup(const std::string& user, std::string& hash, std::string& role) const;

    std::string m_path;
    std::mutex m_mutex;
    std::map<std::string, Failures> m_failures;  // at most kMaxTracked names
    static constexpr size_t kMaxTracked = 4096;
};
