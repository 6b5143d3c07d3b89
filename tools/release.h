/**
 * @file
 * Ownership of what C libraries hand out.
 */
#ifndef ZEL_TOOLS_RELEASE_H
#define ZEL_TOOLS_RELEASE_H

/** A deleter of std::unique_ptr that calls a C function, whose result leaves nothing to be done. */
template <auto Function>
struct ReleaseBy {
    template <class T>
    void operator()(T* object) const {
        static_cast<void>(Function(object));
    }
};

#endif
