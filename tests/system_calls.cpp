#include "system_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/sendfile.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "fake_platform.h"

SystemCalls* g_calls = nullptr;

static bool Refuse(const char* call) {
    if (g_calls == nullptr || InPlatform::active)
        return false;
    const std::string name = std::string(" ") + call;
    std::string& trace = g_calls->trace;
    if (trace.size() < name.size() || trace.substr(trace.size() - name.size()) != name)
        trace += name;
    const auto refused = g_calls->refused.find(call);
    return refused != g_calls->refused.end() && (errno = refused->second, true);
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
    if (g_platform == nullptr)
        return;
    EXPECT_TRUE(flags & O_CLOEXEC) << path;
    EXPECT_TRUE(flags & (O_NONBLOCK | O_EXCL | O_DIRECTORY)) << path;
}

#define NEXT(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))
#define CALL(name, type, parameters, ...) \
    type name parameters { return Refuse(#name) ? -1 : NEXT(name)(__VA_ARGS__); }

extern "C" {

int open(const char* path, int flags, ...) {
    va_list mode;
    va_start(mode, flags);
    const mode_t bits = flags & O_CREAT ? va_arg(mode, mode_t) : 0;
    va_end(mode);
    ExpectSafe(path, flags);
    return Refuse(flags & O_EXCL ? "new" : "open") ? -1 : NEXT(open)(path, flags, bits);
}
int openat(int at, const char* path, int flags, ...) {
    ExpectSafe(path, flags);
    return NEXT(openat)(at, path, flags);
}
ssize_t read(int file, void* data, size_t size) {
    return RefuseOrCut("read", size) ? -1 : NEXT(read)(file, data, size);
}
ssize_t write(int file, const void* data, size_t size) {
    return RefuseOrCut("write", size) ? -1 : NEXT(write)(file, data, size);
}
CALL(sendfile, ssize_t, (int to, int from, off_t* at, size_t size) noexcept, to, from, at,
     g_calls == nullptr ? size : std::min(size, g_calls->piece))
CALL(ftruncate, int, (int file, off_t size) noexcept, file, size)
CALL(fdatasync, int, (int file), file)
CALL(rename, int, (const char* from, const char* to) noexcept, from, to)
}
