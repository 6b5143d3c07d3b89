/**
 * @file
 * The reference count under objects that are shared through boost::intrusive_ptr.
 */
#ifndef ZEL_INTRUSIVE_PTR_BASE_H
#define ZEL_INTRUSIVE_PTR_BASE_H

#include <atomic>
#include <cassert>
#include <cstdint>

/**
 * Base of a class T whose objects live as long as a handle refers to them. An object starts with a
 * count of 0, is made with new, and is deleted as a T with its last handle. Handles may be copied
 * and dropped on any thread; the count does not protect anything else in the object.
 */
template <class T>
class ZEL_IntrusivePtr_Base {
public:
    ZEL_IntrusivePtr_Base() = default;
    ZEL_IntrusivePtr_Base(const ZEL_IntrusivePtr_Base&) = delete;
    ZEL_IntrusivePtr_Base& operator=(const ZEL_IntrusivePtr_Base&) = delete;

    /** The number of handles that refer to the object. */
    mutable std::atomic<std::int32_t> ref_count{0};

protected:
    ~ZEL_IntrusivePtr_Base() = default;
};

/** Adds a reference; s is not null. Found by boost::intrusive_ptr through the type of s. */
template <class T>
void intrusive_ptr_add_ref(const ZEL_IntrusivePtr_Base<T>* s) {
    assert(s->ref_count >= 0);
    s->ref_count.fetch_add(1, std::memory_order_relaxed);
}

/** Drops a reference and deletes the object with the last one. */
template <class T>
void intrusive_ptr_release(const ZEL_IntrusivePtr_Base<T>* s) {
    assert(s != 0);
    assert(s->ref_count >= 0);
    if (s->ref_count.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete static_cast<const T*>(s);
    }
}

#endif
