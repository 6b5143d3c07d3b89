// What the services of the Linux platform list.
#include "linux_platform.h"

#include <boost/algorithm/string/replace.hpp>
#include <sstream>

#include "zel_platform_media_content.h"

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
    EXPECT_EQ(media_storage_clone(&copy, storage), 0);
    EXPECT_EQ(media_storage_get_storage_id(copy, &id), 0);
    EXPECT_EQ(media_storage_get_path(copy, &path), 0);
    EXPECT_EQ(media_storage_destroy(copy), 0);
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

// Connects: why not, in a line of log, or nothing.
static std::string log_of_refusal() {
    const std::string head = "ZEL-LINUX-PLATFORM: the attached devices cannot be listed: ";
    testing::internal::CaptureStderr();
    const int result = media_content_connect();
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(result == 0, log.empty());
    EXPECT_TRUE(log.empty() || (log.find(head) == 0 && log.find('\n') == log.size() - 1)) << log;
    return log.empty() ? "" : log.substr(head.size(), log.size() - head.size() - 1);
}

TEST_F(LinuxPlatform, WhatIsMountedIsListedAsItsTableSays) {
    std::ifstream cases(ZEL_TEST_MOUNT_TABLES);
    std::string name, line, table, expected;
    const auto check = [&] {
        SCOPED_TRACE(name);
        replace_table(table);
        testing::internal::CaptureStderr();
        const int result = media_content_connect();
        std::string listing = testing::internal::GetCapturedStderr(), ids, text;
        std::istringstream both(result == 0 ? listed(ZEL_STORAGE_DEVICE_TYPE_USB) : "");
        std::istringstream known(result == 0 ? database() : "");
        while (std::getline(both, text) && std::getline(known, ids))
            listing += text + " " + ids.substr(0, ids.find('|')) + "\n";
        EXPECT_EQ(listing, expected);
        EXPECT_EQ(media_content_disconnect(), result);
    };
    std::getline(cases, line);  // the head
    for (bool ended = false; std::getline(cases, line);) {
        const bool is_result = line[0] == '=';
        if (ended && !is_result)
            check(), name.clear(), table.clear(), expected.clear();
        if (is_result)
            expected += line.size() > 2 ? line.substr(2) + "\n" : "";
        else if (name.empty())
            name = line;
        else
            table += line + "\n";
        ended = is_result;
    }
    check();
}

TEST_F(LinuxPlatform, CamerasAreTheDevicesWithAPictureInterfaceNotTheirInterfaces) {
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_PTP), "|C1\n|C2\n");
}

