#include "AThread.h"

#include <pthread.h>

void* AThread::entry(void* self)
{
    static_cast<AThread*>(self)->run();
    return nullptr;  // `self` may be gone here
}

bool AThread::start()
{
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0) {
        return false;
    }
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    size_t stack = kStackSize;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    stack *= 4;  // sanitizer red zones and shadow calls make frames several times larger
#endif
    pthread_attr_setstacksize(&attr, stack);
    pthread_t tid;
    int rc = pthread_create(&tid, &attr, &AThread::entry, this);
    pthread_attr_destroy(&attr);
    return rc == 0;
}
