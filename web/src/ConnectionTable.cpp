#include "ConnectionTable.h"

#include <sys/socket.h>

#include <cstdio>

ConnectionTable::Slot* ConnectionTable::add(int fd)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_slots.size() >= m_cap) {
        Slot* oldest = nullptr;
        for (Slot& s : m_slots) {
            if (s.idle && s.fd >= 0 && (oldest == nullptr || s.idleSince < oldest->idleSince)) {
                oldest = &s;
            }
        }
        if (oldest == nullptr) {
            return nullptr;
        }
        auto idleFor = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - oldest->idleSince).count();
        printf("gdsweb: closing the connection idle for %lld s to admit a new client\n",
               static_cast<long long>(idleFor));
        fflush(stdout);
        // Its thread wakes up, finds the connection closed and removes it.
        shutdown(oldest->fd, SHUT_RDWR);
        oldest->fd = -1;
    }
    m_slots.push_back(Slot{fd, true, Clock::now()});
    return &m_slots.back();
}

void ConnectionTable::setIdle(Slot* slot, bool idle)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    slot->idle = idle;
    if (idle) {
        slot->idleSince = Clock::now();
    }
}

void ConnectionTable::remove(Slot* slot)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto it = m_slots.begin(); it != m_slots.end(); ++it) {
        if (&*it == slot) {
            m_slots.erase(it);
            return;
        }
    }
}

void ConnectionTable::shutdownAll()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (Slot& s : m_slots) {
        if (s.fd >= 0) {
            shutdown(s.fd, SHUT_RDWR);
            s.fd = -1;
        }
    }
}

size_t ConnectionTable::size()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_slots.size();
}

void ConnectionTable::threadStarted()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_threads;
}

void ConnectionTable::threadEnded()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (--m_threads == 0) {
        m_threadsDone.notify_all();
    }
}

void ConnectionTable::waitForThreads()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_threadsDone.wait(lock, [this] { return m_threads == 0; });
}