TEST_F(LinuxPlatform, WhatIsKnownOfTheLastTimeStaysAsLongAsThereIsAConnection) {
    EXPECT_EQ(database(), "failed");
    EXPECT_EQ(media_content_connect(), 0);
    replace_table(kStick);
    EXPECT_EQ(media_content_connect(), 0);
    fs::remove(table_);
    EXPECT_EQ(database(), "4D1C-9F07|/opt/storage/usb/a b\n");
    replace_table(kStick);
    EXPECT_EQ(database(), "4D1C-9F07|/opt/storage/usb/a b\n");
    set_property("1-1/sdb1", "ID_SERIAL_SHORT", "S3");
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_USB), "/opt/storage/usb/a b|S3\n");
    for (const std::string id : {"5E-55", "4D1C-9F07"}) {
        set_property("1-1/sdb1", "ID_FS_UUID", id);
        EXPECT_EQ(database(), id + "|/opt/storage/usb/a b\n");
    }
    replace_table(boost::replace_all_copy(kStick, "a\\040b", "moved"));
    EXPECT_EQ(database(), "4D1C-9F07|/opt/storage/usb/moved\n");
    replace_table(kStick);
    EXPECT_EQ(database(), "4D1C-9F07|/opt/storage/usb/a b\n");
    for (const std::string serial : {"C9", "C1"}) {
        set_property("1-2", "ID_SERIAL_SHORT", serial);
        EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_PTP), "|" + serial + "\n|C2\n");
    }
    EXPECT_EQ(media_content_disconnect(), 0);  // one of the two
    fs::remove(table_);
    EXPECT_EQ(database(), "4D1C-9F07|/opt/storage/usb/a b\n");
    replace_table(kStickB + "#" + std::string(20000, ' ') + "\n" + kStick);
    const std::string both = database();
    EXPECT_EQ(both, "4D1C-9F07|/opt/storage/usb/a b\nB-UUID|/opt/storage/usb/b\n");
    fs::remove(table_);
    EXPECT_EQ(database(), both);
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_PTP), "|C1\n|C2\n");
    EXPECT_NE(zel_storage_register_event_cb(record, events_), 0);
    void* list = nullptr;
    EXPECT_EQ(zel_get_usb_list(ZEL_STORAGE_DEVICE_TYPE_USB, &list), 0);
    EXPECT_EQ(media_content_disconnect(), 0);
    EXPECT_EQ(text_of(zel_storage_get_storage(0, list)), "/opt/storage/usb/a b|S3");
    EXPECT_EQ(zel_storage_list_destory(list), 0);
    EXPECT_NE(media_content_disconnect(), 0);
    replace_table(kStick);
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_USB), "/opt/storage/usb/a b|S3\n");
    fs::remove(table_);
    testing::internal::CaptureStderr();
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_USB), "failed");
    EXPECT_NE(media_content_connect(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ZEL-LINUX-PLATFORM: the attached devices cannot be listed: the mount table: No such "
              "file or directory\n"
              "ZEL-LINUX-PLATFORM: the attached devices cannot be listed: the mount table: No such "
              "file or directory\n");
}

static bool keep(media_storage_h storage, void* kept) {
    EXPECT_EQ(media_storage_clone(static_cast<media_storage_h*>(kept), storage), 0);
    return false;  // no more
}

TEST_F(LinuxPlatform, WhereMemoryIsShortEachTextIsHandedOutOnceAndThenRefused) {
    replace_table(kStick);
    EXPECT_EQ(media_content_connect(), 0);
    media_storage_h record = nullptr;
    media_filter_h filter = nullptr;
    EXPECT_EQ(media_filter_create(&filter), 0);
    EXPECT_EQ(media_storage_foreach_storage_from_db(filter, keep, &record), 0);
    EXPECT_EQ(media_content_disconnect(), 0);
    g_platform_calls.failing = "strdup";
    for (auto* const get : {media_storage_get_path, media_storage_get_storage_id}) {
        char *text = nullptr, *second = nullptr;
        EXPECT_EQ(get(record, &text), 0);
        EXPECT_NE(get(record, &second), 0);
        EXPECT_EQ(taken(text),
                  get == media_storage_get_path ? "/opt/storage/usb/a b" : "4D1C-9F07");
    }
    g_platform_calls.failing = {};
    EXPECT_EQ(media_storage_destroy(record), 0);
}

TEST_F(LinuxPlatform, ConnectionsOfTwoThreadsAreCounted) {
    const auto connect = [] {
        EXPECT_EQ(media_content_connect(), 0);
        EXPECT_EQ(media_content_disconnect(), 0);
    };
    std::thread other(connect);
    connect();
    other.join();
    EXPECT_NE(media_content_disconnect(), 0);
}

