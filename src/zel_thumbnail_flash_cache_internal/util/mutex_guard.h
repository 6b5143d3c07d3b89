/**
 * @file
 * A GMutex as the compiler's analysis of locks knows it, and a guard that holds it for the lifetime
 * of an object, so that every way out of a scope releases it.
 */
#ifndef ZEL_MUTEX_GUARD_H
#define ZEL_MUTEX_GUARD_H

#include <glib.h>

#include "thread_annotations.h"

class ZEL_CAPABILITY CZELLock {
public:
    /** Stands for a mutex, which lives as long and is initialised and cleared by its owner. */
    explicit CZELLock(GMutex& mutex) : m_Mutex(mutex) {}

    CZELLock(const CZELLock&) = delete;
    CZELLock& operator=(const CZELLock&) = delete;

    void Acquire() ZEL_ACQUIRE() { g_mutex_lock(&m_Mutex); }
    /** True when nobody held it, and the caller does now. */
    [[nodiscard]] bool TryAcquire() ZEL_TRY_ACQUIRE(true) { return g_mutex_trylock(&m_Mutex) != 0; }
    void Release() ZEL_RELEASE() { g_mutex_unlock(&m_Mutex); }

private:
    GMutex& m_Mutex;
};

class ZEL_SCOPED_CAPABILITY CZELMutexGuard {
public:
    explicit CZELMutexGuard(CZELLock& lock) ZEL_ACQUIRE(lock) : m_Lock(lock) { m_Lock.Acquire(); }
    ~CZELMutexGuard() ZEL_RELEASE() { m_Lock.Release(); }

    CZELMutexGuard(const CZELMutexGuard&) = delete;
    CZELMutexGuard& operator=(const CZELMutexGuard&) = delete;

private:
    CZELLock& m_Lock;
};

#endif
