// The services of the Linux platform.
#include "linux_platform.h"

#include "zel_platform_log.h"
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

TEST_F(LinuxPlatform, ListsStoragesAndCamerasAndKnowsTheirIdsWhileConnected) {
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_USB), "");
    replace_table(kElsewhere + kUnknown + kStick);
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_USB),
              "/opt/storage/usb/a b|S1\n/opt/storage/usb/demo|\n");
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_PTP), "|C1\n|C2\n");
    EXPECT_EQ(database(), "failed");
    EXPECT_EQ(media_content_connect(), 0);
    EXPECT_EQ(database(), "4D1C-9F07|/opt/storage/usb/a b\ndemo|/opt/storage/usb/demo\n");
    fs::remove(table_);  // what is known of the last time stays
    EXPECT_EQ(database(), "4D1C-9F07|/opt/storage/usb/a b\ndemo|/opt/storage/usb/demo\n");
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_PTP), "|C1\n|C2\n");
    EXPECT_NE(zel_storage_register_event_cb(record, this), 0);
    EXPECT_EQ(media_content_disconnect(), 0);
    EXPECT_NE(media_content_disconnect(), 0);
    EXPECT_EQ(listed(ZEL_STORAGE_DEVICE_TYPE_USB), "failed");
    EXPECT_NE(media_content_connect(), 0);
}

TEST_F(LinuxPlatform, StickThatUdevHasStillToLookAtIsWaitedForAndThenRefused) {
    replace_table(kStick);
    start_udev();
    int pauses = 0;
    g_platform_calls.on_pause = [&] { ++pauses; };
    EXPECT_NE(media_content_connect(), 0);
    EXPECT_GT(pauses, 0);
    g_platform_calls.on_pause = [&] { let_udev_look_at("b8:17"); };
    EXPECT_EQ(media_content_connect(), 0);
    g_platform_calls.on_pause = [] { ADD_FAILURE() << "only a connection waits"; };
    EXPECT_EQ(database(), "4D1C-9F07|/opt/storage/usb/a b\n");
    replace_table(kStick + kStickB);  // which is not known before udev has looked at it
    EXPECT_EQ(database(), "4D1C-9F07|/opt/storage/usb/a b\n");
    let_udev_look_at("b8:33");
    EXPECT_EQ(database(), "4D1C-9F07|/opt/storage/usb/a b\nB-UUID|/opt/storage/usb/b\n");
    EXPECT_EQ(media_content_disconnect(), 0);
    fs::remove(root_ / "udev/data/+usb:1-3");
    g_platform_calls.on_pause = [] {};
    EXPECT_NE(media_content_connect(), 0);  // it may turn out to be a camera
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
