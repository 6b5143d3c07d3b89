#include "fake_platform.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>
#include <regex>

#include "zel_platform_log.h"
#include "zel_platform_media_content.h"
#include "zel_platform_storage.h"

FakePlatform* g_platform = nullptr;

std::vector<std::string> FakePlatform::TakeLog() {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    return std::exchange(m_Log, {});
}

// A line is kept as the letter of its level and its body; its frame is checked here.
void FakePlatform::AddLine(int prio, const std::string& line) {
    static const std::regex frame(
        "(\\w+\\.cpp): (\\w+)\\((\\d+)\\) > \x1b\\[31m \\[(INFO|WARNNING)\\]:\\[(\\w+):(\\d+)\\] "
        "\\[Thread Id:\\[(\\d+)\\]\\] ([^]*)\x1b\\[0m");
    std::smatch part;
    ASSERT_TRUE(std::regex_match(line, part, frame)) << line;
    EXPECT_EQ(part[2], part[5]);
    EXPECT_EQ(part[3], part[6]);
    EXPECT_EQ(part[4], prio == 4 ? "INFO" : "WARNNING");
    EXPECT_EQ(std::stol(part[7]), syscall(SYS_gettid));
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Log.push_back(part[4].str().substr(0, 1) + " " + part[8].str());
}

extern "C" {

int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...) {
    if (g_platform == nullptr) {
        return 0;
    }
    EXPECT_EQ(log_id, 2);
    EXPECT_STREQ(tag, "ZEL-THUMB-FLASH-CACHE");
    std::vector<char> line(20000);
    va_list arguments;
    va_start(arguments, fmt);
    std::vsnprintf(line.data(), line.size(), fmt, arguments);
    va_end(arguments);
    g_platform->AddLine(prio, line.data());
    return 0;
}

int media_content_connect(void) {
    ++g_platform->connects;
    return g_platform->onConnect ? g_platform->onConnect() : 0;
}

int media_content_disconnect(void) {
    ++g_platform->disconnects;
    return g_platform->disconnectResult;
}

int media_filter_create(media_filter_h* filter) {
    if (++g_platform->filters == g_platform->failingFilter) {
        return -1;
    }
    ++g_platform->liveFilters;
    *filter = g_platform;
    return 0;
}

int media_filter_destroy(media_filter_h filter) {
    g_platform->liveFilters -= filter != nullptr;
    return g_platform->filterDestroyResult;
}

int media_storage_foreach_storage_from_db(media_filter_h filter, media_storage_cb callback,
                                          void* user_data) {
    EXPECT_EQ(filter, g_platform);
    ++g_platform->passes;
    if (g_platform->onPass) {
        g_platform->onPass(g_platform->passes);
    }
    for (FakePlatform::Indexed& storage : g_platform->database) {
        EXPECT_TRUE(callback(&storage, user_data));
    }
    return 0;
}

int media_storage_clone(media_storage_h* out, media_storage_h source) {
    if (g_platform->cloneFails) {
        return -1;
    }
    ++g_platform->liveClones;
    *out = new FakePlatform::Indexed(*static_cast<FakePlatform::Indexed*>(source));
    return 0;
}

int media_storage_destroy(media_storage_h storage) {
    --g_platform->liveClones;
    delete static_cast<FakePlatform::Indexed*>(storage);
    return 0;
}

int media_storage_get_path(media_storage_h storage, char** path) {
    const Text& text = static_cast<FakePlatform::Indexed*>(storage)->path;
    *path = text ? strdup(text->c_str()) : nullptr;
    return 0;
}

int media_storage_get_storage_id(media_storage_h storage, char** storage_id) {
    const Text& text = static_cast<FakePlatform::Indexed*>(storage)->id;
    *storage_id = text ? strdup(text->c_str()) : nullptr;
    return 0;
}

int zel_get_usb_list(enum zel_storage_device_type type, void** list) {
    FakePlatform::Devices& devices = g_platform->devices[type];
    if (devices.result == 0) {
        ++g_platform->liveLists;
        *list = &devices;
    }
    return devices.result;
}

int zel_storage_get_list_count(void* list) {
    const auto* devices = static_cast<FakePlatform::Devices*>(list);
    return devices->count.value_or(static_cast<int>(devices->storages.size()));
}

struct _zel_storage_s* zel_storage_get_storage(int index, void* list) {
    auto& storage = static_cast<FakePlatform::Devices*>(list)->storages.at(index);
    return storage ? reinterpret_cast<_zel_storage_s*>(&*storage) : nullptr;
}

static const char* TextOf(const Text& text) { return text ? text->c_str() : nullptr; }

const char* zel_storage_get_mountpath(struct _zel_storage_s* storage) {
    return TextOf(reinterpret_cast<FakePlatform::Attached*>(storage)->mountPath);
}

const char* zel_storage_get_serialnumber(struct _zel_storage_s* storage) {
    return TextOf(reinterpret_cast<FakePlatform::Attached*>(storage)->serial);
}

int zel_storage_list_destory(void* list) {
    g_platform->liveLists -= list != nullptr;
    return 0;
}
}

#if defined(__SANITIZE_THREAD__)
// GLib is not built with the sanitizer, which therefore does not see that its mutex orders
// anything.
#include <dlfcn.h>
#include <glib.h>
#include <sanitizer/tsan_interface.h>

extern "C" void g_mutex_lock(GMutex* mutex) {
    static const auto lock = reinterpret_cast<void (*)(GMutex*)>(dlsym(RTLD_NEXT, "g_mutex_lock"));
    lock(mutex);
    __tsan_acquire(mutex);
}

extern "C" void g_mutex_unlock(GMutex* mutex) {
    static const auto unlock =
        reinterpret_cast<void (*)(GMutex*)>(dlsym(RTLD_NEXT, "g_mutex_unlock"));
    __tsan_release(mutex);
    unlock(mutex);
}
#endif
