// The platform as the tests script it: what it answers, what it was asked, and what was logged.
#ifndef ZEL_TESTS_FAKE_PLATFORM_H
#define ZEL_TESTS_FAKE_PLATFORM_H

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

using Text = std::optional<std::string>;

struct FakePlatform {
    struct Attached {
        Text mountPath;
        Text serial;
    };
    struct Indexed {
        Text path;
        Text id;
    };
    struct Devices {
        int result = 0;
        std::vector<std::optional<Attached>> storages;
        std::optional<int> count;  // to lie about their number
    };

    std::map<int, Devices> devices;        // by kind
    std::vector<Indexed> database;         // what the media-content database knows
    std::function<void(int pass)> onPass;  // called before a reading of it, the first is 1
    std::function<int()> onConnect;        // gives the result of a connection
    int disconnectResult = 0;
    int failingFilter = 0;  // the filter with this number cannot be made
    int filterDestroyResult = 0;
    bool cloneFails = false;

    std::atomic<int> connects{0};
    int disconnects = 0, filters = 0, passes = 0;
    int liveLists = 0, liveFilters = 0, liveClones = 0;

    std::vector<std::string> TakeLog();  // the lines since the last call: "I body" or "W body"
    void AddLine(int prio, const std::string& line);

private:
    std::mutex m_Mutex;
    std::vector<std::string> m_Log;
};

extern FakePlatform* g_platform;

#endif
