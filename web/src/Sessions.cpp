#include "Sessions.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

std::string Sessions::randomToken()
{
    unsigned char bytes[16];
    size_t have = 0;
    while (have < sizeof bytes) {
        ssize_t n = getrandom(bytes + have, sizeof bytes - have, 0);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw std::runtime_error("no random bytes for a session token");
        }
        have += static_cast<size_t>(n);
    }
    static const char kHex[] = "0123456789abcdef";
    std::string out;
    for (unsigned char b : bytes) {
        out.push_back(kHex[b >> 4]);
        out.push_back(kHex[b & 15]);
    }
    return out;
}

std::shared_ptr<Session> Sessions::create(const Users::Account& account)
{
    auto s = std::make_shared<Session>();
    s->cookie = randomToken();
    s->csrfToken = randomToken();
    s->reference = randomToken().substr(0, 16);
    s->user = account.user;
    s->role = account.role;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_table.size() >= kMaxSessions) {
        auto idle = std::min_element(m_table.begin(), m_table.end(), [](const auto& a, const auto& b) {
            return a.second.lastUsed < b.second.lastUsed;
        });
        m_table.erase(idle);
    }
    s->number = m_nextNumber++;
    if (m_nextNumber > 1000000) {
        m_nextNumber = 1;
    }
    m_table[s->cookie] = Entry{s, Clock::now()};
    return s;
}

std::shared_ptr<Session> Sessions::find(const std::string& cookie, int timeoutSeconds)
{
    if (cookie.empty()) {
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_table.find(cookie);
    if (it == m_table.end()) {
        return nullptr;
    }
    Clock::time_point now = Clock::now();
    if (now - it->second.lastUsed > std::chrono::seconds(timeoutSeconds)) {
        m_table.erase(it);
        return nullptr;
    }
    it->second.lastUsed = now;
    return it->second.session;
}

void Sessions::end(const std::string& cookie)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_table.erase(cookie);
}

size_t Sessions::count()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_table.size();
}
