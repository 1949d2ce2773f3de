#include "ConnectionQueue.h"

#include <system_error>
#include <thread>

namespace {
thread_local bool t_refusing = false;
}

bool ConnectionQueue::refusing()
{
    return t_refusing;
}

void ConnectionQueue::enqueue(std::function<void()> fn)
{
    m_table.threadStarted();
    try {
        ConnectionTable& table = m_table;
        std::thread([&table, fn] {
            fn();
            table.threadEnded();
        }).detach();
    } catch (const std::system_error&) {
        m_table.threadEnded();
        t_refusing = true;
        fn();
        t_refusing = false;
    }
}

void ConnectionQueue::shutdown()
{
    m_table.shutdownAll();
    m_table.waitForThreads();
}
