#include <sys/stat.h>
#include <unistd.h>

#include "fixture.h"

namespace {

using testing::ElementsAre;

class ThumbFileWriting : public CacheTest {
protected:
    ThumbFileWriting() {
        engine->AddFolder("dev0", "/c/dev0");
        engine->AddItem("/c/dev0", "/c/dev0/a", 5);
        platform.TakeLog();
    }
    auto Item() const { return engine->m_ThumbItemList.back(); }
    auto Folder() const { return engine->m_ThumbFolderList.back(); }
    // Ordinary users meet refusals that root does not.
    static void BecomeNobody(bool nobody) { ASSERT_EQ(seteuid(nobody ? 65534 : 0), 0); }

    const std::string folder = FolderRecord("dev0", "/c/dev0");
    const std::string item = ItemRecord("/c/dev0", "/c/dev0/a", 5);
};

TEST_F(ThumbFileWriting, rewriteHoldsFoldersThenItemsAndLeavesOutWhatHasNoPath) {
    engine->AddFolder("", "/c/x");
    engine->AddFolder("x", "");
    engine->AddItem("", "/c/y", 1);
    engine->AddItem("/c/dev0", "", -7, 7);
    engine->AddItem("/c/dev0", std::string(1000, 'u'), 1);
    engine->AddFolder("y", std::string(1000, 'p'));
    Write(index, std::string(5000, 'x'));
    EXPECT_TRUE(engine->m_RefreshThumbFile());
    EXPECT_EQ(Read(index), folder + item + ItemRecord("/c/dev0", "", -7, 7));
    EXPECT_THAT(platform.TakeLog(),
                ElementsAre("I m_RefreshThumbFile...\n", "I strSid or strPath is empty###\n",
                            "I strSid or strPath is empty###\n",
                            "I m_RefreshThumbFile folder record is too long\n",
                            "I m_RefreshThumbFile thumbnail record is too long\n"));
    engine->m_ThumbItemList.clear();
    engine->m_ThumbFolderList.clear();
    EXPECT_TRUE(engine->m_RefreshThumbFile());
    EXPECT_EQ(Read(index), "");
}

TEST_F(ThumbFileWriting, appendsAddOneRecordAtTheEndAndRefuseWhatCannotBeLoaded) {
    EXPECT_TRUE(engine->m_AddItemToThumbFile(Item()));
    EXPECT_TRUE(engine->m_AddFolderItemToThumbFile(Folder()));
    EXPECT_TRUE(engine->m_AddItemToThumbFile(Item()));
    EXPECT_FALSE(engine->m_AddItemToThumbFile(nullptr));
    EXPECT_FALSE(engine->m_AddFolderItemToThumbFile(nullptr));
    Item()->Size = -1, Folder()->Sid = "";
    EXPECT_FALSE(engine->m_AddItemToThumbFile(Item()));
    EXPECT_FALSE(engine->m_AddFolderItemToThumbFile(Folder()));
    Item()->Size = 1, Folder()->Sid = std::string(1010, 's');
    Item()->URL = std::string(1023 - (item.size() - 9), 'u');
    EXPECT_TRUE(engine->m_AddItemToThumbFile(Item()));  // 1,023 characters
    const std::string longest = ItemRecord("/c/dev0", Item()->URL, 1);
    Item()->URL += "u";
    EXPECT_FALSE(engine->m_AddItemToThumbFile(Item()));
    EXPECT_FALSE(engine->m_AddFolderItemToThumbFile(Folder()));
    EXPECT_EQ(longest.size(), 1023U);
    EXPECT_EQ(Read(index), item + folder + item + longest);
    EXPECT_THAT(
        platform.TakeLog(),
        ElementsAre("I m_AddItemToThumbFile pThumbItem is NULL\n", "I pThumbFolderItem == NULL\n",
                    "I m_AddItemToThumbFile strPath is empty or Size < 0\n",
                    "I m_AddFolderItemToThumbFile strSid or strPath is empty\n",
                    "I m_AddItemToThumbFile record is too long\n",
                    "I m_AddFolderItemToThumbFile record is too long\n"));
}

TEST_F(ThumbFileWriting, pathThatCannotBeOpenedIsRefused) {
    const std::string none = engine->m_strCachePath = root / "none/index";
    EXPECT_FALSE(engine->m_RefreshThumbFile());
    EXPECT_FALSE(engine->m_AddItemToThumbFile(Item()));
    EXPECT_FALSE(engine->m_AddFolderItemToThumbFile(Folder()));
    EXPECT_THAT(platform.TakeLog(),
                ElementsAre("I m_RefreshThumbFile...\n", "I Failed to create " + none + "  file.\n",
                            "I Failed to create " + none + "\tfile.\n",
                            "I Failed to create " + none + "\tfile.\n"));
}

TEST_F(ThumbFileWriting, aFullDeviceIsLoggedAndAnswersTrue) {
    engine->m_strCachePath = "/dev/full";
    EXPECT_TRUE(engine->m_RefreshThumbFile());
    EXPECT_TRUE(engine->m_AddItemToThumbFile(Item()));
    EXPECT_TRUE(engine->m_AddFolderItemToThumbFile(Folder()));
    EXPECT_THAT(platform.TakeLog(),
                ElementsAre("I m_RefreshThumbFile...\n", "I m_RefreshThumbFile fwrite failed...\n",
                            "I m_AddItemToThumbFile fwrite failed...\n",
                            "W m_AddFolderItemToThumbFile fwrite failed...\n"));
}

TEST_F(ThumbFileWriting, appendAfterATornRecordIsNotLostWithIt) {
    for (const char* torn : {"<Type=0,Pat", "<Type=1,Sid=\"a\",Path=\"b\",Devicetype=0>", "\r"}) {
        Write(index, item + torn);
        EXPECT_TRUE(engine->m_AddItemToThumbFile(Item()));
        EXPECT_EQ(Read(index), item + torn + ">\r\n" + item);
    }
}

TEST_F(ThumbFileWriting, rewriteKeepsLinkModeAndOwnerAndNoTemporaryFile) {
    Write(root / "target", "old");
    chmod((root / "target").c_str(), 0640);
    ASSERT_EQ(geteuid() == 0 ? chown((root / "target").c_str(), 65534, 65533) : 0, 0);
    std::filesystem::create_symlink("target", index);
    Write(root / "target.new", "left by a killed process");
    EXPECT_TRUE(engine->m_RefreshThumbFile());
    EXPECT_TRUE(std::filesystem::is_symlink(index));
    EXPECT_EQ(Read(root / "target"), folder + item);
    EXPECT_THAT(Files(), ElementsAre("index", "target"));
    struct stat status {};
    stat(index.c_str(), &status);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
    EXPECT_EQ(status.st_uid, geteuid() == 0 ? 65534U : geteuid());

    std::filesystem::remove(root / "target");  // a link that leads nowhere is written through
    EXPECT_TRUE(engine->m_RefreshThumbFile());
    EXPECT_EQ(Read(root / "target"), folder + item);
}

TEST_F(ThumbFileWriting, rewriteGoesInPlaceWhereTheDirectoryTakesNoNewFile) {
    const std::string longName(255, 'n');  // leaves no room for a longer one
    Write(root / longName, std::string(5000, 'x'));
    engine->m_strCachePath = root / longName;
    EXPECT_TRUE(engine->m_RefreshThumbFile());
    EXPECT_EQ(Read(root / longName), folder + item);
    EXPECT_THAT(Files(), ElementsAre(longName));
    if (geteuid() != 0) {
        GTEST_SKIP() << "the rest needs another user to be";
    }
    engine->m_strCachePath = index;
    Write(index, "old");
    chmod(index.c_str(), 0666);
    chmod(root.c_str(), 0555);
    BecomeNobody(true);
    EXPECT_TRUE(engine->m_RefreshThumbFile());
    BecomeNobody(false);
    EXPECT_EQ(Read(index), folder + item);
    chmod(index.c_str(), 0444);
    chmod(root.c_str(), 0777);
    BecomeNobody(true);
    EXPECT_FALSE(engine->m_RefreshThumbFile());  // what cannot be written is not replaced either
    BecomeNobody(false);
}

}  // namespace
