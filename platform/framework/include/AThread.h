// AThread: a detached POSIX thread that runs the object's run(). The object
// may delete itself at the end of run(): nothing touches it after run()
// returns. Never joined. Stacks are bounded (kStackSize) so that a 32-bit
// controller with 3 GiB of address space holds well over 1000 connections.
#pragma once

#include <atomic>
#include <cstddef>

class AThread {
public:
    // 256 KiB: 1000 connection threads reserve 250 MiB of address space.
    // Code running on these threads keeps large buffers on the heap.
    static const size_t kStackSize = 256 * 1024;

    AThread() = default;
    virtual ~AThread() = default;
    AThread(const AThread&) = delete;
    AThread& operator=(const AThread&) = delete;

    // Starts the thread; returns false when it could not be created (run()
    // is then never called and the caller still owns the object).
    virtual bool start();
    virtual void run() = 0;
    // Asks the thread to stop; run() loops poll isStopRequested().
    virtual void stopThread() { m_stop = true; }
    bool isStopRequested() const { return m_stop; }

private:
    static void* entry(void* self);
    std::atomic<bool> m_stop{false};
};
