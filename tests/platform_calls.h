// The calls to the system that the Linux platform and the libraries below it make, which a test
// lets fail. They are defined in the executable, so that every shared library finds these first.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

struct PlatformCalls {
    std::atomic<int> first{0};     // the number of the call that fails; 0 lets every one through
    std::atomic<bool> all{false};  // and all that follow
    std::atomic<int> calls{0};     // made since then
    std::string udev;              // stands in for /run/udev
    std::atomic<bool> interrupting{false};  // every second wait for events and write to the log is
    std::atomic<std::size_t> piece{SIZE_MAX};  // the most bytes that one write takes
    std::atomic<bool> full{false};             // no write takes any now, and none waits
    std::function<void()> on_pause = [] {};    // in place of every sleep, which takes no time
    std::atomic<int> sleep_factor{0};  // unless 0, only sleeps take time, so many times their own
    std::function<void()> on_look = [] {};   // before each listing of the USB devices
    std::function<void()> on_watch = [] {};  // before a watch of the mount table in a file
    std::atomic<int> shared_files{0};        // that the platform opened for other programs as well
    std::string_view failing;  // the name of a function that fails whenever it is called,
    int error = 0;             // and what it leaves in errno
    bool fails(std::string_view function) const {
        return failing == function && (errno = error, true);
    }
    // Whether SIGTERM is blocked when the platform waits for the first time after a -1. Later the
    // thread may have the mask of another one, as the mock devices keep it in one place.
    std::atomic<int> first_wait_blocks{-1};
    std::atomic<int> inotify{-1};             // the last that was made
    std::function<void()> on_events = [] {};  // before every look at what it has to tell
    std::atomic<bool> overflowing{false};     // it tells only that it had too much to tell
};

extern PlatformCalls g_platform_calls;

// Whether that is code of a library with such a name.
bool is_in_library(void* code, const char* name);
