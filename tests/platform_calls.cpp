#include "platform_calls.h"

#include <dirent.h>
#include <dlfcn.h>
#include <link.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

PlatformCalls g_platform_calls;

bool is_in_library(void* code, const char* name) {
    dl_find_object object;
    return _dl_find_object(code, &object) == 0 &&
           std::strstr(object.dlfo_link_map->l_name, name) != nullptr;
}

// What the mock devices call for themselves never fails.
static bool hit(void* caller, int error) {
    PlatformCalls& calls = g_platform_calls;
    if (calls.first == 0 || is_in_library(caller, "umockdev"))
        return false;
    const int number = ++calls.calls;
    if (number < calls.first || (number > calls.first && !calls.all))
        return false;
    errno = error;
    return true;
}

// The path with the test's folder in the place of /run/udev.
static const char* moved(const char* path) {
    constexpr char udev[] = "/run/udev";
    constexpr size_t length = sizeof udev - 1;
    thread_local char text[300];
    if (std::strncmp(path, udev, length) != 0)
        return path;
    std::snprintf(text, sizeof text, "%s%s", g_platform_calls.udev.c_str(), path + length);
    return text;
}

#define NEXT(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))
#define CALL(type, name, failure, error, real, parameters, ...)                         \
    type name parameters {                                                              \
        return hit(__builtin_return_address(0), error) || g_platform_calls.fails(#name) \
                   ? (failure)                                                          \
                   : real(__VA_ARGS__);                                                 \
    }

static int noted(void* caller, int flags) {
    if ((flags & IN_CLOEXEC) == 0 && is_in_library(caller, "libzel"))
        ++g_platform_calls.shared_files;
    return flags;
}

static std::atomic<std::int64_t> slept{0};

static bool interrupts() {
    static std::atomic<bool> interrupted{false};
    return g_platform_calls.interrupting && (interrupted = !interrupted) && (errno = EINTR);
}

extern "C" {

CALL(int, access, -1, EACCES, NEXT(access), (const char* path, int mode) noexcept, moved(path),
     mode)
CALL(int, open64, -1, EMFILE, NEXT(open64), (const char* path, int flags, unsigned mode),
     moved(path), noted(__builtin_return_address(0), flags), mode)
CALL(int, openat64, -1, EMFILE, NEXT(openat64), (int at, const char* path, int flags), at,
     moved(path), flags)
CALL(FILE*, fopen64, nullptr, EMFILE, NEXT(fopen64), (const char* path, const char* mode),
     moved(path), mode)
CALL(DIR*, opendir, nullptr, EMFILE, NEXT(opendir), (const char* path), path)
CALL(FILE*, fmemopen, nullptr, ENOMEM, NEXT(fmemopen),
     (void* data, size_t size, const char* mode) noexcept, data, size, mode)

ssize_t read(int file, void* data, size_t size) {
    if (hit(__builtin_return_address(0), EIO))
        return -1;
    const bool is_of_events = file == g_platform_calls.inotify;
    if (is_of_events)
        g_platform_calls.on_events();
    const ssize_t count = NEXT(read)(file, data, size);
    if (!is_of_events || count <= 0 || !g_platform_calls.overflowing)
        return count;
    *static_cast<inotify_event*>(data) = {-1, IN_Q_OVERFLOW, 0, 0};
    return sizeof(inotify_event);
}
int poll(pollfd* files, nfds_t count, int timeout) {
    const bool is_of_platform = is_in_library(__builtin_return_address(0), "libzel");
    if (is_of_platform && g_platform_calls.first_wait_blocks == -1) {
        sigset_t blocked;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        g_platform_calls.first_wait_blocks = sigismember(&blocked, SIGTERM);
    }
    if (is_of_platform && timeout >= 0)
        return 0;  // a wait that is to end does so at once
    const bool fails = is_of_platform && (interrupts() || g_platform_calls.fails("poll"));
    return fails ? -1 : NEXT(poll)(files, count, timeout);
}
ssize_t write(int file, const void* data, size_t size) {
    const bool fails = g_platform_calls.full && (errno = EAGAIN);
    return fails || interrupts()
               ? -1
               : NEXT(write)(file, data, std::min(size, g_platform_calls.piece.load()));
}
int fdatasync(int) { return 0; }  // no test of this program cuts the power

// A sleep moves the clock alone.
int nanosleep(const timespec* time, timespec*) {
    slept += (time->tv_sec * 1000000000 + time->tv_nsec) *
             std::max(g_platform_calls.sleep_factor.load(), 1);
    g_platform_calls.on_pause();
    return 0;
}
int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const char* name = sizeof(time_t) > sizeof(long) ? "__clock_gettime64" : "clock_gettime";
    const int result =
        reinterpret_cast<decltype(&clock_gettime)>(dlsym(RTLD_NEXT, name))(clock, time);
    if (g_platform_calls.sleep_factor != 0)
        *time = {};
    const std::int64_t nanoseconds = time->tv_nsec + slept;
    time->tv_sec += nanoseconds / 1000000000;
    time->tv_nsec = static_cast<long>(nanoseconds % 1000000000);
    return result;
}
#ifdef __USE_TIME_BITS64
// For libraries that were built for dates until January 2038.
int narrow_clock(clockid_t clock, std::array<std::int32_t, 2>* time) noexcept
    __asm__("clock_gettime");
int narrow_clock(clockid_t clock, std::array<std::int32_t, 2>* time) noexcept {
    timespec wide;
    const int result = clock_gettime(clock, &wide);
    *time = {static_cast<std::int32_t>(wide.tv_sec), static_cast<std::int32_t>(wide.tv_nsec)};
    return result;
}
#endif

#ifndef ZEL_SANITIZED
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);

CALL(void*, malloc, nullptr, ENOMEM, __libc_malloc, (size_t size) noexcept, size)
CALL(void*, calloc, nullptr, ENOMEM, __libc_calloc, (size_t count, size_t size) noexcept, count,
     size)
CALL(void*, realloc, nullptr, ENOMEM, __libc_realloc, (void* memory, size_t size) noexcept, memory,
     size)
#endif
}
