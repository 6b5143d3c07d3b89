#include <condition_variable>
#include <thread>

#include "fixture.h"
#include "zel_thumbnail_flash_cache.h"

namespace {

using testing::ElementsAre;
using testing::Not;

class Lifecycle : public CacheTest {
protected:
    // Lets the database connection wait until Release().
    void HoldConnection() {
        platform.onConnect = [this] {
            std::unique_lock<std::mutex> lock(mutex);
            changed.wait(lock, [this] { return released; });
            return 0;
        };
    }
    void Release() {
        const std::lock_guard<std::mutex> lock(mutex);
        released = true;
        changed.notify_all();
    }
    void AwaitCreated() {
        while (!engine->FlagCreate()) {
            std::this_thread::yield();
        }
    }
    std::mutex mutex;
    std::condition_variable changed;
    bool released = false;
};

TEST_F(Lifecycle, recordsLiveAsLongAsAHandle) {
    boost::intrusive_ptr<TestEngine::Item> held(&engine->AddItem("/d", "/d/a", 1));
    engine->AddItem("/d", "/d/b", 2);
    EXPECT_EQ(held->ref_count, 2);
    engine->m_ThumbItemList.clear();
    EXPECT_EQ(held->ref_count, 1);
    EXPECT_EQ(held->URL, "/d/a");
}

TEST_F(Lifecycle, nullPathChangesNothing) {
    platform.TakeLog();
    EXPECT_FALSE(engine->Create(nullptr));
    EXPECT_EQ(engine->m_strCachePath, index.string());
    EXPECT_THAT(platform.TakeLog(), ElementsAre("I strCachePath is null"));
}

TEST_F(Lifecycle, refusedConnectionIsRetriedByTheNextStart) {
    platform.onConnect = [] { return -1; };
    engine->AddItem("/d", "/d/a", 5);
    EXPECT_FALSE(engine->m_Create());
    EXPECT_EQ(platform.TakeLog().back(), "I failed to Media_content_connect");
    EXPECT_FALSE(engine->FlagCreate());
    EXPECT_EQ(engine->m_CacheSize, 0);
    EXPECT_THAT(engine->m_ThumbItemList, testing::IsEmpty());
    EXPECT_FALSE(Save(MakeFolder("dev0") + "/a.jpg"));

    platform.onConnect = nullptr;
    ASSERT_TRUE(engine->Create(index.c_str()));
    AwaitCreated();
    ASSERT_TRUE(Save(root / "dev0/a.jpg"));
    platform.TakeLog();
    EXPECT_TRUE(engine->m_Create());
    EXPECT_THAT(platform.TakeLog(), ElementsAre("I start CZELThumbFlashCache::Create...\n",
                                                "I Create m_bIsCreated is true###\n"));
    EXPECT_THAT(engine->m_ThumbItemList, testing::SizeIs(1));
    platform.disconnectResult = -1;
    engine.reset();
    EXPECT_THAT(platform.TakeLog(), ElementsAre("I failed to Media_content_disconnect"));
    EXPECT_EQ(platform.disconnects, 1);
}

TEST_F(Lifecycle, saveThatArrivesDuringCreationWaitsForIt) {
    HoldConnection();
    ASSERT_TRUE(engine->Create(index.c_str()));
    while (platform.connects == 0) {
        std::this_thread::yield();
    }
    const std::string file = MakeFolder("dev0") + "/a.jpg";
    std::thread saver([&] { EXPECT_TRUE(Save(file)); });
    Release();
    saver.join();
    EXPECT_TRUE(std::filesystem::exists(file));
}

TEST_F(Lifecycle, engineIsDestroyedOnlyAfterItsWorkers) {
    HoldConnection();
    for (int worker = 0; worker < 3; ++worker) {
        ASSERT_TRUE(engine->Create(index.c_str()));
    }
    while (platform.connects == 0) {
        std::this_thread::yield();
    }
    std::thread owner([&] { engine.reset(); });
    Release();
    owner.join();
    EXPECT_EQ(platform.connects, 1);
    EXPECT_EQ(platform.disconnects, 1);
}

TEST_F(Lifecycle, initAndClearMayFollowEachOtherAtOnce) {
    for (int round = 0; round < 50; ++round) {
        ASSERT_EQ(zel_thumbnail_flash_cache_init(index.c_str()), 1);
        ASSERT_EQ(zel_thumbnail_flash_cache_clear(), 1);
    }
    EXPECT_EQ(platform.connects, platform.disconnects);
    EXPECT_THAT(platform.TakeLog(), Not(testing::Contains(testing::StartsWith("W"))));
}

}  // namespace
