// The events of the Linux platform's storages.
#include <boost/algorithm/string/replace.hpp>
#include <climits>

#include "linux_platform.h"

TEST_F(LinuxPlatform, EventsAreRefusedWhereNothingTellsOfMounts) {
    g_platform_calls.error = ENOMEM;
    const std::pair<const char*, std::string> cases[] = {{"eventfd", ""},
                                                         {"mnt_new_monitor", ""},
                                                         {"mnt_monitor_enable_kernel", ""},
                                                         {"mnt_monitor_get_fd", ""},
                                                         {"inotify_init1", table_},
                                                         {"inotify_add_watch", table_}};
    for (const auto& [call, table] : cases) {
        setenv("ZEL_MOUNTINFO", table.c_str(), 1);
        g_platform_calls.failing = call;
        EXPECT_NE(zel_storage_register_event_cb(record, events_), 0) << call;
        g_platform_calls.failing = {};
        EXPECT_NE(zel_storage_unregister_event_cb(), 0) << call;
    }
}

TEST_F(LinuxPlatform, EventsAreReportedOfAChangeAmongManyAndOfOneThatWasLost) {
    replace_table(kStick);
    bool is_first = true;
    g_platform_calls.on_events = [&] {
        if (!std::exchange(is_first, false))
            return;
        replace_table(kUnknown);
        for (int i = 100; i < 200; ++i)  // more than one read takes
            std::ofstream(root_ / (std::string(NAME_MAX - 3, 'x') + std::to_string(i)));
    };
    ASSERT_EQ(zel_storage_register_event_cb(record, events_), 0);
    std::ofstream(root_ / "another file");
    EXPECT_EQ(next_event(), "2 /opt/storage/usb/a b|S1");
    EXPECT_EQ(next_event(), "1 /opt/storage/usb/demo|");
    g_platform_calls.overflowing = true;
    replace_table(kElsewhere);
    EXPECT_EQ(next_event(), "2 /opt/storage/usb/demo|");
    EXPECT_EQ(zel_storage_unregister_event_cb(), 0);
    g_platform_calls.overflowing = false;
    g_platform_calls.on_events = [] {};
}

TEST_F(LinuxPlatform, EventsFollowTheMountTableFromRegistrationToItsEnd) {
    const long inherited = descriptors(true);
    const std::string moved = boost::replace_all_copy(kStick, "a\\040b", "demo");
    for (const bool interrupting : {false, true}) {
        g_platform_calls.interrupting = interrupting;
        replace_table(kStick);
        ASSERT_EQ(zel_storage_register_event_cb(record, events_), 0);
        EXPECT_NE(zel_storage_register_event_cb(record, events_), 0);
        EXPECT_EQ(descriptors(true), inherited);
        replace_table(kStick + kStickB);
        EXPECT_EQ(next_event(), "1 /opt/storage/usb/b|Long_Serial");
        replace_table(moved + kStickB);
        EXPECT_EQ(next_event(), "2 /opt/storage/usb/a b|S1");
        EXPECT_EQ(next_event(), "1 /opt/storage/usb/demo|S1");
        replace_table(kUnknown);
        EXPECT_EQ(next_event(), "2 /opt/storage/usb/b|Long_Serial");
        EXPECT_EQ(next_event(), "2 /opt/storage/usb/demo|S1");
        EXPECT_EQ(next_event(), "1 /opt/storage/usb/demo|");
        {
            std::ofstream in_place(table_);
            wait_for_other_threads();  // none of which reads half of it
            in_place << kUnknown + kStickB;
        }
        EXPECT_EQ(next_event(), "1 /opt/storage/usb/b|Long_Serial");
        replace_table("a line that nobody understands\n");
        wait_for_other_threads();  // one of which tries to read it
        std::ofstream(table_) << moved;
        EXPECT_EQ(next_event(), "2 /opt/storage/usb/b|Long_Serial");
        EXPECT_EQ(next_event(), "2 /opt/storage/usb/demo|");
        EXPECT_EQ(next_event(), "1 /opt/storage/usb/demo|S1");
        replace_table(kElsewhere);
        EXPECT_EQ(next_event(), "2 /opt/storage/usb/demo|S1");
        wait_for_other_threads();  // it has nothing left to do
        EXPECT_EQ(zel_storage_unregister_event_cb(), 0);
        EXPECT_NE(zel_storage_unregister_event_cb(), 0);
    }
    g_platform_calls.interrupting = false;
    setenv("ZEL_MOUNTINFO", (root_ / "none/table").c_str(), 1);
    EXPECT_NE(zel_storage_register_event_cb(record, events_), 0);
    setenv("ZEL_MOUNTINFO", "", 1);  // the machine's own
    EXPECT_EQ(zel_storage_register_event_cb(record, events_), 0);
    EXPECT_EQ(zel_storage_unregister_event_cb(), 0);
}

TEST_F(LinuxPlatform, EventsLeaveTheSignalsToTheThreadsOfTheHost) {
    g_platform_calls.first_wait_blocks = -1;
    replace_table(kStick);
    ASSERT_EQ(zel_storage_register_event_cb(record, events_), 0);
    wait_for_other_threads();
    EXPECT_EQ(g_platform_calls.first_wait_blocks, 1);
    EXPECT_EQ(zel_storage_unregister_event_cb(), 0);
}

TEST_F(LinuxPlatform, EventsLeaveOutNoChangeBetweenTheFirstListAndTheWatch) {
    g_platform_calls.on_watch = [&] { replace_table(kStickB); };
    ASSERT_EQ(zel_storage_register_event_cb(record, events_), 0);
    g_platform_calls.on_watch = [] {};
    replace_table(kElsewhere);
    EXPECT_EQ(next_event(), "2 /opt/storage/usb/b|Long_Serial");
    EXPECT_EQ(zel_storage_unregister_event_cb(), 0);
}

TEST_F(LinuxPlatform, EventsEndWhereNothingCanBeWaitedFor) {
    alarm(60);  // ends what asks for ever
    g_platform_calls.error = ENOMEM;
    g_platform_calls.failing = "poll";
    ASSERT_EQ(zel_storage_register_event_cb(record, events_), 0);
    replace_table(kStick);
    wait_for_other_threads();
    EXPECT_EQ(zel_storage_unregister_event_cb(), 0);
    g_platform_calls.failing = {};
    alarm(0);
}

TEST_F(LinuxPlatform, EventsEndWithTheCallbackThatMayRegisterAnotherOneMeanwhile) {
    static std::atomic<bool> has_ended{false};
    const auto register_another = [](void*, zel_storage_event_e, _zel_storage_s*&) {
        EXPECT_EQ(send(events_[0], "begins", 6, 0), 6);
        while (zel_storage_register_event_cb(record, events_) != 0)
            std::this_thread::yield();
        wait_for_other_threads();  // of which one waits for this one
        has_ended = true;
    };
    alarm(60);  // ends two that wait for each other
    ASSERT_EQ(zel_storage_register_event_cb(register_another, nullptr), 0);
    replace_table(kStick);
    EXPECT_EQ(next_event(), "begins");
    EXPECT_EQ(zel_storage_unregister_event_cb(), 0);
    EXPECT_TRUE(has_ended);
    EXPECT_EQ(zel_storage_unregister_event_cb(), 0);
    alarm(0);
}
