// Threads that start, save, remove and stop at the same time.
#include "fixture.h"

struct Threads : CacheTest {
    // Starts a creation that stays in the connection to the database until `connection` is set.
    void StartHeldCreation() {
        platform.onConnect = [held = connection.get_future().share()] { held.wait(); };
        ASSERT_TRUE(engine->Create(index.c_str()));
        while (platform.connects == 0)
            std::this_thread::yield();
    }
    std::promise<void> connection;
};

TEST_F(Threads, saveThatArrivesDuringCreationWaitsForIt) {
    StartHeldCreation();
    for (const char* path : {"/other", "/next"})  // the last one is taken over by the second worker
        ASSERT_TRUE(engine->Create((root + path).c_str()));
    auto saver = std::async(std::launch::async, [this] { return Save("dev0/a.jpg"); });
    connection.set_value();
    EXPECT_TRUE(saver.get());
    engine->m_AwaitWorkers();
    EXPECT_EQ(Content(*engine), " dev0 $/dev0/a.jpg");
    EXPECT_EQ(engine->m_strCachePath, root + "/next");
}

TEST_F(Threads, engineIsDestroyedOnlyAfterItsWorkers) {
    StartHeldCreation();
    ASSERT_TRUE(engine->Create(index.c_str()));
    ASSERT_TRUE(engine->Create(index.c_str()));
    auto owner = std::async(std::launch::async, [this] { engine.reset(); });
    connection.set_value();
    owner.get();
    EXPECT_EQ(platform.connects, 1);
    EXPECT_EQ(platform.disconnects, 1);
}

TEST_F(Threads, storagesComeAndGoWhileFourThreadsSaveAndTheEngineStarts) {
    ASSERT_TRUE(engine->Create(index.c_str()));
    for (auto savers = SaveOnThreads(4, 50); !savers.empty();) {
        if (savers.back().wait_for(std::chrono::seconds(0)) == std::future_status::ready)
            savers.pop_back();
        for (const char* path : {"s0", "s1", "s2", "s3"})
            EXPECT_NE(engine->m_RemoveStorage(std::string("/opt/storage/usb/") + path), 2);
    }
    engine->m_AwaitWorkers();  // until then saves are refused
    SaveOnThreads(8, 25).clear();
    EXPECT_GE(engine->m_ThumbItemList.size(), 200U);
    ExpectLeft(Content(*engine));
}
