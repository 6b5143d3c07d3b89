// Mock USB devices, with a mount table in a file, as the Linux platform finds them.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <umockdev.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <thread>
#include <tuple>

#include "platform_calls.h"
#include "zel_platform_storage_events.h"

namespace fs = std::filesystem;

inline const std::string kStick = "40 22 8:17 / /opt/storage/usb/a\\040b rw - vfat /dev/sdb1 rw\n";
inline const std::string kStickB = "44 22 8:33 / /opt/storage/usb/b rw - vfat /dev/sdc1 rw\n";
inline const std::string kUnknown = "41 22 0:99 / /opt/storage/usb/demo rw - tmpfs demo rw\n";
inline const std::string kElsewhere = "42 22 8:17 / /opt/storage/usb rw - vfat /dev/sdb1 rw\n";

inline std::string taken(char* text) {
    return std::unique_ptr<char, void (*)(void*)>(text, free).get();
}

inline std::string text_of(_zel_storage_s* from) {
    return zel_storage_get_mountpath(from) + std::string("|") + zel_storage_get_serialnumber(from);
}

struct LinuxPlatform : testing::Test {
    LinuxPlatform() {
        fs::create_directories(root_ / "sys/dev/block");
        EXPECT_TRUE(umockdev_testbed_add_from_file(testbed_, ZEL_TEST_DEVICES, nullptr));
        // One that has just gone.
        fs::create_symlink("../../../devices/usb1/1-9", root_ / "sys/bus/usb/devices/1-9");
        fs::create_symlink("../../devices/usb1/1-1/sdb1", root_ / "sys/dev/block/8:17");
        fs::create_symlink("../../devices/usb1/1-1/sdc1", root_ / "sys/dev/block/8:33");
        g_platform_calls.udev = root_ / "udev";
        setenv("ZEL_MOUNTINFO", table_.c_str(), 1);
        replace_table(kElsewhere);
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, events_), 0);
        const timeval limit{60, 0};  // for an event that does not come
        EXPECT_EQ(setsockopt(events_[1], SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), 0);
        wait_for_other_threads();
        descriptors_ = descriptors(false);
    }
    // No test leaves a descriptor or an event behind, and no file was open to other programs.
    ~LinuxPlatform() override {
        std::ignore = zel_storage_unregister_event_cb();  // of a test that failed
        EXPECT_EQ(descriptors(false), descriptors_);
        EXPECT_EQ(g_platform_calls.shared_files, 0);
        char event[100] = "";
        EXPECT_EQ(recv(events_[1], event, sizeof event, MSG_DONTWAIT), -1) << event;
        close(events_[0]), close(events_[1]);
        g_object_unref(testbed_);
    }
    // The testbed's own thread opens descriptors until it waits.
    static void wait_for_other_threads() {
        const auto is_running = [](const fs::directory_entry& task) {
            std::ifstream file(task.path() / "stat");
            std::string stat;
            return std::getline(file, stat) && stat.find(") S ") == stat.npos;
        };
        while (std::count_if(fs::directory_iterator("/proc/self/task"), {}, is_running) > 1)
            std::this_thread::yield();
    }
    static long descriptors(bool only_inherited) {
        const auto is_counted = [=](const fs::directory_entry& entry) {
            return !only_inherited ||
                   fcntl(std::stoi(entry.path().filename()), F_GETFD) != FD_CLOEXEC;
        };
        return std::count_if(fs::directory_iterator("/proc/self/fd"), {}, is_counted);
    }
    // From now on udev runs; it has looked at the devices that are no storages.
    void start_udev() {
        fs::create_directories(root_ / "udev/data");
        for (const char* file :
             {"control", "data/+usb:1-2", "data/+usb:1-3", "data/+usb:1-4", "data/+usb:1-5"})
            std::ofstream(root_ / "udev" / file) << "I:1\n";
        fs::permissions(root_ / "udev/control", fs::perms::none);  // as it is for a user
    }
    void let_udev_look_at(const std::string& device) {
        std::ofstream(root_ / "udev/data" / device) << "I:1\n";
    }
    void set_property(const std::string& device, const char* name, const std::string& value) {
        umockdev_testbed_set_property(testbed_, ("/sys/devices/usb1/" + device).c_str(), name,
                                      value.c_str());
    }
    void replace_table(const std::string& table) {
        std::ofstream(root_ / "next") << table;
        fs::rename(root_ / "next", table_);
    }
    static void record(void* test, zel_storage_event_e event, _zel_storage_s*& storage) {
        EXPECT_NE(zel_storage_unregister_event_cb(), 0) << "it would wait for itself";
        const std::string text =
            std::to_string(event) + " " + text_of(storage) + (test == events_ ? "" : " of nobody");
        EXPECT_GT(send(events_[0], text.data(), text.size(), 0), 0);
        throw "costs no later event";
    }
    static std::string next_event() {
        char text[100];
        const ssize_t size = read(events_[1], text, sizeof text);
        if (size < 0)
            throw std::runtime_error("no event");
        return {text, static_cast<std::size_t>(size)};
    }
    inline static int events_[2];  // from record() to next_event()
    long descriptors_ = 0;
    UMockdevTestbed* const testbed_ = umockdev_testbed_new();
    const fs::path root_ = taken(umockdev_testbed_get_root_dir(testbed_));
    const fs::path table_ = root_ / "mountinfo";
};
