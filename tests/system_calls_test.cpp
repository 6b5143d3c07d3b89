// What the system answers, and what becomes of the files then.
#include <fcntl.h>
#include <sys/stat.h>

#include "fixture.h"

struct System : CacheTest {
    System() {
        Load(records[0] + records[1]);
        Log();
    }
    // Does a piece of work with the calls as they are scripted.
    bool With(SystemCalls script, const std::function<bool()>& work) {
        g_calls = &script;
        const bool done = work();
        g_calls = nullptr;
        trace = script.trace;
        return done;
    }
    const std::function<bool()> refresh = [this] { return engine->m_RefreshThumbFile(); };
    const std::function<bool()> append = [this] {
        return engine->m_AddItemToThumbFile(engine->m_ThumbItemList.front());
    };
    const std::function<bool()> appendFolder = [this] {
        return engine->m_AddFolderItemToThumbFile(engine->m_ThumbFolderList.front());
    };
    bool Jpeg(const std::string& name) {
        return engine->m_JpegSave(pixels.data(), preset.data(), 40, 24, (root + name).c_str());
    }
    std::string trace, preset = "preset" + std::string(4090, '\0');
    const std::string records[2] = {FolderRecord("/c/dev"), ItemRecord("/c/dev/a", 5)};
};

TEST_F(System, theUmaskAloneNarrowsTheModesOfWhatIsMade) {
    const std::tuple<const char*, unsigned, std::function<bool()>> cases[] = {
        {"/append", 0666, append},
        {"/refresh", 0666, refresh},
        {"/image", 0666, [this] { return Jpeg("/image"); }},
        {"/folder", 0777, [this] { return engine->CreateDir((root + "/folder").c_str()); }},
    };
    for (const auto& [name, mode, make] : cases)
        for (const mode_t mask : {0000, 0027}) {
            fs::remove(engine->m_strCachePath = root + name);
            const mode_t old = umask(mask);
            EXPECT_TRUE(make()) << name;
            umask(old);
            EXPECT_EQ(unsigned(fs::status(root + name).permissions()), mode & ~mask) << name;
        }
    EXPECT_THAT(Log(), EndsWith("|I CZELThumbFlashCache::m_CreateDir [$/folder] success###~"));
}

TEST_F(System, aRewriteIsFlushedAndThenPublishedAndGoesInPlaceOnlyWhereTheDirectoryRefuses) {
    const std::string begun = " open new write", tried = begun + " fdatasync rename";
    const std::tuple<const char*, std::vector<int>, std::string, bool> cases[] = {
        {"", {0}, tried, true},
        {"rename", {EACCES, EPERM, EROFS, EBUSY}, tried + " sendfile ftruncate fdatasync", true},
        {"rename", {EIO, ENOSPC}, tried, false},
        {"new", {EACCES, EPERM, EROFS, ENAMETOOLONG}, begun + " ftruncate fdatasync", true},
        {"new", {ENOSPC, EMFILE, EIO}, " open new", false},
        {"write", {ENOSPC}, begun, false},
        {"fdatasync", {EIO}, begun + " fdatasync", false},
    };
    const std::string old(5000, 'x'), text = records[0] + records[1];
    for (const auto& [call, errors, calls, rewritten] : cases)
        for (const int error : errors) {
            SCOPED_TRACE(call + (" " + std::to_string(error)));
            Write("index", old);
            EXPECT_TRUE(With({{{call, error}}}, refresh));
            EXPECT_EQ(trace, calls);
            EXPECT_EQ(Read(), rewritten ? text : old);
            EXPECT_EQ(Log(), std::string("I m_RefreshThumbFile...~") +
                                 (rewritten ? "" : "|I m_RefreshThumbFile fwrite failed...~"));
            EXPECT_THAT(Files(), ElementsAre("$/index"));
        }
}

