/**
 * @file
 * A value of several threads that cannot be reached without its lock.
 */
#ifndef ZEL_PLATFORM_LINUX_GUARDED_H
#define ZEL_PLATFORM_LINUX_GUARDED_H

#include <mutex>

namespace zel::platform {

/** Holds one value. A thread that has access to it must not ask for another one. */
template <typename Value>
class Guarded {
public:
    /** The way to the value, which no other thread has as long as this object lives. */
    class Access {
    public:
        explicit Access(Guarded& guarded) : lock_(guarded.mutex_), value_(guarded.value_) {}
        Value& operator*() { return value_; }
        Value* operator->() { return &value_; }

    private:
        const std::lock_guard<std::mutex> lock_;
        Value& value_;
    };

    /** Waits for the other threads. */
    [[nodiscard]] Access access() { return Access(*this); }

private:
    std::mutex mutex_;
    Value value_{};
};

}  // namespace zel::platform

#endif