TEST_F(LinuxPlatform, WhatIsNoArgumentIsRefused) {
    replace_table(kStick);
    EXPECT_EQ(media_content_connect(), 0);
    void *list = nullptr, *other = &list;
    media_storage_h record = nullptr;
    media_filter_h filter = nullptr;
    char* text = nullptr;
    EXPECT_EQ(media_filter_create(&filter), 0);
    replace_table(kStick + kStickB);
    EXPECT_EQ(media_storage_foreach_storage_from_db(filter, keep, &record), 0);
    EXPECT_EQ(media_storage_get_storage_id(record, &text), 0);
    EXPECT_EQ(taken(text), "4D1C-9F07");
    EXPECT_EQ(zel_get_usb_list(ZEL_STORAGE_DEVICE_TYPE_USB, &list), 0);
    const int refused[] = {
        zel_get_usb_list(ZEL_STORAGE_DEVICE_TYPE_USB, nullptr),
        zel_get_usb_list(static_cast<zel_storage_device_type>(0), &other),
        zel_get_usb_list(static_cast<zel_storage_device_type>(3), &other),
        media_filter_create(nullptr),
        media_filter_destroy(&list),
        media_storage_foreach_storage_from_db(nullptr, keep, nullptr),
        media_storage_foreach_storage_from_db(filter, nullptr, nullptr),
        media_storage_clone(nullptr, record),
        media_storage_clone(&other, nullptr),
        media_storage_get_path(nullptr, &text),
        media_storage_get_path(record, nullptr),
        media_storage_get_storage_id(nullptr, &text),
        media_storage_get_storage_id(record, nullptr),
        zel_storage_register_event_cb(nullptr, nullptr),
        zel_storage_unregister_event_cb(),
    };
    EXPECT_THAT(refused, testing::Each(-1));
    EXPECT_EQ(other, &list);
    for (const int index : {-1, 2})
        EXPECT_EQ(zel_storage_get_storage(index, list), nullptr);
    EXPECT_EQ(zel_storage_get_list_count(nullptr), 0);
    EXPECT_EQ(zel_storage_get_mountpath(nullptr), nullptr);
    EXPECT_EQ(zel_storage_get_serialnumber(nullptr), nullptr);
    EXPECT_EQ(zel_storage_list_destory(nullptr), 0);
    EXPECT_EQ(zel_storage_list_destory(list), 0);
    EXPECT_EQ(media_storage_destroy(nullptr), 0);
    EXPECT_EQ(media_storage_destroy(record), 0);
    EXPECT_EQ(media_filter_destroy(nullptr), 0);
    EXPECT_EQ(media_content_disconnect(), 0);
}

TEST_F(LinuxPlatform, StickThatUdevHasStillToLookAtIsWaitedForAndThenRefused) {
    replace_table(kStick);
    fs::create_directory(root_ / "udev");  // of an udev that does not run
    EXPECT_EQ(media_content_connect(), 0);
    EXPECT_EQ(media_content_disconnect(), 0);
    start_udev();
    int pauses = 0;
    g_platform_calls.on_pause = [&] { ++pauses; };
    g_platform_calls.sleep_factor = 50;  // of 20 ms
    EXPECT_EQ(log_of_refusal(), "udev has not looked at every device yet");
    g_platform_calls.sleep_factor = 0;
    EXPECT_EQ(pauses, 3);
    g_platform_calls.on_pause = [&] { let_udev_look_at("b8:17"); };
    EXPECT_EQ(media_content_connect(), 0);
    g_platform_calls.on_pause = [] { ADD_FAILURE() << "only a connection waits"; };
    EXPECT_EQ(database(), "4D1C-9F07|/opt/storage/usb/a b\n");
    replace_table(kStick + kStickB);  // which is not known before udev has looked at it
    testing::internal::CaptureStderr();
    EXPECT_EQ(database(), "4D1C-9F07|/opt/storage/usb/a b\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ZEL-LINUX-PLATFORM: the attached devices are taken from the last time: udev has not "
              "looked at every device yet\n");
    let_udev_look_at("b8:33");
    EXPECT_EQ(database(), "4D1C-9F07|/opt/storage/usb/a b\nB-UUID|/opt/storage/usb/b\n");
    EXPECT_EQ(media_content_disconnect(), 0);
    fs::remove(root_ / "udev/data/+usb:1-3");
    g_platform_calls.on_pause = [] {};
    EXPECT_NE(media_content_connect(), 0);  // it may turn out to be a camera
}

TEST_F(LinuxPlatform, DevicesThatChangeAreLookedAtUntilTheyRestButNotForEver) {
    for (const int changes : {3, 1000}) {
        int looks = 0;
        replace_table(kElsewhere);
        g_platform_calls.on_look = [&] {
            if (looks++ < changes)
                replace_table(looks % 2 == 0 ? kStick : kStickB);
        };
        EXPECT_EQ(log_of_refusal(), changes == 3 ? "" : "they change from one look to the next");
        EXPECT_EQ(database(), changes == 3 ? "B-UUID|/opt/storage/usb/b\n" : "failed");
        EXPECT_EQ(media_content_disconnect() == 0, changes == 3);
        EXPECT_EQ(looks, changes == 3 ? 6 : 5);
    }
    g_platform_calls.on_look = [] {};
}

