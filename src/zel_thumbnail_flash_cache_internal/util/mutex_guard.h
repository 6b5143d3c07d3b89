/**
 * @file
 * Holds a GMutex for the lifetime of an object, so that every way out of a scope releases it.
 */
#ifndef ZEL_MUTEX_GUARD_H
#define ZEL_MUTEX_GUARD_H

#include <glib.h>

class CZELMutexGuard {
public:
    explicit CZELMutexGuard(GMutex& mutex) : m_Mutex(mutex) { g_mutex_lock(&m_Mutex); }
    ~CZELMutexGuard() { g_mutex_unlock(&m_Mutex); }

    CZELMutexGuard(const CZELMutexGuard&) = delete;
    CZELMutexGuard& operator=(const CZELMutexGuard&) = delete;

private:
    GMutex& m_Mutex;
};

#endif
