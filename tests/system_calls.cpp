#include "system_calls.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/algorithm/string/replace.hpp>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fake_platform.h"

SystemCalls* g_calls = nullptr;

#ifdef ZEL_SANITIZED
static void* Allocate(size_t size) { return malloc(size); }
#else
extern "C" void* __libc_malloc(size_t);
static void* Allocate(size_t size) { return __libc_malloc(size); }
#endif

static bool Refuse(const char* call) {
    if (g_calls == nullptr || InPlatform::active)
        return false;
    const InPlatform busy;
    const auto refused = g_calls->refused.find(call);
    const bool found = refused != g_calls->refused.end();
    const int number = ++g_calls->calls;
    const bool hit = g_calls->first != 0 && number >= g_calls->first &&
                     (g_calls->all || number == g_calls->first);
    if (found || hit) {
        g_calls->failed += std::string(" ") + call + " ";
        const int error = found ? refused->second : EIO;
        if (found && g_calls->once)
            g_calls->refused.erase(refused);
        errno = error;
    }
    return found || hit;
}
static bool IsTraced() { return g_calls != nullptr && g_calls->tracing && !InPlatform::active; }
// Without what depends on the length of the test's directory.
static std::string SizeOf(const void* data, size_t size) {
    const std::string text(static_cast<const char*>(data), size);
    return std::to_string(boost::replace_all_copy(text, g_calls->directory, "$").size());
}
static std::string PathOf(int file) {
    std::array<char, PATH_MAX> path{};
    if (file == AT_FDCWD ||
        readlink(("/proc/self/fd/" + std::to_string(file)).c_str(), path.data(), path.size()) < 0)
        return ".";
    return path.data();
}
static std::string Octal(mode_t mode) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), " %04o", mode);
    return text.data();
}
#define TRACE(call, what)                                        \
    if (IsTraced()) {                                            \
        const InPlatform busy;                                   \
        const int error = errno;                                 \
        g_platform->Note('S', std::string(call) + " " + (what)); \
        errno = error;                                           \
    }
// As Refuse(); cuts a size to the largest piece and the room that is left.
static bool RefuseOrCut(const char* call, size_t& size) {
    static bool interrupted = false;
    if (Refuse(call))
        return true;
    if (g_calls == nullptr || InPlatform::active)
        return false;
    if (g_calls->interrupting && (interrupted = !interrupted))
        return errno = EINTR, true;
    if (size > 0 && g_calls->room == 0)
        return errno = ENOSPC, true;
    size = std::min({size, g_calls->piece, g_calls->room});
    g_calls->room -= g_calls->room == SIZE_MAX ? 0 : size;
    return false;
}
// No descriptor reaches another program, and no opening waits for another process; within tests.
static void ExpectSafe(const char* path, int flags) {
    if (g_platform == nullptr || InPlatform::active)
        return;
    EXPECT_TRUE(flags & O_CLOEXEC) << path;
    EXPECT_TRUE(flags & (O_NONBLOCK | O_EXCL | O_DIRECTORY)) << path;
}

