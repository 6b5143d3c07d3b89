#include <sys/stat.h>
#include <unistd.h>

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
        {item + "<Ty" + std::string(9000, '\0'), item + "<Ty>\r\n"},
        {std::string(4096, '\0'), ""},
    };
    for (const auto& [torn, repaired] : cases) {
        Write("index", torn);
        engine->m_bEndIsWhole = false;
        EXPECT_TRUE(engine->m_AddItemToThumbFile(&Item()));
        EXPECT_EQ(Read(), repaired + item);
    }
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
