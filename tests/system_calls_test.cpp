// What the system answers, and what becomes of the files then.
#include <fcntl.h>
#include <sys/stat.h>

#include "fixture.h"

struct System : CacheTest {
    System() {
        Load(records[0] + records[1]);
        Log();
    }
    // Does a piece of work with the calls as they are scripted, which may be healed afterwards.
    template <class Work>
    bool With(const SystemCalls& script, Work work) {
        g_calls = &(calls = script);
        const bool done = work();
        g_calls = nullptr;
        return done;
    }
    bool Refresh() { return engine->m_RefreshThumbFile(); }
    bool Append() { return engine->m_AddItemToThumbFile(engine->m_ThumbItemList.front()); }
    bool Jpeg(const std::string& name) {
        return engine->m_JpegSave(pixels.data(), preset.data(), 40, 24, (root + name).c_str());
    }
    unsigned Mode(const std::string& name) {
        struct stat status {};
        EXPECT_EQ(stat((root + name).c_str(), &status), 0) << name;
        return status.st_mode & 07777;
    }
    SystemCalls calls;
    std::string preset = "preset" + std::string(4090, '\0');
    const std::string records[2] = {FolderRecord("/c/dev"), ItemRecord("/c/dev/a", 5)};
};

TEST_F(System, theUmaskAloneNarrowsTheModesOfWhatIsMade) {
    const std::pair<const char*, std::function<bool()>> cases[] = {
        {"/append", [&] { return Append(); }},
        {"/refresh", [&] { return Refresh(); }},
        {"/image", [&] { return Jpeg("/image"); }},
        {"/folder", [&] { return engine->CreateDir((root + "/folder").c_str()); }},
    };
    for (const auto& [name, make] : cases)
        for (const mode_t mask : {0000, 0027}) {
            fs::remove(engine->m_strCachePath = root + name);
            const mode_t old = umask(mask);
            EXPECT_TRUE(make()) << name;
            umask(old);
            EXPECT_EQ(Mode(name), (fs::is_directory(root + name) ? 0777U : 0666U) & ~mask) << name;
        }
    EXPECT_THAT(Log(), EndsWith("|I CZELThumbFlashCache::m_CreateDir [$/folder] success###~"));
}

TEST_F(System, aRewriteIsFlushedBeforeItIsPublishedOrGoesInPlaceOnlyWhereTheDirectoryRefuses) {
    const std::string before = " open new write", over = before + " ftruncate fdatasync";
    const std::string tried = before + " fdatasync rename",
                      copied = tried + " sendfile ftruncate fdatasync";
    const std::tuple<const char*, int, std::string, bool> cases[] = {
        {"", 0, tried, true},
        {"rename", EACCES, copied, true},
        {"rename", EPERM, copied, true},
        {"rename", EROFS, copied, true},
        {"rename", EBUSY, copied, true},
        {"rename", EIO, tried, false},
        {"rename", ENOSPC, tried, false},
        {"new", EACCES, over, true},
        {"new", EPERM, over, true},
        {"new", EROFS, over, true},
        {"new", EBUSY, over, true},
        {"new", ENAMETOOLONG, over, true},
        {"new", ENOSPC, " open new", false},
        {"new", EMFILE, " open new", false},
        {"new", EIO, " open new", false},
        {"write", ENOSPC, before, false},
        {"fdatasync", EIO, before + " fdatasync", false},
    };
    const std::string old(5000, 'x'), text = records[0] + records[1];
    for (const auto& [call, error, trace, rewritten] : cases) {
        SCOPED_TRACE(call + (" " + std::to_string(error)));
        Write("index", old);
        EXPECT_TRUE(With({{{call, error}}}, [&] { return Refresh(); }));
        EXPECT_EQ(calls.trace, trace);
        EXPECT_EQ(Read(), rewritten ? text : old);
        EXPECT_EQ(Log(), std::string("I m_RefreshThumbFile...~") +
                             (rewritten ? "" : "|I m_RefreshThumbFile fwrite failed...~"));
        EXPECT_THAT(Files(), ElementsAre("$/index"));
    }
}

TEST_F(System, shortAndInterruptedReadsAndWritesChangeNothing) {
    std::string text;
    for (int number = 0; text.size() < 1400000; ++number)
        text += ItemRecord("/c/dev/" + std::to_string(number), number);
    ASSERT_TRUE(Jpeg("/plain"));
    for (const char* refused : {"none", "new", "rename"}) {
        SCOPED_TRACE(refused);
        const auto loadAndRewrite = [&] {
            engine->m_ResetState();
            EXPECT_TRUE(engine->m_LoadThumbFile());
            engine->m_ThumbItemList.pop_front();
            return Refresh() && Append() && Jpeg("/pieces");
        };
        Write("index", text);
        EXPECT_TRUE(With({{{refused, EPERM}}, 3001, SIZE_MAX, true}, loadAndRewrite));
        const std::string first = ItemRecord("/c/dev/0", 0), second = ItemRecord("/c/dev/1", 1);
        EXPECT_TRUE(Read() == text.substr(first.size()) + second);
        EXPECT_TRUE(Read("pieces") == Read("plain"));
    }
}

TEST_F(System, whatAFullDeviceCutsOffCostsNothingThatIsWrittenOnceThereIsRoom) {
    const auto append = [&] { return Append(); };
    const auto refresh = [&] { return Refresh(); };
    const std::tuple<std::map<std::string, int>, std::size_t, std::function<bool()>> cases[] = {
        {{}, 9, append},
        {{{"ftruncate", EIO}}, 9, append},
        {{}, 9, refresh},
        {{{"new", EROFS}}, records[1].size() + 9, refresh},  // beyond the end of the old text
    };
    for (const auto& [refused, room, work] : cases) {
        Write("index", "");
        EXPECT_TRUE(Append());
        engine->m_ThumbItemList.front()->URL = "/c/dev/b";
        EXPECT_TRUE(With({refused, SIZE_MAX, room}, work));
        engine->m_ThumbItemList.front()->URL = "/c/dev/c";
        EXPECT_TRUE(Append());
        EXPECT_THAT(Load(Read()), EndsWith(" /c/dev/c"));
        Load(records[0] + records[1]);
    }
}

TEST_F(System, whatCameBeforeAReadErrorIsLoaded) {
    Write("index", records[0] + records[1] + records[1]);
    engine->m_ResetState();
    const std::size_t two = records[0].size() + records[1].size();
    EXPECT_TRUE(With({{}, 7, two + 9}, [&] { return engine->m_LoadThumbFile(); }));
    EXPECT_EQ(Content(*engine), " dev /c/dev/a");
}

TEST_F(System, aNamedPipeAtAPathStopsNobody) {
    fs::remove(index);
    for (const char* name : {"/index", "/index.new", "/image"})
        ASSERT_EQ(mkfifo((root + name).c_str(), 0666), 0);
    EXPECT_FALSE(Jpeg("/image"));
    EXPECT_EQ(Log(), "I can't open filename[$/image] errno=6~");
    EXPECT_TRUE(engine->m_LoadThumbFile());
    EXPECT_FALSE(Refresh());
    EXPECT_TRUE(Append());
    fs::remove(index);
    EXPECT_TRUE(Refresh());
    EXPECT_EQ(Read(), records[0] + records[1]);
}
