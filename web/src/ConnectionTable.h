// ConnectionTable: the front door's open HTTP connections, each served by a
// thread of its own. Bounds how many are open: at the cap the connection idle
// longest between requests is shut down to admit a new one, so idle
// keep-alive connections can never lock a new client out (a fixed thread
// pool that waiting connections exhaust would). Any thread; one mutex. A
// connection's socket is shut down by another thread only under the mutex
// and before its own thread has removed it, so a descriptor number is never
// touched after it was closed and reused.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <mutex>

class ConnectionTable {
public:
    using Clock = std::chrono::steady_clock;
    struct Slot {
        int fd;
        bool idle;
        Clock::time_point idleSince;
    };

    explicit ConnectionTable(size_t cap) : m_cap(cap) {}

    // Registers a connection's socket (idle, waiting for its first
    // request). At the cap the connection idle longest is shut down first;
    // nullptr when every open connection is in the middle of a request.
    Slot* add(int fd);
    void setIdle(Slot* slot, bool idle);
    // Unregisters; call before closing the socket.
    void remove(Slot* slot);
    // Shuts every open connection down (the server stops).
    void shutdownAll();
    size_t size();

    // Connection threads, for the task queue: counted so that stopping
    // waits for all of them.
    void threadStarted();
    void threadEnded();
    void waitForThreads();

private:
    size_t m_cap;
    std::mutex m_mutex;
    std::condition_variable m_threadsDone;
    std::list<Slot> m_slots;
    size_t m_threads = 0;
};
