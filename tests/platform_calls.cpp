#include "platform_calls.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

PlatformCalls g_platform_calls;

namespace {

struct AddressRange {
    std::uintptr_t begin = 0, end = 0;
};

int find_mock(dl_phdr_info* object, std::size_t, void* range) {
    if (std::strstr(object->dlpi_name, "umockdev-preload") == nullptr)
        return 0;
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const auto& part = object->dlpi_phdr[i];
        if (part.p_type == PT_LOAD && (part.p_flags & PF_X) != 0)
            *static_cast<AddressRange*>(range) = {object->dlpi_addr + part.p_vaddr,
                                                  object->dlpi_addr + part.p_vaddr + part.p_memsz};
    }
    return 1;
}

AddressRange mock;
const int g_is_mock_found = dl_iterate_phdr(find_mock, &mock);

// What the mock devices call for themselves never fails.
bool hit(void* caller, int error) {
    PlatformCalls& calls = g_platform_calls;
    const auto address = reinterpret_cast<std::uintptr_t>(caller);
    if (calls.first == 0 || (address >= mock.begin && address < mock.end))
        return false;
    const int number = ++calls.calls;
    if (number < calls.first || (number > calls.first && !calls.all))
        return false;
    errno = error;
    return true;
}

// The path with another folder in the place of /run/udev.
class Redirected {
public:
    explicit Redirected(const char* path) : path_(path) {
        constexpr char udev[] = "/run/udev";
        if (std::strncmp(path, udev, sizeof udev - 1) == 0) {
            std::snprintf(text_, sizeof text_, "%s%s", g_platform_calls.udev.c_str(),
                          path + sizeof udev - 1);
            path_ = text_;
        }
    }
    operator const char*() const { return path_; }

private:
    char text_[300];
    const char* path_;
};

}  // namespace

#define NEXT(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))
#define CALL(type, name, failure, error, parameters, ...)                                     \
    type name parameters {                                                                    \
        return hit(__builtin_return_address(0), error) ? (failure) : NEXT(name)(__VA_ARGS__); \
    }

extern "C" {

int access(const char* path, int mode) noexcept {
    return hit(__builtin_return_address(0), EACCES) ? -1 : NEXT(access)(Redirected(path), mode);
}
int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return hit(__builtin_return_address(0), EMFILE) ? -1
                                                    : NEXT(open64)(Redirected(path), flags, mode);
}
FILE* fopen64(const char* path, const char* mode) {
    return hit(__builtin_return_address(0), EMFILE) ? nullptr
                                                    : NEXT(fopen64)(Redirected(path), mode);
}
int openat64(int at, const char* path, int flags, ...) {
    return hit(__builtin_return_address(0), EMFILE) ? -1
                                                    : NEXT(openat64)(at, Redirected(path), flags);
}
CALL(ssize_t, read, -1, EIO, (int file, void* data, std::size_t size), file, data, size)
CALL(DIR*, opendir, nullptr, EMFILE, (const char* path), path)
CALL(FILE*, fmemopen, nullptr, ENOMEM, (void* data, std::size_t size, const char* mode) noexcept,
     data, size, mode)

int fdatasync(int) { return 0; }  // no test of this program cuts the power

// A sleep moves the clock alone.
static std::atomic<long> slept{0};
int nanosleep(const timespec* time, timespec*) {
    slept += time->tv_sec * 1000000000 + time->tv_nsec;
    g_platform_calls.on_pause();
    return 0;
}
int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const int result = NEXT(clock_gettime)(clock, time);
    const long nanoseconds = time->tv_nsec + slept;
    time->tv_sec += nanoseconds / 1000000000;
    time->tv_nsec = nanoseconds % 1000000000;
    return result;
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);

void* malloc(std::size_t size) noexcept {
    return hit(__builtin_return_address(0), ENOMEM) ? nullptr : __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) noexcept {
    return hit(__builtin_return_address(0), ENOMEM) ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) noexcept {
    return hit(__builtin_return_address(0), ENOMEM) ? nullptr : __libc_realloc(memory, size);
}
#endif
}
