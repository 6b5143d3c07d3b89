// The services of the Linux platform with mock USB devices and a mount table in a file.
#include <gtest/gtest.h>
#include <umockdev.h>

#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "zel_platform_media_content.h"
#include "zel_platform_storage_events.h"

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

const char* const kDevices =
    "P: /devices/usb1/1-1/sdb1\nE: SUBSYSTEM=block\nE: MAJOR=8\nE: MINOR=17\n"
    "E: ID_FS_UUID=4D1C-9F07\nE: ID_SERIAL=Stick_S1\nE: ID_SERIAL_SHORT=S1\n\n"
    "P: /devices/usb1/1-2\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\n"
    "E: ID_USB_INTERFACES=:030001:060101:\nE: ID_SERIAL_SHORT=C1\n\n"
    "P: /devices/usb1/1-3\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: ID_GPHOTO2=1\n"
    "A: serial=C2\\n\n\n"
    "P: /devices/usb1/1-4\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: "
    "ID_USB_INTERFACES=:080650:\n";
const std::string kStick = "40 22 8:17 / /opt/storage/usb/a\\040b rw - vfat /dev/sdb1 rw\n";
const std::string kUnknown = "41 22 0:99 / /opt/storage/usb/demo rw - tmpfs demo rw\n";
const std::string kElsewhere =
    "42 22 8:17 / /opt/storage/usb rw - vfat /dev/sdb1 rw\n"
    "43 22 8:17 / /mnt/opt/storage/usb/x rw - vfat /dev/sdb1 rw\n";

std::string taken(char* text) {
    const std::unique_ptr<char, decltype(&free)> owner(text, free);
    return text;
}

std::string text_of(_zel_storage_s* from) {
    return zel_storage_get_mountpath(from) + std::string("|") + zel_storage_get_serialnumber(from);
}

Texts listed(zel_storage_device_type type) {
    void* list = nullptr;
    Texts found;
    if (zel_get_usb_list(type, &list) != 0)
        found = {"failed"};
    for (int i = 0; i < zel_storage_get_list_count(list); ++i)
        found.push_back(text_of(zel_storage_get_storage(i, list)));
    EXPECT_EQ(zel_storage_list_destory(list), 0);
    return found;
}

bool add_text(media_storage_h storage, void* found) {
    media_storage_h copy = nullptr;
    char *id = nullptr, *path = nullptr;
    EXPECT_EQ(media_storage_clone(&copy, storage), 0);
    EXPECT_EQ(media_storage_get_storage_id(copy, &id), 0);
    EXPECT_EQ(media_storage_get_path(copy, &path), 0);
    EXPECT_EQ(media_storage_destroy(copy), 0);
    static_cast<Texts*>(found)->push_back(taken(id) + "|" + taken(path));
    return true;
}

Texts database() {
    media_filter_h filter = nullptr;
    Texts found;
    EXPECT_EQ(media_filter_create(&filter), 0);
    if (media_storage_foreach_storage_from_db(filter, add_text, &found) != 0)
        found = {"failed"};
    EXPECT_EQ(media_filter_destroy(filter), 0);
    return found;
}

class LinuxPlatform : public testing::Test {
protected:
    LinuxPlatform() {
        fs::create_directories(root_ / "sys/dev/block");
        fs::create_symlink("../../devices/usb1/1-1/sdb1", root_ / "sys/dev/block/8:17");
        EXPECT_TRUE(umockdev_testbed_add_from_string(testbed_.get(), kDevices, nullptr));
        setenv("ZEL_MOUNTINFO", table_.c_str(), 1);
        replace_table(kElsewhere);
    }
    void replace_table(const std::string& table) {
        std::ofstream(root_ / "next") << table;
        fs::rename(root_ / "next", table_);
    }
    const std::unique_ptr<UMockdevTestbed, decltype(&g_object_unref)> testbed_{
        umockdev_testbed_new(), g_object_unref};
    const fs::path root_ = taken(umockdev_testbed_get_root_dir(testbed_.get()));
    const fs::path table_ = root_ / "mountinfo";
};

struct Events {
    static void record(void* self, zel_storage_event_e event, _zel_storage_s*& storage) {
        auto& [mutex, came, seen] = *static_cast<Events*>(self);
        const std::lock_guard<std::mutex> lock(mutex);
        seen.push_back(std::to_string(event) + " " + text_of(storage));
        came.notify_all();
        throw std::runtime_error("costs no later event");
    }
    Texts take(std::size_t count) {
        std::unique_lock<std::mutex> lock(mutex);
        came.wait_for(lock, std::chrono::seconds(10), [&] { return seen.size() >= count; });
        return std::exchange(seen, {});
    }
    std::mutex mutex;
    std::condition_variable came;
    Texts seen;
};

TEST_F(LinuxPlatform, ListsStoragesAndCamerasWithTheirSerialNumbers) {
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_USB), Texts());
    replace_table(kElsewhere + kUnknown + kStick);
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_USB),
              Texts({"/opt/storage/usb/a b|S1", "/opt/storage/usb/demo|"}));
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_PTP), Texts({"|C1", "|C2"}));
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_MAX), Texts({"failed"}));
}

TEST_F(LinuxPlatform, DatabaseKnowsStoragesByUuidElseByLabelWhileConnected) {
    replace_table(kStick + kUnknown);
    EXPECT_EQ(database(), Texts({"failed"}));
    EXPECT_EQ(media_content_connect(), 0);
    EXPECT_EQ(database(), Texts({"4D1C-9F07|/opt/storage/usb/a b", "demo|/opt/storage/usb/demo"}));
    EXPECT_EQ(media_content_disconnect(), 0);
    EXPECT_NE(media_content_disconnect(), 0);
}

TEST_F(LinuxPlatform, EventsFollowTheMountTableFromRegistrationToItsEnd) {
    for (int registration = 0; registration < 2; ++registration) {
        Events events;
        replace_table(kStick);
        ASSERT_EQ(zel_storage_register_event_cb(Events::record, &events), 0);
        EXPECT_NE(zel_storage_register_event_cb(Events::record, &events), 0);
        replace_table(kUnknown);
        EXPECT_EQ(events.take(2), Texts({"2 /opt/storage/usb/a b|S1", "1 /opt/storage/usb/demo|"}));
        std::ofstream(table_) << kElsewhere;
        EXPECT_EQ(events.take(1), Texts({"2 /opt/storage/usb/demo|"}));
        EXPECT_EQ(zel_storage_unregister_event_cb(), 0);
        EXPECT_NE(zel_storage_unregister_event_cb(), 0);
    }
}

TEST_F(LinuxPlatform, UnreadableMountTableIsAFailure) {
    fs::remove(table_);
    EXPECT_EQ(media_content_connect(), 0);
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_USB), Texts({"failed"}));
    EXPECT_EQ(database(), Texts({"failed"}));
    EXPECT_NE(zel_storage_register_event_cb(Events::record, nullptr), 0);
    EXPECT_EQ(media_content_disconnect(), 0);
}

}  // namespace
