#include "DataServerLink.h"

#include <cstdlib>

#include "HttpText.h"
#include "Sessions.h"

GDSClient::Options DataServerLink::options(uint32_t mask, const std::string& user, bool launch) const
{
    GDSClient::Options o;
    o.port = m_port;
    o.layout = GDSClient::Layout::kNxtGen;
    o.privileges = mask;
    o.user = user;
    o.interface = kInterface;
    o.connectTimeoutMs = 3000;
    o.replyTimeoutMs = kReplyTimeoutMs;
    // Ordinary replies always end with a flagged packet; a launch document
    // refused for want of the console right ends with nothing at all.
    o.replyEnd = launch ? GDSClient::ReplyEnd::kIdle : GDSClient::ReplyEnd::kLastFlag;
    o.idleMs = kSilenceMs;
    return o;
}

DataServerLink::Answer DataServerLink::ask(Session& session, const std::string& text)
{
    std::lock_guard<std::mutex> lock(session.io);
    session.data.options() = options(session.role->mask, session.user, HttpText::isLaunchText(text));
    // A kept connection may have been closed by the data server meanwhile
    // (it closes the connection idle longest when it is full); the request
    // was then never read, so it is sent once more on a new connection.
    bool reused = session.data.isOpen();
    for (int attempt = 0;; ++attempt) {
        try {
            if (!session.data.isOpen()) {
                session.data.connect();
            }
            GDSReply reply = session.data.request(text);
            Answer a;
            a.text = std::move(reply.text);
            a.silent = reply.packets.empty();
            return a;
        } catch (const GDSClientError& e) {
            if (e.kind() == GDSClientError::kRequest) {
                throw;  // nothing was sent; the connection stays usable
            }
            session.data.close();
            bool retry =
                reused && attempt == 0 && (e.kind() == GDSClientError::kClosed || e.kind() == GDSClientError::kIo);
            if (!retry) {
                throw;
            }
        }
    }
}

int DataServerLink::sessionTimeoutSeconds()
{
    std::lock_guard<std::mutex> lock(m_timeoutMutex);
    auto now = std::chrono::steady_clock::now();
    if (m_timeoutKnown && now - m_timeoutRead < std::chrono::seconds(1)) {
        return m_timeoutSeconds;
    }
    m_timeoutKnown = true;
    m_timeoutRead = now;
    try {
        m_timeoutClient.options() = options(0, "", false);
        m_timeoutClient.options().replyTimeoutMs = 5000;
        if (!m_timeoutClient.isOpen()) {
            m_timeoutClient.connect();
        }
        std::string reply = m_timeoutClient.request("get=webTimeout").text;
        size_t at = reply.find("<webTimeout>");
        if (at != std::string::npos) {
            long v = strtol(reply.c_str() + at + 12, nullptr, 10);
            if (v > 0 && v <= 7 * 24 * 3600) {
                m_timeoutSeconds = static_cast<int>(v);
            }
        }
    } catch (const GDSClientError&) {
        m_timeoutClient.close();  // keep the last value known
    }
    return m_timeoutSeconds;
}
