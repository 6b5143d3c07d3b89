// The services of the Linux platform with mock USB devices and a mount table in a file.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <umockdev.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>

#include "zel_platform_log.h"
#include "zel_platform_media_content.h"
#include "zel_platform_storage_events.h"

namespace fs = std::filesystem;

constexpr char kDevices[] =
    "P: /devices/usb1/1-1/sdb1\nE: SUBSYSTEM=block\nE: MAJOR=8\nE: MINOR=17\n"
    "E: ID_FS_UUID=4D1C-9F07\nE: ID_SERIAL=Stick_S1\nE: ID_SERIAL_SHORT=S1\n\n"
    "P: /devices/usb1/1-2\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\n"
    "E: ID_USB_INTERFACES=:030001:060101:\nE: ID_SERIAL_SHORT=C1\n\n"
    "P: /devices/usb1/1-3\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: ID_GPHOTO2=1\n"
    "A: serial=C2\\n\n\nP: /devices/usb1/1-4\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\n"
    "E: ID_USB_INTERFACES=:080650:\n";
const std::string kStick = "40 22 8:17 / /opt/storage/usb/a\\040b rw - vfat /dev/sdb1 rw\n";
const std::string kUnknown = "41 22 0:99 / /opt/storage/usb/demo rw - tmpfs demo rw\n";
const std::string kElsewhere =
    "42 22 8:17 / /opt/storage/usb rw - vfat /dev/sdb1 rw\n"
    "43 22 8:17 / /mnt/opt/storage/usb/x rw - vfat /dev/sdb1 rw\n";

static std::string taken(char* text) {
    return std::unique_ptr<char, void (*)(void*)>(text, free).get();
}

static std::string text_of(_zel_storage_s* from) {
    return zel_storage_get_mountpath(from) + std::string("|") + zel_storage_get_serialnumber(from);
}

static std::string listed(zel_storage_device_type type) {
    void* list = nullptr;
    std::string found = zel_get_usb_list(type, &list) == 0 ? "" : "failed";
    for (int i = 0; i < zel_storage_get_list_count(list); ++i)
        found += text_of(zel_storage_get_storage(i, list)) + "\n";
    return zel_storage_list_destory(list) == 0 ? found : "failed";
}

static bool add_text(media_storage_h storage, void* found) {
    media_storage_h copy = nullptr;
    char *id = nullptr, *path = nullptr;
    EXPECT_FALSE(media_storage_clone(&copy, storage) || media_storage_get_storage_id(copy, &id) ||
                 media_storage_get_path(copy, &path) || media_storage_destroy(copy));
    *static_cast<std::string*>(found) += taken(id) + "|" + taken(path) + "\n";
    return true;
}

static std::string database() {
    media_filter_h filter = nullptr;
    std::string found;
    EXPECT_EQ(media_filter_create(&filter), 0);
    const int result = media_storage_foreach_storage_from_db(filter, add_text, &found);
    return media_filter_destroy(filter) || result ? "failed" : found;
}

struct LinuxPlatform : testing::Test {
    LinuxPlatform() {
        fs::create_directories(root_ / "sys/dev/block");
        fs::create_symlink("../../devices/usb1/1-1/sdb1", root_ / "sys/dev/block/8:17");
        EXPECT_TRUE(umockdev_testbed_add_from_string(testbed_, kDevices, nullptr));
        setenv("ZEL_MOUNTINFO", table_.c_str(), 1);
        replace_table(kElsewhere);
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, events_), 0);
    }
    ~LinuxPlatform() override {
        close(events_[0]), close(events_[1]);
        g_object_unref(testbed_);
    }
    void replace_table(const std::string& table) {
        std::ofstream(root_ / "next") << table;
        fs::rename(root_ / "next", table_);
    }
    static void record(void*, zel_storage_event_e event, _zel_storage_s*& storage) {
        const std::string text = std::to_string(event) + " " + text_of(storage);
        EXPECT_GT(send(events_[0], text.data(), text.size(), 0), 0);
        throw std::runtime_error("costs no later event");
    }
    static std::string next_event() {
        char text[100];
        return {text, static_cast<std::size_t>(read(events_[1], text, sizeof text))};
    }
    inline static int events_[2];  // from record() to next_event()
    UMockdevTestbed* const testbed_ = umockdev_testbed_new();
    const fs::path root_ = taken(umockdev_testbed_get_root_dir(testbed_));
    const fs::path table_ = root_ / "mountinfo";
};

TEST_F(LinuxPlatform, ListsStoragesAndCamerasAndKnowsTheirIdsWhileConnected) {
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_USB), "");
    replace_table(kElsewhere + kUnknown + kStick);
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_USB),
              "/opt/storage/usb/a b|S1\n/opt/storage/usb/demo|\n");
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_PTP), "|C1\n|C2\n");
    EXPECT_EQ(database(), "failed");
    EXPECT_EQ(media_content_connect(), 0);
    EXPECT_EQ(database(), "4D1C-9F07|/opt/storage/usb/a b\ndemo|/opt/storage/usb/demo\n");
    fs::remove(table_);
    EXPECT_EQ(database() + listed(ZEL_STORAGE_DEVICE_TYPE_USB), "failedfailed");
    EXPECT_NE(zel_storage_register_event_cb(record, this), 0);
    EXPECT_EQ(media_content_disconnect(), 0);
}

TEST_F(LinuxPlatform, EventsFollowTheMountTableFromRegistrationToItsEnd) {
    for (int registration = 0; registration < 2; ++registration) {
        replace_table(kStick);
        ASSERT_EQ(zel_storage_register_event_cb(record, this), 0);
        EXPECT_NE(zel_storage_register_event_cb(record, this), 0);
        replace_table(kUnknown);
        EXPECT_EQ(next_event(), "2 /opt/storage/usb/a b|S1");
        EXPECT_EQ(next_event(), "1 /opt/storage/usb/demo|");
        std::ofstream(table_) << kElsewhere;
        EXPECT_EQ(next_event(), "2 /opt/storage/usb/demo|");
        EXPECT_EQ(zel_storage_unregister_event_cb(), 0);
        EXPECT_NE(zel_storage_unregister_event_cb(), 0);
    }
}

TEST(LinuxLog, EndsEachLineOnceAndDropsWhatIsBelowTheLevel) {
    const std::string text(5000, 'x'), line = "TAG: " + text, reset = "\033[0m";
    testing::internal::CaptureStderr();
    __dlog_print(2, ZEL_PLATFORM_LOG_INFO, "TAG", "dropped");
    for (const char* end : {"", "\n", "\033[0m", "\n\033[0m"})
        __dlog_print(2, ZEL_PLATFORM_LOG_WARN, "TAG", "%s%s", text.c_str(), end);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              line + "\n" + line + "\n" + line + reset + "\n" + line + reset + "\n");
}
