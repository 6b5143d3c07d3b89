// The calls to the system that the Linux platform and the libraries below it make, which a test
// lets fail. They are defined in the executable, so that every shared library finds these first.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

struct PlatformCalls {
    std::atomic<int> first{0};     // the number of the call that fails; 0 lets every one through
    std::atomic<bool> all{false};  // and all that follow
    std::atomic<int> calls{0};     // made since then
    std::string udev;              // stands in for /run/udev
    std::atomic<bool> interrupting{false};  // every second wait for events and write to the log is
    std::atomic<std::size_t> piece{SIZE_MAX};  // the most bytes that one write takes
    std::function<void()> on_pause = [] {};    // in place of every sleep, which takes no time
};

extern PlatformCalls g_platform_calls;