// The C library's own function: the first of these names that it has, of which some are for large
// files and late dates.
static void* Next(std::initializer_list<const char*> names) {
    void* next = nullptr;
    for (auto name = names.begin(); name != names.end() && next == nullptr; ++name)
        next = dlsym(RTLD_NEXT, *name);
    return next;
}
#define NEXT(name)                                                    \
    ([] {                                                             \
        static const auto next = reinterpret_cast<decltype(&(name))>( \
            Next({"__" #name "64_time64", #name "64", #name}));       \
        return next;                                                  \
    }())
// A function: what it gives when it fails, what its trace says, and its parameters.
#define CALL(type, name, failure, what, parameters, ...)            \
    type name parameters {                                          \
        TRACE(#name, what)                                          \
        return Refuse(#name) ? (failure) : NEXT(name)(__VA_ARGS__); \
    }
#define LOOK(type, name, failure, parameters, ...) \
    type name parameters { return Refuse(#name) ? (failure) : NEXT(name)(__VA_ARGS__); }

extern "C" {

int open(const char* path, int flags, ...) {
    va_list mode;
    va_start(mode, flags);
    const mode_t bits = flags & O_CREAT ? va_arg(mode, mode_t) : 0;
    va_end(mode);
    const char* call = flags & O_EXCL ? "new" : "open";
    ExpectSafe(path, flags);
    if ((flags & O_ACCMODE) != O_RDONLY)
        TRACE(call, path)
    return Refuse(call) ? -1 : NEXT(open)(path, flags, bits);
}
int openat(int at, const char* path, int flags, ...) {
    ExpectSafe(path, flags);
    return Refuse("openat") ? -1 : NEXT(openat)(at, path, flags);
}
ssize_t read(int file, void* data, size_t size) {
    return RefuseOrCut("read", size) ? -1 : NEXT(read)(file, data, size);
}
ssize_t write(int file, const void* data, size_t size) {
    TRACE("write", PathOf(file) + " " + SizeOf(data, size))
    return RefuseOrCut("write", size) ? -1 : NEXT(write)(file, data, size);
}
CALL(ssize_t, sendfile, -1, PathOf(from) + " " + PathOf(to),
     (int to, int from, off_t* at, size_t size) noexcept, to, from, at,
     g_calls == nullptr ? size : std::min(size, g_calls->piece))
CALL(int, ftruncate, -1, PathOf(file) + " " + std::to_string(size), (int file, off_t size) noexcept,
     file, size)
// No test of this program cuts the power: nothing is flushed.
#define FLUSH(name, parameters, what)       \
    int name parameters {                   \
        TRACE(#name, PathOf(file) + (what)) \
        return Refuse(#name) ? -1 : 0;      \
    }
FLUSH(fdatasync, (int file), "")
FLUSH(sync_file_range, (int file, off_t at, off_t size, unsigned flags),
      " " + std::to_string(at) + " " + std::to_string(size) + " " + std::to_string(flags))
CALL(int, fchmod, -1, PathOf(file) + Octal(mode), (int file, mode_t mode) noexcept, file, mode)
CALL(int, fchown, -1, PathOf(file) + (user + 1 ? " user" : "") + (group + 1 ? " group" : ""),
     (int file, uid_t user, gid_t group) noexcept, file, user, group)
CALL(int, rename, -1, from + (std::string(" ") + to), (const char* from, const char* to) noexcept,
     from, to)
CALL(int, mkdir, -1, path, (const char* path, mode_t mode) noexcept, path, mode)
CALL(int, remove, -1, path, (const char* path) noexcept, path)
CALL(int, unlink, -1, path, (const char* path) noexcept, path)
CALL(int, unlinkat, -1, PathOf(at) + " " + path, (int at, const char* path, int flags) noexcept, at,
     path, flags)
CALL(int, renameat, -1, name, (int from, const char* old, int to, const char* name) noexcept, from,
     old, to, name)
LOOK(ssize_t, pread, -1, (int file, void* data, size_t size, off_t at), file, data, size, at)
LOOK(int, stat, -1, (const char* path, struct stat* status) noexcept, path, status)
LOOK(int, fstat, -1, (int file, struct stat* status) noexcept, file, status)
LOOK(int, access, -1, (const char* path, int mode) noexcept, path, mode)
LOOK(char*, strdup, nullptr, (const char* text) noexcept, text)
LOOK(char*, realpath, nullptr, (const char* path, char* to) noexcept, path, to)
LOOK(DIR*, fdopendir, nullptr, (int file), file)
LOOK(DIR*, opendir, nullptr, (const char* path), path)
// It is closed all the same.
int close(int file) { return NEXT(close)(file) + (Refuse("close") ? -1 : 0) < 0 ? -1 : 0; }

#ifndef ZEL_SANITIZED
LOOK(int, pthread_create, EAGAIN,
     (pthread_t * thread, const pthread_attr_t* with, void* (*run)(void*), void* argument) noexcept,
     thread, with, run, argument)
void* malloc(size_t size) noexcept { return Refuse("malloc") ? nullptr : Allocate(size); }
#endif
}

[[gnu::noinline]] void* operator new(size_t size) {
    void* memory = Refuse("memory") ? nullptr : Allocate(size);
    return memory == nullptr ? throw std::bad_alloc() : memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept { std::free(memory); }
