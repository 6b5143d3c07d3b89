#include "fixture.h"

struct Lifecycle : CacheTest {
    // Starts a creation that stays in the connection to the database until `connection` is set.
    void StartHeldCreation() {
        platform.onConnect = [held = connection.get_future().share()] { return held.get(); };
        ASSERT_TRUE(engine->Create(index.c_str()));
        while (platform.connects == 0)
            std::this_thread::yield();
    }
    std::promise<int> connection;
};

TEST_F(Lifecycle, refusedConnectionIsRetriedByTheNextStart) {
    Load(FolderRecord("/d") + ItemRecord("/d/a", 5));
    platform.onConnect = [] { return -1; };
    EXPECT_FALSE(engine->m_Create());
    EXPECT_THAT(Log(), EndsWith("Create111...~|I failed to Media_content_connect"));
    EXPECT_FALSE(engine->FlagCreate() || Save("dev0/a.jpg"));
    EXPECT_EQ(Content(*engine), "");
    platform.onConnect = [] { return 0; };
    ASSERT_TRUE(engine->m_Create() && Save("dev0/a.jpg"));
    Log();
    EXPECT_TRUE(engine->m_Create());
    EXPECT_EQ(Log(), "I start CZELThumbFlashCache::Create...~|I Create m_bIsCreated is true###~");
    ExpectLeft(" dev0 $/dev0/a.jpg");
    platform.disconnectResult = -1;
    engine.reset();
    EXPECT_EQ(Log(), "I failed to Media_content_disconnect");
}

TEST_F(Lifecycle, indexThatCouldNotBeReadIsKeptUntilTheStartIsGivenAnotherPath) {
    const std::string record = ItemRecord("$/dev0/a.jpg", 5), other = Write("other", "");
    fs::permissions(Write("index", record), fs::perms(0222));
    fs::permissions(other, fs::perms(0666));
    fs::permissions(root, fs::perms(0777));
    const uid_t user = geteuid();
    ASSERT_EQ(seteuid(user == 0 ? 65534 : user), 0);  // the superuser may read anything
    for (int start = 0; start < 3; ++start) {
        engine->m_SetCachePath(index);
        EXPECT_TRUE(engine->m_Create());
        EXPECT_FALSE(engine->m_RefreshThumbFile());
    }
    engine->m_SetCachePath(other);
    EXPECT_TRUE(engine->m_RefreshThumbFile());
    ASSERT_EQ(seteuid(user), 0);
    fs::permissions(index, fs::perms(0644));
    EXPECT_EQ(Read(), record);
}

TEST_F(Lifecycle, saveThatArrivesDuringCreationWaitsForIt) {
    StartHeldCreation();
    ASSERT_TRUE(engine->Create((root + "/next").c_str()));  // taken over by the second worker
    auto saver = std::async(std::launch::async, [this] { return Save("dev0/a.jpg"); });
    connection.set_value(0);
    EXPECT_TRUE(saver.get());
    engine->m_AwaitWorkers();
    EXPECT_EQ(Content(*engine), " dev0 $/dev0/a.jpg");
    EXPECT_EQ(engine->m_strCachePath, root + "/next");
}

TEST_F(Lifecycle, engineIsDestroyedOnlyAfterItsWorkers) {
    StartHeldCreation();
    ASSERT_TRUE(engine->Create(index.c_str()) && engine->Create(index.c_str()));
    auto owner = std::async(std::launch::async, [this] { engine.reset(); });
    connection.set_value(0);
    owner.get();
    EXPECT_EQ(platform.connects + platform.disconnects, 2);
}
