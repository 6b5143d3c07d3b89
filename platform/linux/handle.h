/**
 * @file
 * Ownership of objects of C libraries and of file descriptors.
 */
#ifndef ZEL_PLATFORM_LINUX_HANDLE_H
#define ZEL_PLATFORM_LINUX_HANDLE_H

#include <unistd.h>

#include <memory>
#include <tuple>
#include <type_traits>

namespace zel::platform {

/** Deleter that calls Release. */
template <auto Release>
struct Releaser {
    template <typename T>
    void operator()(T* object) const {
        if constexpr (std::is_void_v<decltype(Release(object))>)
            Release(object);
        else
            std::ignore = Release(object);  // the object is gone whatever the answer
    }
};

/** Owns a T of a C library, given back with Release. */
template <typename T, auto Release>
using Handle = std::unique_ptr<T, Releaser<Release>>;

/** Owns a file descriptor. */
class FileDescriptor {
public:
    /** @param descriptor  -1 stands for none */
    explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() {
        if (descriptor_ != -1)
            ::close(descriptor_);
    }

    /** The descriptor, or -1. */
    int get() const { return descriptor_; }

private:
    int descriptor_;
};

}  // namespace zel::platform

#endif
