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
    using ItemRow = std::tuple<Engine::CZELFlashCacheItem*, int, const char*, const char*>;
    using FolderRow = std::tuple<Engine::CZELFlashCacheFolderItem*, int, const char*, const char*>;
    // For each record: whether a rewrite takes it, before one that it takes, and what is told then
    // and by an append.
    template <class Row, class List, class Append>
    void Check(const std::vector<Row>& rows, List& list, const Append& append) {
        const auto good = list.front();
        for (const auto& [record, written, rewriteLine, appendLine] : rows) {
            list = {record, good};
            EXPECT_TRUE(engine->m_RefreshThumbFile());
            EXPECT_EQ(Log(), std::string("I m_RefreshThumbFile...~") + rewriteLine);
            const std::string text = Read();
            EXPECT_EQ(std::count(text.begin(), text.end(), '<'), 2 + written) << text;
            EXPECT_EQ(append(record), *appendLine == '\0');
            EXPECT_EQ(Log(), appendLine);
        }
        list = {good};
    }
    const std::string folder = FolderRecord("/c/dev0"), item = ItemRecord("/c/dev0/a", 5);
};

TEST_F(ThumbFileWriting, aRefusedRecordIsToldAndCostsOnlyItself) {
    using Item = Engine::CZELFlashCacheItem;
    using Folder = Engine::CZELFlashCacheFolderItem;
    const std::string most(1023 - ItemRecord("/c/", 5).size() + 1, 'u');
    const std::string mostId(1023 - FolderRecord("/").size(), 's');
    const char* refused = "I m_AddItemToThumbFile strPath is empty or Size < 0~";
    const char* empty = "I m_AddFolderItemToThumbFile strSid or strPath is empty~";
    Check<ItemRow>({{new Item("/c", "/c" + most, 5, 0), 1, "", ""},
                    {new Item("/c", "/c/" + most, 5, 0), 0,
                     "|I m_RefreshThumbFile thumbnail record is too long~",
                     "I m_AddItemToThumbFile record is too long~"},
                    {new Item("/c", "/c/a>b", 5, 0), 0,
                     "|I m_RefreshThumbFile thumbnail record holds \" or > or NUL~",
                     "I m_AddItemToThumbFile record holds \" or > or NUL~"},
                    {new Item("", "/c/b", 5, 0), 0, "", refused},
                    {new Item("/c", "", 0, 0), 1, "", ""},
                    {new Item("/c", "/c/b", -7, 0), 1, "", refused}},
                   engine->m_ThumbItemList,
                   [this](Item* record) { return engine->m_AddItemToThumbFile(record); });
    Check<FolderRow>(
        {{new Folder(mostId, "/", 0), 1, "", ""},
         {new Folder(mostId + "s", "/", 0), 0, "|I m_RefreshThumbFile folder record is too long~",
          "I m_AddFolderItemToThumbFile record is too long~"},
         {new Folder("c\"", "/c", 0), 0,
          "|I m_RefreshThumbFile folder record holds \" or > or NUL~",
          "I m_AddFolderItemToThumbFile record holds \" or > or NUL~"},
         {new Folder("", "/c", 0), 0, "|I strSid or strPath is empty###~", empty},
         {new Folder("c", "", 0), 0, "|I strSid or strPath is empty###~", empty}},
        engine->m_ThumbFolderList,
        [this](Folder* record) { return engine->m_AddFolderItemToThumbFile(record); });
    EXPECT_FALSE(engine->m_AddItemToThumbFile({}));
    EXPECT_FALSE(engine->m_AddFolderItemToThumbFile({}));
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
    auto& first = *engine->m_ThumbFolderList.front();
    int kept = 0;
    for (int round = 0; round < 400; ++round) {
        fs::remove(index);
        Item().Path = first.Sid = text();
        Item().URL = first.Path = text();
        const bool appended = engine->m_AddFolderItemToThumbFile(&first);
        EXPECT_EQ(engine->m_AddItemToThumbFile(&Item()), appended);
        const std::string expected = appended ? describe(*engine) : "";
        EXPECT_EQ(readBack(), expected);
        EXPECT_TRUE(engine->m_RefreshThumbFile());
        EXPECT_EQ(readBack(), expected);
        kept += appended;
    }
    EXPECT_GT(kept, 100);
    EXPECT_LT(kept, 300);
}

TEST_F(ThumbFileWriting, rewriteDropsWhatOnlyAnotherProcessKnows) {
    Engine other;
    other.m_strCachePath = index;
    EXPECT_TRUE(engine->m_AddItemToThumbFile(&Item()));
    EXPECT_TRUE(other.m_AddItemToThumbFile(&Item()));
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
