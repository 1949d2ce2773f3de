// Connection threads on stacks that are handed back and reused: every thread
// runs, and a reused stack never carries one thread's frames into another.
#include "ConnectionThreads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "AThread.h"

namespace {
// Fills 64 KiB of its stack with its own mark and checks it, like a deep request.
class DeepThread : public AThread {
public:
    DeepThread(int mark, std::atomic<int>& done, std::atomic<int>& torn) : m_mark(mark), m_done(done), m_torn(torn) {}
    void run() override
    {
        volatile char area[64 * 1024];
        for (size_t i = 0; i < sizeof area; i += 256) {
            area[i] = static_cast<char>(m_mark);
        }
        std::this_thread::yield();
        for (size_t i = 0; i < sizeof area; i += 256) {
            if (area[i] != static_cast<char>(m_mark)) {
                ++m_torn;
                break;
            }
        }
        ++m_done;
        delete this;
    }

private:
    int m_mark;
    std::atomic<int>& m_done;
    std::atomic<int>& m_torn;
};
}  // namespace

TEST(ConnectionThreads, ThreadsFromSeveralStartersAllRunOnReusedStacks)
{
    const int kStarters = 4, kEach = 100;
    std::atomic<int> done{0}, torn{0}, refused{0};
    std::vector<std::thread> starters;
    for (int s = 0; s < kStarters; ++s) {
        starters.emplace_back([&, s] {
            for (int i = 0; i < kEach; ++i) {
                DeepThread* t = new DeepThread(s * kEach + i, done, torn);
                if (!ConnectionThreads::start(*t)) {
                    delete t;
                    ++refused;
                }
            }
        });
    }
    for (std::thread& t : starters) {
        t.join();
    }
    for (int i = 0; i < 3000 && done.load() + refused.load() < kStarters * kEach; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    // Every thread is joined in the end (the last one by the idle accept loop).
    for (int i = 0; i < 3000 && ConnectionThreads::unjoined() > 0; ++i) {
        ConnectionThreads::joinEnded();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(0u, ConnectionThreads::unjoined());
    EXPECT_EQ(kStarters * kEach, done.load());
    EXPECT_EQ(0, refused.load());
    EXPECT_EQ(0, torn.load());
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // The measure behind the stack size's comment sees the 64 KiB.
    EXPECT_GE(ConnectionThreads::deepestUse(), 64u * 1024);
#endif
}
