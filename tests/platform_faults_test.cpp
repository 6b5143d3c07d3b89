// A start of the engine on the Linux platform, in which every call to the system and every
// allocation that the engine, the platform, libmount or libudev makes fails, once or from then on.
// What comes out is looked at with fresh eyes: on disk, and by an engine that only loads.
#include <algorithm>

#include "linux_platform.h"
#include "platform_calls.h"
#include "zel_thumbnail_flash_cache_internal.h"

struct PlatformFaults : LinuxPlatform {
    static std::string record(const fs::path& image) {
        return "<Type=0,Path=\"" + image.parent_path().string() + "\",URL=\"" + image.string() +
               "\",Size=5,Devicetype=0>\r\n<Type=1,Sid=\"" +
               image.parent_path().filename().string() + "\",Path=\"" +
               image.parent_path().string() + "\",Devicetype=0>\r\n";
    }
    // A cache with a thumbnail of each device that is there, and of one that is not.
    void build() {
        std::string records;
        for (const char* id : {"4D1C-9F07", "B-UUID", "C1", "gone"}) {
            if (fs::create_directories(cache_ / id))
                std::ofstream(cache_ / id / "a.jpg") << "12345";
            records += record(cache_ / id / "a.jpg");
        }
        std::ofstream(cache_ / "index") << records;
    }
    bool start(CZELThumbFlashCache& engine) const {
        engine.m_strCachePath = cache_ / "index";
        return engine.m_Create();
    }
    // The devices whose thumbnails are there, and are recorded.
    std::string left() const {
        CZELThumbFlashCache loaded;
        loaded.m_strCachePath = cache_ / "index";
        EXPECT_TRUE(loaded.m_LoadThumbFile());
        std::string found;
        for (const auto& item : loaded.m_ThumbItemList)
            if (fs::exists(item->URL))
                found += fs::path(item->Path).filename().string() + " ";
        return found;
    }
    const fs::path cache_ = root_ / "cache";
};

TEST_F(PlatformFaults, StartInWhichAnyCallFailsDeletesNothingOfADeviceThatIsThere) {
    replace_table(kStick + kStickB);
    // Every fifth call, as the devices are looked at five times alike; ZEL_TEST_FAULT_STEP=1 takes
    // each of them.
    const char* step = getenv("ZEL_TEST_FAULT_STEP");
    for (const bool all : {false, true}) {
        bool is_complete = false;
        for (int first = 1; !is_complete && !HasFailure();
             first += step == nullptr ? 5 : std::atoi(step)) {
            build();
            CZELThumbFlashCache engine;
            engine.m_strCachePath = cache_ / "index";
            g_platform_calls.calls = 0;
            g_platform_calls.all = all;
            g_platform_calls.first = first;
            const bool is_started = engine.m_Create();
            g_platform_calls.first = 0;
            is_complete = g_platform_calls.calls < first;
            EXPECT_THAT(left(), testing::StartsWith("4D1C-9F07 B-UUID C1 ")) << first << all;
            EXPECT_TRUE(is_started || !is_complete);
        }
    }
}

TEST_F(PlatformFaults, UnreadableMachineRefusesTheStartAndTheNextOneSucceeds) {
    build();
    CZELThumbFlashCache engine;
    for (const std::string& table :
         {kStick + "a line that nobody understands\n" + kStickB, kStick + kStickB.substr(0, 20)}) {
        replace_table(table);
        EXPECT_FALSE(start(engine)) << table;
        EXPECT_EQ(left(), "4D1C-9F07 B-UUID C1 gone ");
    }
    setenv("ZEL_MOUNTINFO", root_.c_str(), 1);  // a folder cannot be read
    EXPECT_FALSE(start(engine));
    EXPECT_EQ(left(), "4D1C-9F07 B-UUID C1 gone ");
    setenv("ZEL_MOUNTINFO", table_.c_str(), 1);
    replace_table(kStick + kStickB);
    EXPECT_TRUE(start(engine));
    EXPECT_EQ(left(), "4D1C-9F07 B-UUID C1 ");
}