TEST_F(System, shortAndInterruptedReadsAndWritesChangeNothing) {
    std::string text = FolderRecord("/c, <\n\xff/d") + FolderRecord("/c/e", 1);
    const std::size_t folders = text.size();
    for (int number = 0; text.size() < 1400000; ++number)
        text += ItemRecord("/c, <\n\xff/d/" + std::to_string(number), number, number % 2);
    ASSERT_TRUE(Jpeg("/plain"));
    for (const char* refused : {"none", "new", "rename"}) {
        Write("index", text);
        EXPECT_TRUE(With({{{refused, EPERM}}, 3001, SIZE_MAX, true}, [this] {
            engine->m_ResetState();
            EXPECT_TRUE(engine->m_LoadThumbFile());
            engine->m_ThumbItemList.pop_front();
            return refresh() && append() && Jpeg("/pieces");
        }));
        const std::size_t length = text.find(">\r\n", folders) + 3 - folders;  // of each record
        const std::string rest = text.substr(folders + length);
        EXPECT_TRUE(Read() == text.substr(0, folders) + rest + rest.substr(0, length)) << refused;
        EXPECT_TRUE(Read("pieces") == Read("plain")) << refused;
    }
}

TEST_F(System, whatAFullDeviceCutsOffFollowsInOrderOnceThereIsRoom) {
    const std::size_t beyond = records[1].size() + 9;  // the end of the old text
    using Works = std::vector<std::function<bool()>>;
    const std::tuple<std::map<std::string, int>, std::size_t, Works, const char*, const char*>
        cases[] = {{{}, 9, {append}, "I m_AddItemToThumbFile", " /c/dev/a /c/dev/b /c/dev/c"},
                   {{{"ftruncate", EIO}},
                    9,
                    {append},
                    "I m_AddItemToThumbFile",
                    " /c/dev/a /c/dev/b /c/dev/c"},
                   {{},
                    9,
                    {append, appendFolder},
                    "W m_AddFolderItemToThumbFile",
                    " dev /c/dev/a /c/dev/b /c/dev/c"},
                   {{}, 9, {refresh}, "I m_RefreshThumbFile", " /c/dev/a /c/dev/c"},
                   // Records may be missing of what is gone by now: the lists have what is there.
                   {{}, 9, {append, refresh}, "I m_RefreshThumbFile", " dev /c/dev/c /c/dev/c"},
                   {{{"new", EROFS}}, beyond, {refresh}, "I m_RefreshThumbFile", " dev /c/dev/c"}};
    for (const auto& [refused, room, works, who, left] : cases) {
        Write("index", "");
        EXPECT_TRUE(append());
        engine->m_ThumbItemList.front()->URL = "/c/dev/b";
        for (const auto& work : works)
            EXPECT_TRUE(With({refused, SIZE_MAX, room}, work));
        EXPECT_THAT(Log(), EndsWith(who + std::string(" fwrite failed...~")));
        engine->m_ThumbItemList.front()->URL = "/c/dev/c";
        EXPECT_TRUE(append());
        EXPECT_EQ(Load(Read()), left) << who;
        Load(records[0] + records[1]);
    }
}

TEST_F(System, anIndexThatCannotBeOpenedIsNeitherWrittenNorReplaced) {
    const std::pair<std::function<bool()>, const char*> cases[] = {
        {refresh, "I m_RefreshThumbFile...~|I Failed to create $/index  file.~"},
        {append, "I Failed to create $/index\tfile.~"},
        {appendFolder, "I Failed to create $/index\tfile.~"},
    };
    for (const auto& [work, lines] : cases) {
        EXPECT_FALSE(With({{{"open", EACCES}}}, work));
        EXPECT_EQ(Log(), lines);
    }
}

TEST_F(System, whatCameBeforeAReadErrorIsLoaded) {
    Write("index", records[0] + records[1] + records[1]);
    engine->m_ResetState();
    const std::size_t two = records[0].size() + records[1].size();
    EXPECT_TRUE(With({{}, 7, two + 9}, [this] { return engine->m_LoadThumbFile(); }));
    EXPECT_EQ(Content(*engine), " dev /c/dev/a");
}

TEST_F(System, aNamedPipeAtAPathStopsNobody) {
    fs::remove(index);
    for (const char* name : {"/index", "/index.new", "/image"})
        ASSERT_EQ(mkfifo((root + name).c_str(), 0666), 0);
    EXPECT_FALSE(Jpeg("/image"));
    EXPECT_EQ(Log(), "I can't open filename[$/image] errno=6~");
    EXPECT_TRUE(engine->m_LoadThumbFile());
    EXPECT_FALSE(refresh());
    EXPECT_TRUE(append());
    fs::remove(index);
    EXPECT_TRUE(refresh());
    EXPECT_EQ(Read(), records[0] + records[1]);
}
