// Preloaded into the command: lets calls that it makes fail, and tells of those that come in pairs.
//
// ZEL_FAILING names the function that fails, what it leaves in errno, how many of its calls go well
// before, and the end of the path that they are about, as in "unlinkat 5 0 /x.jpg"; without a path,
// all of them count. With EINTR the first of them does not fail but is where SIGTERM comes.
// ZEL_CALLS is the file that gets a line for each call of the platform's functions that are to be
// undone.
//
// The calls are defined by their plain names; the build gives them those for large files as well.
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "zel_platform_media_content.h"
#include "zel_platform_storage_events.h"
#include "zel_thumbnail_flash_cache.h"

struct Failure {
    std::string call;
    int error = 0;
    int skipped = 0;
    std::string path;
};

static const Failure& Wanted() {
    static const Failure& failure = *[] {
        auto* read = new Failure;  // never destroyed, as calls are made until the end
        const char* text = std::getenv("ZEL_FAILING");
        std::istringstream(text != nullptr ? text : "") >> read->call >> read->error >>
            read->skipped >> read->path;
        return read;
    }();
    return failure;
}

static bool Fails(const std::string& path) {
    static std::atomic<int> calls{0};
    const std::string& end = Wanted().path;
    if (path.size() < end.size() || path.compare(path.size() - end.size(), end.size(), end) != 0 ||
        calls++ < Wanted().skipped)
        return false;
    errno = Wanted().error;
    if (errno == EINTR) {
        static const int sent = raise(SIGTERM);
        return sent != 0;
    }
    return true;
}

static std::string PathOf(int file) {
    char path[PATH_MAX];
    const ssize_t length =
        readlink(("/proc/self/fd/" + std::to_string(file)).c_str(), path, sizeof path);
    return {path, static_cast<std::size_t>(length < 0 ? 0 : length)};
}

static void Note(const char* call) {
    if (const char* file = std::getenv("ZEL_CALLS"))
        std::ofstream(file, std::ios::app) << (std::string(call) + "\n") << std::flush;
}

#define NEXT(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))
#define FAILS(name, path) (Wanted().call == #name && Fails(path))
#define CALL(type, name, failure, path, parameters, ...) \
    type name parameters { return FAILS(name, path) ? (failure) : NEXT(name)(__VA_ARGS__); }
#define OPEN(name, path, parameters, ...)                                           \
    int name parameters {                                                           \
        va_list arguments;                                                          \
        va_start(arguments, flags);                                                 \
        const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0; \
        va_end(arguments);                                                          \
        return FAILS(name, path) ? -1 : NEXT(name)(__VA_ARGS__, mode);              \
    }
#define PAIRED(name, parameters, arguments)                 \
    int name parameters {                                   \
        Note(#name);                                        \
        return FAILS(name, "") ? -1 : NEXT(name) arguments; \
    }

extern "C" {

OPEN(open, path, (const char* path, int flags, ...), path, flags)
OPEN(openat, name, (int at, const char* name, int flags, ...), at, name, flags)
CALL(DIR*, fdopendir, nullptr, PathOf(file), (int file), file)
CALL(dirent*, readdir, nullptr, PathOf(dirfd(of)), (DIR * of), of)
CALL(ssize_t, read, -1, PathOf(file), (int file, void* data, size_t size), file, data, size)
CALL(int, stat, -1, path, (const char* path, struct stat* status) noexcept, path, status)
CALL(int, lstat, -1, path, (const char* path, struct stat* status) noexcept, path, status)
CALL(int, fstat, -1, PathOf(file), (int file, struct stat* status) noexcept, file, status)
CALL(int, fstatat, -1, name, (int at, const char* name, struct stat* status, int flags) noexcept,
     at, name, status, flags)
CALL(int, access, -1, path, (const char* path, int mode) noexcept, path, mode)
CALL(char*, realpath, nullptr, path, (const char* path, char* to) noexcept, path, to)
CALL(int, mkdir, -1, path, (const char* path, mode_t mode) noexcept, path, mode)
CALL(int, rename, -1, to, (const char* from, const char* to) noexcept, from, to)
CALL(int, remove, -1, path, (const char* path) noexcept, path)
CALL(int, unlinkat, -1, name, (int at, const char* name, int flags) noexcept, at, name, flags)
CALL(int, fsync, -1, PathOf(file), (int file), file)
CALL(int, fdatasync, -1, PathOf(file), (int file), file)
CALL(int, flock, -1, PathOf(file), (int file, int operation) noexcept, file, operation)
CALL(int, inotify_init1, -1, "", (int flags) noexcept, flags)
CALL(int, pthread_create, EAGAIN, "",
     (pthread_t * thread, const pthread_attr_t* with, void* (*run)(void*), void* argument) noexcept,
     thread, with, run, argument)
CALL(GdkPixbuf*, gdk_pixbuf_apply_embedded_orientation, nullptr, "", (GdkPixbuf * of), of)
CALL(GdkPixbuf*, gdk_pixbuf_scale_simple, nullptr, "",
     (const GdkPixbuf* of, int width, int height, GdkInterpType how), of, width, height, how)

PAIRED(media_content_connect, (void), ())
PAIRED(media_content_disconnect, (void), ())
PAIRED(media_filter_create, (media_filter_h * filter), (filter))
PAIRED(media_filter_destroy, (media_filter_h filter), (filter))
PAIRED(zel_get_usb_list, (zel_storage_device_type type, void** list), (type, list))
PAIRED(zel_storage_list_destory, (void* list), (list))
PAIRED(zel_storage_register_event_cb, (zel_storage_event_cb callback, void* user_data),
       (callback, user_data))
PAIRED(zel_storage_unregister_event_cb, (void), ())
CALL(int, media_storage_foreach_storage_from_db, -1, "",
     (media_filter_h filter, media_storage_cb callback, void* user_data), filter, callback,
     user_data)
CALL(int, media_storage_get_storage_id, -1, "", (media_storage_h of, char** id), of, id)
CALL(_zel_storage_s*, zel_storage_get_storage, nullptr, "", (int index, void* list), index, list)
CALL(const char*, zel_storage_get_mountpath, nullptr, "", (_zel_storage_s * of), of)
CALL(const char*, zel_storage_get_serialnumber, nullptr, "", (_zel_storage_s * of), of)
CALL(int, zel_thumbnail_flash_cache_init, 0, "", (const char* index), index)
}
