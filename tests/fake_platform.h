// The platform as the tests script it: what it answers, what it was asked, and what was logged.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

// A storage that is attached, with its serial number, or one of the database, with its id.
struct _zel_storage_s {
    const char* path;
    const char* id = nullptr;
};

struct FakePlatform {
    // Adds to the log: the letter of the level, or P for a call of the platform and S for one of
    // the system; the first only when it is a trace.
    void Note(char kind, const std::string& text);

    struct Devices {
        std::vector<std::optional<_zel_storage_s>> storages = {};
        std::optional<int> count = {};  // to lie about their number
    };
    std::map<int, Devices> devices;                // by kind
    std::vector<_zel_storage_s> database;          // of media content
    std::function<void(int)> onPass = [](int) {};  // before its nth reading, the first is 1
    std::function<void()> onConnect = [] {};
    // What calls give that do not give 0, by their names in the log; "usb" and "ptp" are the lists,
    // and "filter" with a number is the filter of that pass.
    std::map<std::string, int> results;
    std::atomic<int> connects{0}, disconnects{0}, passes{0};
    std::atomic<int> connections{0};  // that are open
    std::set<void*> live;             // lists, filters and clones that are not released
    std::mutex mutex;
    std::string log, workerLog;      // guarded by the mutex; see CacheTest::Log()
    std::function<bool()> isLocked;  // makes them a trace; see CacheTest::Trace()
};

extern FakePlatform* g_platform;

// Lives while the platform works for itself, which is not what a test lets fail.
struct InPlatform {
    InPlatform() : outer(active) { active = true; }
    ~InPlatform() { active = outer; }
    const bool outer;
    inline static thread_local bool active = false;
};
