// The channel lock: a heap-allocated process-private mutex behind an opaque
// handle.
#include "ipc/sem_util.h"

#include <new>
#include <pthread.h>
#include <unistd.h>

#include "support/log.h"

SemHandl_t MakeSem() {
    auto* m = new (std::nothrow) pthread_mutex_t;
    if (m == nullptr) {
        LOG_ERR("Not enough memory!!\n");
        return nullptr;
    }
    if (pthread_mutex_init(m, nullptr) != 0) {
        LOG_ERR("Sem_Creat init faill!!\n");
        delete m;
        return nullptr;
    }
    return m;
}

int SemWait(SemHandl_t sem) {
    if (sem == nullptr) {
        LOG_ERR("SemWait: Invalid Semaphore handler pid:%d\n", static_cast<int>(getpid()));
        return -1;
    }
    return pthread_mutex_lock(static_cast<pthread_mutex_t*>(sem));
}

int SemRelease(SemHandl_t sem) {
    if (sem == nullptr) {
        LOG_ERR("SemRelease: Invalid Semaphore handler pid:%d\n", static_cast<int>(getpid()));
        return -1;
    }
    return pthread_mutex_unlock(static_cast<pthread_mutex_t*>(sem));
}

int DestroySem(SemHandl_t sem) {
    if (sem == nullptr) {
        LOG_ERR("DestroySem: Invalid Semaphore handler\n");
        return -1;
    }
    auto* m = static_cast<pthread_mutex_t*>(sem);
    // Take and give back the lock once so that a current holder finishes first.
    pthread_mutex_lock(m);
    pthread_mutex_unlock(m);
    if (pthread_mutex_destroy(m) != 0) LOG_ERR("Sem_kill faill!!\n");
    delete m;
    return 0;
}
