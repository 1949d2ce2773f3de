// DataServerLink: how the front door forwards a request text to the data
// server's port 8197 (JSON header with the session's privilege mask, its
// user name and the interface name "gdsweb", so every audit line names the
// browser's user), and how it reads the session time-out ("webTimeout").
// Any thread: a session's connection is used under the session's io mutex,
// the time-out reader under its own.
#pragma once

#include <chrono>
#include <mutex>
#include <string>

#include "GDSClient.h"

struct Session;

class DataServerLink {
public:
    static constexpr const char* kInterface = "gdsweb";

    explicit DataServerLink(int port) : m_port(port) {}
    int port() const { return m_port; }

    struct Answer {
        std::string text;     // the whole reply, all packets joined
        bool silent = false;  // no packet at all (a launch document refused for want of a right)
    };
    // Sends `text` on the session's connection (opened on first use, opened
    // again once when the data server had closed it while idle) and returns
    // the reply. Throws GDSClientError when the data server cannot be reached
    // or the text is too long for a frame (kRequest).
    Answer ask(Session& session, const std::string& text);

    // The simulated "webTimeout" in seconds, read from the data server at
    // most once a second; 1800 when it cannot be read.
    int sessionTimeoutSeconds();

    // How long a launch document may stay silent before that counts as the
    // data server's refusal.
    static constexpr int kSilenceMs = 1500;
    static constexpr int kReplyTimeoutMs = 120000;

private:
    GDSClient::Options options(uint32_t mask, const std::string& user, bool launch) const;

    int m_port;
    std::mutex m_timeoutMutex;
    GDSClient m_timeoutClient;
    int m_timeoutSeconds = 1800;
    std::chrono::steady_clock::time_point m_timeoutRead{};
    bool m_timeoutKnown = false;
};