TEST_F(LinuxPlatform, ConnectionThatEndsDuringALookLeavesNothingToList) {
    EXPECT_EQ(media_content_connect(), 0);
    g_platform_calls.error = ENOMEM;
    g_platform_calls.on_look = [] {
        EXPECT_EQ(media_content_disconnect(), 0);
        g_platform_calls.failing = "udev_enumerate_scan_devices";
    };
    EXPECT_EQ(database(), "failed");
    g_platform_calls.on_look = [] {};
    g_platform_calls.failing = {};
}

TEST_F(LinuxPlatform, WhatCannotBeReadFailsTheConnectionAndWhatIsAbsentDoesNot) {
    replace_table(kStick);
    const struct {
        const char* call;
        int error;
        std::string reason;
    } cases[] = {
        {"udev_new", ENOMEM, "std::bad_alloc"},
        {"open64", EMFILE, "the mount table: Too many open files"},
        {"fmemopen", ENOMEM, "std::bad_alloc"},
        {"mnt_new_table", ENOMEM, "std::bad_alloc"},
        {"mnt_new_iter", ENOMEM, "std::bad_alloc"},
        {"mnt_table_set_parser_errcb", ENOMEM, "the mount table has a line that cannot be parsed"},
        {"mnt_table_parse_stream", ENOMEM, "the mount table has a line that cannot be parsed"},
        {"mnt_table_get_nents", 0, "not every line of the mount table can be parsed"},
        {"mnt_fs_get_target", 0, "the mount table has a line without a mount point"},
        {"udev_device_new_from_devnum", ENOMEM, "a device: Cannot allocate memory"},
        {"udev_device_new_from_devnum", ENODEV, ""},
        {"udev_device_new_from_devnum", ENOENT, ""},
        {"udev_device_new_from_devnum", ENXIO, ""},
        {"udev_device_new_from_syspath", EMFILE, "a device: Too many open files"},
        {"udev_device_new_from_syspath", ENODEV, ""},
        {"udev_device_get_property_value", ENOMEM, "a device: Cannot allocate memory"},
        {"udev_device_get_property_value", ENOENT, ""},
        {"udev_device_get_property_value", 0, ""},
        {"udev_device_get_sysattr_value", EIO, "a device: Input/output error"},
        {"udev_device_get_sysattr_value", ENOENT, ""},
        {"udev_device_get_devtype", ENOMEM, "a device: Cannot allocate memory"},
        {"udev_device_get_devtype", ENOENT, ""},
        {"udev_device_get_is_initialized", EIO, "a device: Input/output error"},
        {"udev_device_get_is_initialized", 0, ""},
        {"udev_device_get_is_initialized", ENOENT, ""},
        {"udev_enumerate_new", ENOMEM, "std::bad_alloc"},
        {"udev_enumerate_add_match_subsystem", ENOMEM, "the USB devices cannot be listed"},
        {"udev_enumerate_scan_devices", ENOMEM, "the USB devices cannot be listed"},
        {"udev_enumerate_get_list_entry", ENOMEM, "the list of the USB devices cannot be made"},
        {"udev_enumerate_get_list_entry", ENODATA, ""},
        {"udev_enumerate_get_list_entry", 0, ""},
        {"access", EACCES, "a device: Permission denied"},
        {"access", ENOTDIR, ""},
        {"strdup", ENOMEM, "std::bad_alloc"},
    };
    for (const auto& [call, error, reason] : cases) {
        g_platform_calls.failing = call;
        g_platform_calls.error = error;
        EXPECT_EQ(log_of_refusal(), reason) << call << ": " << strerror(error);
        g_platform_calls.failing = {};
        EXPECT_EQ(media_content_disconnect() == 0, reason.empty()) << call << ": " << error;
    }
}
