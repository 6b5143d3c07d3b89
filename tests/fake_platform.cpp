#include "fake_platform.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <boost/algorithm/string/replace.hpp>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <regex>

#include "zel_platform_log.h"
#include "zel_platform_media_content.h"
#include "zel_platform_storage.h"

FakePlatform* g_platform = nullptr;

static auto& DevicesOf(void* list) { return *static_cast<FakePlatform::Devices*>(list); }
static auto& StorageOf(void* handle) { return *static_cast<_zel_storage_s*>(handle); }
static int GiveCopy(const char* text, char** copy) {
    const InPlatform busy;
    *copy = text == nullptr ? nullptr : strdup(text);
    return 0;
}
void FakePlatform::Note(char kind, const std::string& text) {
    const InPlatform busy;
    const std::lock_guard<std::mutex> lock(mutex);
    if (kind == 'P' && !isLocked)
        return;
    std::string& lines = syscall(SYS_gettid) == getpid() ? log : workerLog;
    const bool locked = isLocked && isLocked();
    lines += (lines.empty() ? "" : "|") + std::string(1, char(locked ? kind + 'a' - 'A' : kind));
    lines += " " + text;
}
static int ResultOf(const std::string& call) {
    const InPlatform busy;
    const auto result = g_platform->results.find(call);
    return result == g_platform->results.end() ? 0 : result->second;
}
static int Release(const char* call, void* handle) {
    g_platform->Note('P', call);
    EXPECT_TRUE(handle == nullptr || g_platform->live.erase(handle) == 1);
    return ResultOf(call);
}

extern "C" {

// Checks the frame of a line and keeps the letter of its level and its body.
int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...) {
    const InPlatform busy;
    static const std::regex frame(
        "\\w+\\.cpp: (\\w+)\\((\\d+)\\) > \x1b\\[31m \\[(INFO|WARNNING)\\]:\\[\\1:\\2\\] "
        "\\[Thread Id:\\[(\\d+)\\]\\] ([^]*)\x1b\\[0m");
    EXPECT_EQ(std::to_string(log_id) + tag, "2ZEL-THUMB-FLASH-CACHE");
    std::array<char, 20000> line;
    va_list arguments;
    va_start(arguments, fmt);
    std::vsnprintf(line.data(), line.size(), fmt, arguments);
    va_end(arguments);
    std::cmatch part;
    EXPECT_TRUE(std::regex_match(line.data(), part, frame)) << line.data();
    EXPECT_EQ(part[3], prio == 4 ? "INFO" : "WARNNING");
    EXPECT_EQ(part[4], std::to_string(syscall(SYS_gettid)));
    g_platform->Note(part[3].str()[0], boost::replace_all_copy(part[5].str(), "\n", "~"));
    errno = EPROTO;  // as a platform may leave it
    return 0;
}

int media_content_connect(void) {
    g_platform->Note('P', "connect");
    ++g_platform->connects;
    g_platform->onConnect();
    const int result = ResultOf("connect");
    g_platform->connections += result == 0;
    return result;
}
int media_content_disconnect(void) {
    g_platform->Note('P', "disconnect");
    --g_platform->connections;
    return ++g_platform->disconnects, ResultOf("disconnect");
}

int media_filter_create(media_filter_h* filter) {
    g_platform->Note('P', "filter_create");
    const InPlatform busy;
    const int result = ResultOf("filter" + std::to_string(g_platform->passes + 1));
    if (result == 0)
        g_platform->live.insert(*filter = g_platform);
    return result;
}
int media_filter_destroy(media_filter_h filter) { return Release("filter_destroy", filter); }
int media_storage_foreach_storage_from_db(media_filter_h filter, media_storage_cb callback,
                                          void* data) {
    EXPECT_EQ(g_platform->live.count(filter), 1U);
    g_platform->Note('P', "foreach");
    g_platform->onPass(++g_platform->passes);
    for (_zel_storage_s& storage : g_platform->database)
        EXPECT_TRUE(callback(&storage, data));
    return ResultOf("foreach");
}

int media_storage_clone(media_storage_h* out, media_storage_h source) {
    g_platform->Note('P', "clone");
    const InPlatform busy;
    const int result = ResultOf("clone");
    if (result == 0)
        g_platform->live.insert(*out = new _zel_storage_s(StorageOf(source)));
    return result;
}
int media_storage_destroy(media_storage_h storage) {
    delete &StorageOf(storage);
    return Release("destroy", storage);
}
int media_storage_get_path(media_storage_h storage, char** path) {
    return GiveCopy(StorageOf(storage).path, path);
}
int media_storage_get_storage_id(media_storage_h storage, char** id) {
    return GiveCopy(StorageOf(storage).id, id);
}

int zel_get_usb_list(enum zel_storage_device_type type, void** list) {
    const std::string kind = type == ZEL_STORAGE_DEVICE_TYPE_USB ? "usb" : "ptp";
    g_platform->Note('P', "list " + kind);
    const InPlatform busy;
    const int result = ResultOf(kind);
    if (result == 0)
        g_platform->live.insert(*list = &g_platform->devices[type]);
    return result;
}
int zel_storage_get_list_count(void* list) {
    return DevicesOf(list).count.value_or(static_cast<int>(DevicesOf(list).storages.size()));
}
_zel_storage_s* zel_storage_get_storage(int index, void* list) {
    auto& storage = DevicesOf(list).storages.at(index);
    return storage ? &*storage : nullptr;
}
const char* zel_storage_get_mountpath(_zel_storage_s* storage) { return storage->path; }
const char* zel_storage_get_serialnumber(_zel_storage_s* storage) { return storage->id; }
int zel_storage_list_destory(void* list) { return Release("list_destory", list); }

#if defined(__SANITIZE_THREAD__)
// GLib is not built with the sanitizer, which would not see what its mutex orders.
static std::mutex& MutexOf(GMutex* mutex) { return *static_cast<std::mutex*>(mutex->p); }
void g_mutex_init(GMutex* mutex) { mutex->p = new std::mutex; }
void g_mutex_clear(GMutex* mutex) { delete &MutexOf(mutex); }
void g_mutex_lock(GMutex* mutex) { MutexOf(mutex).lock(); }
gboolean g_mutex_trylock(GMutex* mutex) { return MutexOf(mutex).try_lock(); }
void g_mutex_unlock(GMutex* mutex) { MutexOf(mutex).unlock(); }
#endif
}
