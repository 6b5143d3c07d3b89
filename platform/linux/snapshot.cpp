#include "snapshot.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <utility>

#include "guarded.h"
#include "zel_platform_log.h"

namespace zel::platform {
namespace {

constexpr std::chrono::milliseconds kLongestWait(3000), kPause(20);
constexpr int kMostLooks = 5;

struct Connections {
    int count = 0;
    SnapshotPointer last;
};

// Never destroyed: a process may end while another of its threads asks for devices.
Guarded<Connections>& connections = *new Guarded<Connections>;

void log_failure(const char* what, const std::exception& reason) {
    std::ignore = __dlog_print(2, ZEL_PLATFORM_LOG_WARN, "ZEL-LINUX-PLATFORM", "%s: %s\n", what,
                               reason.what());  // there is no other place to tell it
}

// What two looks in a row agree on, the last snapshot being one if there is any: libudev passes
// without a word over a property that it has no memory for, and the device would seem to have
// another id, or to be no camera. Null when udev has still to look at a device.
SnapshotPointer look(const SnapshotPointer& last) {
    const auto is_probed = [](const auto& device) { return device.is_probed; };
    Devices before = last ? last->devices : Devices();
    for (int looks = 1; looks < kMostLooks; ++looks) {
        Devices now;
        if (last && now == last->devices)
            return last;
        if (now == before) {
            const bool all_are_probed =
                std::all_of(now.mounts.begin(), now.mounts.end(), is_probed) &&
                std::all_of(now.cameras.begin(), now.cameras.end(), is_probed);
            return all_are_probed ? new Snapshot(std::move(now)) : nullptr;
        }
        before = std::move(now);
    }
    throw std::runtime_error("they change from one look to the next");
}

SnapshotPointer look_until_probed() {
    const auto end = std::chrono::steady_clock::now() + kLongestWait;
    SnapshotPointer now = look(nullptr);
    while (!now && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(kPause);
        now = look(nullptr);
    }
    return now;
}

SnapshotPointer not_null(SnapshotPointer snapshot) {
    if (!snapshot)
        throw std::runtime_error("udev has not looked at every device yet");
    return snapshot;
}

}  // namespace

CopiedText::CopiedText(const std::string& text) : text_(text), spare_(strdup(text_.c_str())) {
    if (spare_ == nullptr)
        throw std::bad_alloc();
}

CopiedText::~CopiedText() { std::free(spare_); }

char* CopiedText::copy() const {
    if (char* text = strdup(text_.c_str()))
        return text;
    return spare_.exchange(nullptr);
}

Snapshot::Snapshot(Devices attached)
    : devices(std::move(attached)), usb{this, to_storages(devices.mounts)}, cameras{this, {}} {
    for (const UsbMount& mount : devices.mounts)
        database.emplace_back(this, mount);
    for (const Camera& camera : devices.cameras)
        cameras.storages.push_back({"", camera.serial_number, 0});
}

bool connect_devices() noexcept try {
    SnapshotPointer now = not_null(look_until_probed());
    auto held = connections.access();
    ++held->count;
    held->last.swap(now);
    return true;
} catch (const std::exception& error) {
    log_failure("the attached devices cannot be listed", error);
    return false;
}

bool disconnect_devices() noexcept {
    SnapshotPointer released;  // after the lock
    auto held = connections.access();
    if (held->count == 0)
        return false;
    if (--held->count == 0)
        released.swap(held->last);
    return true;
}

bool is_connected() noexcept { return connections.access()->count > 0; }

SnapshotPointer attached_devices() noexcept {
    const SnapshotPointer last = connections.access()->last;
    SnapshotPointer now;
    try {
        now = not_null(look(last));
    } catch (const std::exception& error) {
        log_failure(last ? "the attached devices are taken from the last time"
                         : "the attached devices cannot be listed",
                    error);
    }
    auto held = connections.access();
    if (!now)
        return held->last;
    if (held->count > 0)
        held->last = now;
    return now;
}

}  // namespace zel::platform
