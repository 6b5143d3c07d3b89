// What is true of the index whatever it holds. What single texts become stands in the scenarios.
#include "fixture.h"

struct ThumbFile : CacheTest {
    static std::string Item(const std::string& name) { return ItemRecord("p/" + name, 7); }
    const std::string a = Item("a"), b = Item("b"), c = Item("c"), d = Item("d");
};

TEST_F(ThumbFile, aChangedByteCostsItsRecordOrTheNextOne) {
    for (std::size_t at = 0; at < b.size(); ++at) {
        std::string changed = b;
        changed[at] = '#';
        EXPECT_THAT(
            Load(a + changed + c + d),
            testing::MatchesRegex(b[at] == '>' ? " p/a p/b p/d" : " p/a( [p#][/#][b#])? p/c p/d"));
    }
}

TEST_F(ThumbFile, recordsThatStraddleAChunkAreWhole) {
    constexpr std::size_t chunk = 1048576;
    std::string filler;  // of records that are refused
    while (filler.size() < chunk - 2000)
        filler += "<" + std::string(1000, 'x') + ">\r\n";
    for (std::size_t before = chunk - b.size() - 2; before <= chunk + 2; ++before) {
        const std::string blank(before - filler.size() - a.size(), ' ');
        EXPECT_EQ(Load(filler + blank + a + b + c), " p/a p/b p/c") << before;
    }
    // What lies behind a chunk and could not be read stays.
    SystemCalls failing;
    failing.room = chunk;
    g_calls = &failing;
    EXPECT_TRUE(engine->m_LoadThumbFile());
    g_calls = nullptr;
    EXPECT_FALSE(engine->m_RefreshThumbFile());
    EXPECT_EQ(Load(Read()), " p/a p/b p/c");
    // With the line feed before it, such a text fills the buffer: what comes before it stays.
    const auto longText = [](std::size_t size) { return "<" + std::string(size - 2, 'x') + ">"; };
    EXPECT_EQ(Load(a + longText(chunk - 2) + b), " p/a p/b");
    EXPECT_EQ(Load(a + longText(chunk - 1) + b), " p/a");
}

TEST_F(ThumbFile, aLargeIndexIsRewrittenByteForByteOrNotAtAll) {
    std::string folders, items;
    for (int number = 0; number < 9000; ++number) {
        const std::string path = "/c/d, <\n\xff/" + std::to_string(number);
        items += ItemRecord(path + std::string(number % 9 * 100, 'n'), number % 500, number % 2);
        folders += FolderRecord(path, number % 2);
    }
    Load(folders + items);
    ASSERT_TRUE(engine->m_RefreshThumbFile());
    EXPECT_TRUE(Read() == folders + items);  // too long for a difference
    const std::pair<std::size_t, std::string> fullDevices[] = {
        {folders.size() / 2, "m_RefreshThumbFile"},
        {folders.size() + items.size() / 2, "m_AddItemToThumbFile"}};
    for (const auto& [room, function] : fullDevices) {
        Log();
        SystemCalls full;
        full.room = room;
        g_calls = &full;
        EXPECT_TRUE(engine->m_RefreshThumbFile());
        g_calls = nullptr;
        EXPECT_EQ(Log(), "I m_RefreshThumbFile...~|I " + function + " fwrite failed...~");
        EXPECT_TRUE(Read() == folders + items);  // too long for a difference
    }
}

TEST_F(ThumbFile, recordsThatLackATextAreLeftOutOfARewrite) {
    Load(FolderRecord("p") + FolderRecord("q") + a);
    engine->m_ThumbFolderList.front()->Sid.clear();
    engine->m_ThumbFolderList.back()->Path.clear();
    engine->m_ThumbItemList.front()->Path.clear();
    Log();
    EXPECT_TRUE(engine->m_RefreshThumbFile());
    EXPECT_EQ(Read(), "");
    const std::string left = "|I strSid or strPath is empty###~";
    EXPECT_EQ(Log(), "I m_RefreshThumbFile...~" + left + left);
}

// Whatever the texts are, a record is refused, or read back as it is and nothing else with it.
TEST_F(ThumbFile, recordsAreReadBackAsTheyAreOrRefused) {
    Load(FolderRecord("p") + a);
    auto& item = *engine->m_ThumbItemList.front();
    auto& folder = *engine->m_ThumbFolderList.front();
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
        item.Path = folder.Sid = text();
        item.URL = folder.Path = text();
        const bool appended = engine->m_AddFolderItemToThumbFile(&folder);
        EXPECT_EQ(engine->m_AddItemToThumbFile(&item), appended);
        const std::string expected = appended ? describe(*engine) : "";
        EXPECT_EQ(readBack(), expected);
        EXPECT_TRUE(engine->m_RefreshThumbFile());
        EXPECT_EQ(readBack(), expected);
        kept += appended;
    }
    EXPECT_GT(kept, 100);
    EXPECT_LT(kept, 300);
    const std::string log = Log(), reason = " record holds \" or > or NUL~|";
    EXPECT_THAT(log, HasSubstr("I m_AddFolderItemToThumbFile" + reason + "I m_AddItemToThumbFile" +
                               reason));
    EXPECT_THAT(log, HasSubstr("I m_RefreshThumbFile folder" + reason +
                               "I m_RefreshThumbFile thumbnail" + reason));
}
