#include "fixture.h"

struct Loading : CacheTest {
    static std::string Item(const std::string& name) {
        return "<Type=0,Path=\"p\",URL=\"" + name + "\",Size=7,Devicetype=0>\r\n";
    }
    const std::string a = Item("a"), b = Item("b"), c = Item("c"), d = Item("d");
    const std::string x = "<Type=1,Sid=\"x\",Path=\"p\",Devicetype=1>\r\n";
};

TEST_F(Loading, acceptedRecordsBecomeObjectsInFileOrder) {
    EXPECT_FALSE(engine->m_LoadThumbFile());
    EXPECT_EQ(Log(), "I open $/index fail , error =2 ~");
    EXPECT_EQ(Load(""), "");
    EXPECT_EQ(Load(a + FolderRecord("y") + b + b + x), " y x a b b");
    EXPECT_EQ(engine->m_ThumbFolderList.back()->Devicetype, 1);
}

TEST_F(Loading, sizesAndTypesAreConvertedAsTheyStand) {
    const std::tuple<std::string, long, int> cases[] = {
        {"Size=0,Devicetype=0", 0, 0},
        {"Size=-5,Devicetype=10", 0, 1},
        {"Size=\t+12x,Devicetype=01", 12, 0},
        {"Size=9999999999,Devicetype=0", 2147483647, 0},
    };
    for (const auto& [text, size, type] : cases) {
        ASSERT_EQ(Load("<Type=x,Path=\"p\",URL=\"u\"," + text + ">\r\n"), " u") << text;
        const auto& item = *engine->m_ThumbItemList.front();
        EXPECT_EQ(std::tuple(item.Size, item.Devicetype, engine->m_CacheSize),
                  std::tuple(size, type, size));
    }
}

TEST_F(Loading, sumOfTheSizesStaysWithin32BitsAndDamageCostsNoOtherRecord) {
    constexpr long ceiling = ZEL_FLASH_CACHE_MAX, most = 2147483647;
    const std::tuple<std::vector<long>, const char*, long> cases[] = {
        {{most - 7, 7}, " 0 1", most},
        {{7, most - 6, 7}, " 0 2", 14},
        {{most, 7, 7}, " 1 2", 14},
        {{most - 1, most - 1}, " 0", most - 1},
        {{ceiling + 1, 7, most - ceiling - 8, 7}, " 0 1 3", ceiling + 15},
        {std::vector<long>(21, ceiling),  // too many, but none is damaged
         " 0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19", 20 * ceiling},
    };
    for (const auto& [sizes, content, sum] : cases) {
        std::string text;
        for (std::size_t i = 0; i < sizes.size(); ++i) {
            text += ItemRecord("p/" + std::to_string(i), sizes[i]);
        }
        const std::string loaded = boost::replace_all_copy(Load(text), " p/", " ");
        EXPECT_EQ(loaded, content);
        EXPECT_EQ(engine->m_CacheSize, sum) << loaded;
    }
    EXPECT_THAT(Log(), HasSubstr("I m_ParseItem ~|I m_ParseItem size[104857600] is more than the "
                                 "cache can count###~"));
}

TEST_F(Loading, refusedRecordsSayWhichFieldAndCostOnlyThemselves) {
    for (const auto& [record, message] : Rows<2>("refused records")) {
        EXPECT_EQ(Load(a + record + "\r\n" + x), " x a") << record;
        EXPECT_THAT(Log(), HasSubstr("~|I " + message + "|I m_ParseFolderItem ~|I id= x"));
    }
}

TEST_F(Loading, damageCostsTheDamagedRecordsOnly) {
    const std::string bare = a.substr(0, a.size() - 2), half = b.substr(0, 15), nul(1, '\0');
    const std::pair<std::string, const char*> cases[] = {
        {a + "junk > more\r\n\r\n" + b, " a b"},          // text between records
        {a + half, " a"},                                 // torn tail
        {a.substr(9) + b, " b"},                          // torn head
        {a + half + c + d, " a d"},                       // two halves make one
        {bare + b + c, " a c"},                           // no CR LF: the next "<" is lost
        {bare + "\n" + b, " a b"},                        // LF alone
        {a + nul + b, " a"},                              // a NUL ends the text
        {a + half + nul + b.substr(15), " a"},            // also within a record
        {bare + nul + b, " a b"},                         // but not in place of a CR
        {"<" + a + b, " b"},                              // an additional "<"
        {"\xff\xfe" + a + "\x80<\x01>\r\n" + b, " a b"},  // random bytes
    };
    for (const auto& [text, content] : cases)
        EXPECT_EQ(Load(text), content) << text;
    // One byte changed, each in turn: the others stay, but for the one after a lost end.
    for (std::size_t at = 0; at < b.size(); ++at) {
        std::string changed = b;
        changed[at] = '#';
        EXPECT_THAT(Load(a + changed + c + d),
                    testing::MatchesRegex(b[at] == '>' ? " a b d" : " a( [b#])? c d"));
    }
}

TEST_F(Loading, recordsThatStraddleAChunkAreWhole) {
    constexpr std::size_t chunk = 1048576;
    std::string filler;  // of records that are refused
    while (filler.size() < chunk - 2000)
        filler += "<" + std::string(1000, 'x') + ">\r\n";
    for (std::size_t before = chunk - b.size() - 2; before <= chunk + 2; ++before) {
        const std::string blank(before - filler.size() - a.size(), ' ');
        EXPECT_EQ(Load(filler + blank + a + b + c), " a b c") << before;
    }
    // Text without an end fills the buffer: what comes before it stays.
    EXPECT_EQ(Load(a + "<" + std::string(chunk, 'x') + ">\r\n" + b), " a");
}

TEST_F(Loading, aLargeIndexIsRewrittenByteForByte) {
    std::string folders, items;
    for (int number = 0; number < 9000; ++number) {
        const std::string path = "/c/d, <\n\xff/" + std::to_string(number);
        items += ItemRecord(path + std::string(number % 9 * 100, 'n'), number % 500, number % 2);
        folders += FolderRecord(path, number % 2);
    }
    Load(folders + items);
    ASSERT_TRUE(engine->m_RefreshThumbFile());
    EXPECT_EQ(Read(), folders + items);
}
