#include "fixture.h"

struct ThumbFileWriting : CacheTest {
    ThumbFileWriting() {
        Load(folder + item);
        fs::remove(index);
        Log();
    }
    auto& Item() const { return *engine->m_ThumbItemList.front(); }
    auto& Folder() const { return *engine->m_ThumbFolderList.front(); }
    // Rewrites the index and appends both records to it; how many of the three succeeded.
    int WriteEach() {
        int written = engine->m_RefreshThumbFile();
        written += engine->m_AddItemToThumbFile(&Item());
        return written + engine->m_AddFolderItemToThumbFile(&Folder());
    }
    const std::string folder = FolderRecord("/c/dev0"), item = ItemRecord("/c/dev0/a", 5);
};

TEST_F(ThumbFileWriting, foldersComeBeforeItemsAndWhatCannotBeLoadedIsLeftOut) {
    Write("index", std::string(5000, 'x'));
    Item().URL += std::string(1023 - item.size(), 'u');
    Folder().Sid += std::string(1023 - folder.size(), 's');
    EXPECT_EQ(WriteEach(), 3);
    const std::string longItem = ItemRecord(Item().URL, 5);
    EXPECT_THAT(Read(), HasSubstr(longItem + longItem));
    Item().URL += "u", Folder().Sid += "s";
    EXPECT_EQ(WriteEach(), 1);
    Item().URL = "", Item().Size = -7, Folder().Sid = "";
    EXPECT_EQ(WriteEach(), 1);
    EXPECT_EQ(Read(), "<Type=0,Path=\"/c/dev0\",URL=\"\",Size=-7,Devicetype=0>\r\n");
    Item().Path = Folder().Path = "", Item().Size = 0, Folder().Sid = "x";
    EXPECT_EQ(WriteEach(), 1);
    EXPECT_EQ(Read(), "");
    EXPECT_FALSE(engine->m_AddItemToThumbFile({}) || engine->m_AddFolderItemToThumbFile({}));
    EXPECT_THAT(Log(), HasSubstr("|I m_RefreshThumbFile folder record is too long~"
                                 "|I m_RefreshThumbFile thumbnail record is too long~"
                                 "|I m_AddItemToThumbFile record is too long~"
                                 "|I m_AddFolderItemToThumbFile record is too long~"
                                 "|I m_RefreshThumbFile...~|I strSid or strPath is empty###~"
                                 "|I m_AddItemToThumbFile strPath is empty or Size < 0~"
                                 "|I m_AddFolderItemToThumbFile strSid or strPath is empty~"
                                 "|I m_RefreshThumbFile...~|I strSid or strPath is empty###~|"));
}

TEST_F(ThumbFileWriting, whatCannotBeOpenedIsRefusedButAFullDeviceIsOnlyLogged) {
    engine->m_strCachePath = root + "/none/index";
    EXPECT_EQ(WriteEach(), 0);
    engine->m_strCachePath = "/dev/full";
    EXPECT_EQ(WriteEach(), 3);
    EXPECT_EQ(Log(),
              "I m_RefreshThumbFile...~|I Failed to create $/none/index  file.~"
              "|I Failed to create $/none/index\tfile.~|I Failed to create $/none/index\tfile.~"
              "|I m_RefreshThumbFile...~|I m_RefreshThumbFile fwrite failed...~"
              "|I m_AddItemToThumbFile fwrite failed...~"
              "|W m_AddFolderItemToThumbFile fwrite failed...~");
}

TEST_F(ThumbFileWriting, firstAppendEndsATornRecordAndCutsOffZeros) {
    const std::pair<std::string, std::string> cases[] = {
        {item + "<Type=0,Pat", item + "<Type=0,Pat>\r\n"},
        {item + "\r", item + "\r>\r\n"},
        {item + "<Type=0,Path=\"a\n", item + "<Type=0,Path=\"a\n>\r\n"},
        {item + "<Ty" + std::string(9000, '\0'), item + "<Ty>\r\n"},
        {std::string(4096, '\0'), ""},
    };
    for (const auto& [torn, repaired] : cases) {
        Write("index", torn);
        engine->m_ThumbFileState.bEndIsWhole = false;
        EXPECT_TRUE(engine->m_AddItemToThumbFile(&Item()));
        EXPECT_EQ(Read(), repaired + item);
    }
}

TEST_F(ThumbFileWriting, appendBehindWhatCannotBeReadIsPrecededByARewrite) {
    const std::string nul(1, '\0');
    for (const std::string& hiding : {nul + item, "<Ty" + nul + "x", std::string(1048577, 'x')}) {
        Load(folder + item + hiding);
        Log();
        EXPECT_TRUE(engine->m_AddItemToThumbFile(&Item()));
        EXPECT_EQ(Log(), "I m_RefreshThumbFile...~");
        EXPECT_EQ(Read(), folder + item + item);
    }
}

