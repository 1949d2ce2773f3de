#include "ConnectionThreads.h"

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <new>
#include <vector>

#include "ALog.h"
#include "AThread.h"

namespace {

size_t pageSize()
{
    static const size_t size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

size_t usableSize()
{
    size_t size = ConnectionThreads::kStackSize;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    size *= 4;  // sanitizer red zones and shadow calls make frames several times larger
#endif
    return size;
}

// One mapping: a guard page (no access) below the usable stack.
struct Stack {
    char* base = nullptr;  // the mapping, guard page first
    size_t size = 0;       // the whole mapping
    char* usable() const { return base + pageSize(); }
    size_t usableSize() const { return size - pageSize(); }
};

struct Pending {
    bool valid = false;
    pthread_t thread;
    Stack stack;
};

// Never destroyed: ended threads may still hand stacks back while the
// process exits.
struct State {
    std::mutex mutex;
    std::vector<Stack> spares;  // stacks of joined threads, ready for reuse
    // The last thread that ended and is not joined yet: each ending thread
    // joins the one before it and takes its stack back, so at most one ended
    // thread's stack is ever waiting.
    Pending pending;
    unsigned long unjoined = 0;  // threads started and not joined yet
};
State& state()
{
    static State* s = new State();
    return *s;
}
std::atomic<size_t> g_deepest{0};

bool mapStack(Stack& stack)
{
    stack.size = usableSize() + pageSize();
    void* p = mmap(nullptr, stack.size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (p == MAP_FAILED) {
        return false;
    }
    stack.base = static_cast<char*>(p);
    if (mprotect(stack.base, pageSize(), PROT_NONE) != 0) {
        munmap(p, stack.size);
        return false;
    }
    return true;
}

// The pages of a stack that were ever touched: its deepest use.
size_t residentBytes(const Stack& stack)
{
    const size_t pages = stack.usableSize() / pageSize();
    std::vector<unsigned char> resident(pages);
    if (mincore(stack.usable(), stack.usableSize(), resident.data()) != 0) {
        return 0;
    }
    size_t n = 0;
    for (unsigned char r : resident) {
        n += r & 1;
    }
    return n * pageSize();
}

// A stack whose thread has been joined: kept for reuse or unmapped.
void takeBack(const Stack& stack)
{
    {
        std::lock_guard<std::mutex> lock(state().mutex);
        --state().unjoined;
    }
    const size_t used = residentBytes(stack);
    size_t deepest = g_deepest.load();
    while (used > deepest && !g_deepest.compare_exchange_weak(deepest, used)) {
    }
    if (used > deepest) {
        char line[96];
        snprintf(line, sizeof line, "deepest stack use so far: %u of %u KiB", static_cast<unsigned>(used / 1024),
                 static_cast<unsigned>(stack.usableSize() / 1024));
        ALog::processLog().write(ALog::kInfo, "ConnectionThreads", line);
    }
    {
        std::lock_guard<std::mutex> lock(state().mutex);
        if (static_cast<int>(state().spares.size()) < ConnectionThreads::kSpareStacks) {
            state().spares.push_back(stack);
            return;
        }
    }
    munmap(stack.base, stack.size);
}

struct Start {
    AThread* thread;
    Stack stack;
};

thread_local Stack t_stack;  // the stack of this connection thread

void* entry(void* arg)
{
    Start start = *static_cast<Start*>(arg);
    delete static_cast<Start*>(arg);
    t_stack = start.stack;
    start.thread->run();  // may delete the object
    Pending before;
    {
        std::lock_guard<std::mutex> lock(state().mutex);
        before = state().pending;
        state().pending.valid = true;
        state().pending.thread = pthread_self();
        state().pending.stack = start.stack;
    }
    if (before.valid) {
        // That thread has handed itself over like this one and is leaving
        // (at most it waits for the thread before it): this wait is short.
        pthread_join(before.thread, nullptr);
        takeBack(before.stack);
    }
    return nullptr;
}

}  // namespace

bool ConnectionThreads::start(AThread& thread)
{
    Stack stack;
    {
        std::lock_guard<std::mutex> lock(state().mutex);
        if (!state().spares.empty()) {
            stack = state().spares.back();
            state().spares.pop_back();
        }
        ++state().unjoined;  // before the thread exists: it may end and be joined at once
    }
    Start* start = nullptr;
    if (stack.base != nullptr || mapStack(stack)) {
        start = new (std::nothrow) Start{&thread, stack};
    }
    if (start == nullptr) {
        std::lock_guard<std::mutex> lock(state().mutex);
        --state().unjoined;
        if (stack.base != nullptr) {
            state().spares.push_back(stack);
        }
        return false;
    }
    pthread_attr_t attr;
    int rc = pthread_attr_init(&attr);
    if (rc == 0) {
        rc = pthread_attr_setstack(&attr, stack.usable(), stack.usableSize());
        pthread_t tid;
        if (rc == 0) {
            rc = pthread_create(&tid, &attr, entry, start);
        }
        pthread_attr_destroy(&attr);
    }
    if (rc != 0) {
        delete start;
        std::lock_guard<std::mutex> lock(state().mutex);
        --state().unjoined;
        state().spares.push_back(stack);  // unused: fine to keep, even above the count
        return false;
    }
    return true;
}

void ConnectionThreads::joinEnded()
{
    Pending ended;
    {
        std::lock_guard<std::mutex> lock(state().mutex);
        ended = state().pending;
        state().pending.valid = false;
    }
    if (ended.valid) {
        pthread_join(ended.thread, nullptr);
        takeBack(ended.stack);
    }
}

unsigned long ConnectionThreads::unjoined()
{
    std::lock_guard<std::mutex> lock(state().mutex);
    return state().unjoined;
}

void ConnectionThreads::releaseUnusedStack()
{
    const Stack& stack = t_stack;
    if (stack.base == nullptr) {
        return;
    }
    // The frames of madvise and its wrapper lie below this one: they keep
    // a margin of at least 1 KiB that is not released.
    const uintptr_t here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    const uintptr_t low = reinterpret_cast<uintptr_t>(stack.usable());
    const uintptr_t end = (here - 1024) & ~static_cast<uintptr_t>(pageSize() - 1);
    if (here > low + 1024 && end > low) {
        madvise(stack.usable(), end - low, MADV_DONTNEED);
    }
}

size_t ConnectionThreads::deepestUse()
{
    return g_deepest.load();
}
