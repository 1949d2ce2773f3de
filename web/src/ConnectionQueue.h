// ConnectionQueue: the HTTP library's task queue replaced by a thread per
// connection (the library's own pool has a fixed number of threads, which
// idle keep-alive connections can all hold). The accept thread calls
// enqueue; the cap lives in the ConnectionTable. When no thread can be
// started, the connection is served nowhere: it is closed at once.
#pragma once

#include "ConnectionTable.h"
#include "HttpLib.h"

class ConnectionQueue : public httplib::TaskQueue {
public:
    explicit ConnectionQueue(ConnectionTable& table) : m_table(table) {}
    void enqueue(std::function<void()> fn) override;
    void shutdown() override;

    // True on the accept thread while it runs a connection's task itself
    // because no thread could be started: the task then only closes it.
    static bool refusing();

private:
    ConnectionTable& m_table;
};
