/**
 * @file
 * Ownership of what C libraries hand out.
 */
#ifndef ZEL_RELEASE_H
#define ZEL_RELEASE_H

#include <memory>
#include <tuple>
#include <type_traits>

/** A deleter of std::unique_ptr that calls a C function. */
template <auto Function>
struct CZELRelease {
    template <class T>
    void operator()(T* object) const {
        if constexpr (std::is_void_v<decltype(Function(object))>) {
            Function(object);
        } else {
            std::ignore = Function(object);  // the object is gone whatever the answer
        }
    }
};

/** Owns a T of a C library, given back with Function. */
template <class T, auto Function>
using CZELHandle = std::unique_ptr<T, CZELRelease<Function>>;

#endif
