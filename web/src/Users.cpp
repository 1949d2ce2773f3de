#include "Users.h"

#include <crypt.h>

#include <algorithm>
#include <fstream>
#include <memory>

#include "HttpText.h"

namespace {

// What an unknown user's password is checked against, so that a wrong name
// costs as long as a wrong password.
const char kDummyHash[] =
    "$6$gdswebdummy$6mjL/pINxgG0joUqx3GWJjQbuaEQE3a/.I7w9Onw1bW4bvOSZI33vMvYxn6IxWtaEQxqhKdGO4qTPinZOyTHW0";

const Users::Role kRoles[] = {
    {"admin", 0x7F, 4},
    {"operator", 0x62, 3},
    // Not 0: the data server takes a mask of 0 for an internal caller and
    // skips the property map's privilege check.
    {"readonly", 0x01, 1},
};

bool hashMatches(const std::string& password, const std::string& hash)
{
    std::unique_ptr<crypt_data> data(new crypt_data());
    const char* out = crypt_r(password.c_str(), hash.c_str(), data.get());
    return out != nullptr && out[0] != '*' && HttpText::sameSecret(out, hash);
}

}  // namespace

const Users::Role* Users::role(const std::string& name)
{
    for (const Role& r : kRoles) {
        if (name == r.name) {
            return &r;
        }
    }
    return nullptr;
}

bool Users::lookup(const std::string& user, std::string& hash, std::string& roleName) const
{
    std::ifstream in(m_path);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        size_t a = line.find(':');
        size_t b = a == std::string::npos ? a : line.find(':', a + 1);
        if (b == std::string::npos || line.compare(0, a, user) != 0 || a != user.size()) {
            continue;
        }
        roleName = line.substr(a + 1, b - a - 1);
        hash = line.substr(b + 1);
        return true;
    }
    return false;
}

Users::Outcome Users::check(const std::string& user, const std::string& password, Account& account,
                            int& retryAfterSeconds)
{
    const Clock::time_point now = Clock::now();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_failures.find(user);
        if (it != m_failures.end() && it->second.count >= kFreeFailures) {
            int wait = std::min(kMaxWaitSeconds, 1 << std::min(it->second.count - kFreeFailures, 6));
            auto since = std::chrono::duration_cast<std::chrono::seconds>(now - it->second.last).count();
            if (since < wait) {
                retryAfterSeconds = static_cast<int>(wait - since);
                return Outcome::kSlowDown;
            }
        }
    }
    std::string hash, roleName;
    bool listed = lookup(user, hash, roleName);
    bool good = hashMatches(password, listed ? hash : kDummyHash) && listed;
    const Role* r = listed ? role(roleName) : nullptr;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (good && r != nullptr) {
        m_failures.erase(user);
        account.user = user;
        account.role = r;
        return Outcome::kOk;
    }
    if (m_failures.size() >= kMaxTracked && m_failures.count(user) == 0) {
        // Forget the name whose last failure is oldest.
        auto oldest = std::min_element(m_failures.begin(), m_failures.end(),
                                       [](const auto& x, const auto& y) { return x.second.last < y.second.last; });
        m_failures.erase(oldest);
    }
    Failures& f = m_failures[user];
    ++f.count;
    f.last = now;
    return Outcome::kWrong;
}