// Whatever the texts are, a record is refused, or read back as it is and nothing else with it.
TEST_F(ThumbFileWriting, recordsAreReadBackAsTheyAreOrRefused) {
    std::mt19937 random(1);
    constexpr std::string_view pieces[] = {
        "a",       "/",  "<", ",", "=", "\r\n", "\n", "<Type=1,Sid=", ",Devicetype=0",
        {"\0", 1}, "\"", ">"};
    const auto text = [&] {
        std::string made(1, 'a');
        for (auto length = random() % 8, most = 6 + random() % 7; length > 0; --length)
            made += pieces[random() % most];
        return made;
    };
    const auto describe = [](const Engine& of) {
        std::string all;
        for (const auto& known : of.m_ThumbFolderList)
            all += "folder " + known->Sid + "|" + known->Path;
        for (const auto& known : of.m_ThumbItemList)
            all += "item " + known->Path + "|" + known->URL;
        return all;
    };
    const auto readBack = [&] {
        Engine loaded;
        loaded.m_strCachePath = index;
        std::ignore = loaded.m_LoadThumbFile();  // no file is no record
        return describe(loaded);
    };
    int kept = 0;
    for (int round = 0; round < 400; ++round) {
        fs::remove(index);
        Item().Path = Folder().Sid = text();
        Item().URL = Folder().Path = text();
        const bool appended = engine->m_AddFolderItemToThumbFile(&Folder());
        EXPECT_EQ(engine->m_AddItemToThumbFile(&Item()), appended);
        const std::string expected = appended ? describe(*engine) : "";
        EXPECT_EQ(readBack(), expected);
        EXPECT_TRUE(engine->m_RefreshThumbFile());
        EXPECT_EQ(readBack(), expected);
        kept += appended;
    }
    EXPECT_GT(kept, 100);
    EXPECT_LT(kept, 300);
    EXPECT_THAT(Log(), HasSubstr("I m_AddFolderItemToThumbFile record holds \" or > or NUL~|"
                                 "I m_AddItemToThumbFile record holds \" or > or NUL~|"));
}

TEST_F(ThumbFileWriting, rewriteDropsWhatOnlyAnotherProcessKnows) {
    Engine other;
    other.m_strCachePath = index;
    EXPECT_TRUE(engine->m_AddItemToThumbFile(&Item()) && other.m_AddItemToThumbFile(&Item()));
    EXPECT_EQ(Read(), item + item);
    EXPECT_TRUE(other.m_RefreshThumbFile());
    EXPECT_EQ(Read(), "");
}

TEST_F(ThumbFileWriting, rewriteKeepsLinkModeAndOwnerAndNoTemporaryFile) {
    const std::string target = Write("target", "old");
    const uid_t owner = geteuid() == 0 ? 65534 : geteuid();
    ASSERT_EQ(chmod(target.c_str(), 0640) + chown(target.c_str(), owner, getegid()), 0);
    fs::create_symlink("target", index);
    fs::create_hard_link(target, root + "/old");
    Write("target.new", "left by a killed process");
    EXPECT_TRUE(engine->m_RefreshThumbFile());
    struct stat status {};
    stat(target.c_str(), &status);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
    EXPECT_EQ(status.st_uid, owner);
    EXPECT_TRUE(fs::is_symlink(index));
    EXPECT_EQ(Read("target") + Read("old"), folder + item + "old");  // replaced, not rewritten
    EXPECT_THAT(Files(), ElementsAre("$/index", "$/old", "$/target"));
    fs::remove(target);  // a link that leads nowhere is written through
    EXPECT_TRUE(engine->m_RefreshThumbFile());
    EXPECT_EQ(Read("target"), folder + item);
}

TEST_F(ThumbFileWriting, rewriteGoesInPlaceWhereTheDirectoryTakesNoNewFile) {
    const std::string longName(255, 'n');  // leaves no room for a longer one
    engine->m_strCachePath = Write(longName, std::string(5000, 'x'));
    EXPECT_TRUE(engine->m_RefreshThumbFile());
    EXPECT_EQ(Read(longName), folder + item);
    EXPECT_THAT(Files(), ElementsAre("$/" + longName));

    const auto refresh = [&](mode_t fileMode, mode_t rootMode) {
        chmod(index.c_str(), fileMode), chmod(root.c_str(), rootMode);
        const uid_t user = geteuid();
        EXPECT_EQ(seteuid(user == 0 ? 65534 : user), 0);  // the superuser meets no refusal
        const bool refreshed = engine->m_RefreshThumbFile();
        EXPECT_EQ(seteuid(user), 0);
        return refreshed;
    };
    engine->m_strCachePath = index;
    for (const mode_t mode : {0555, 01777}) {  // takes no new file; keeps what others own
        Write("index", std::string(5000, 'x'));
        Log();
        EXPECT_TRUE(refresh(0666, mode));
        EXPECT_EQ(Read() + Log(), folder + item + "I m_RefreshThumbFile...~");
    }
    EXPECT_FALSE(refresh(0444, 0777));  // what cannot be written is not replaced either
}
