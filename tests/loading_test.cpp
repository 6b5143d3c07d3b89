#include "fixture.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

class Loading : public CacheTest {
protected:
    // Loads an index with that text and tells what came out: "i" and "f" with the last component of
    // their paths, in the order of the lists.
    std::vector<std::string> Load(const std::string& text) {
        Write(index, text);
        engine->m_ThumbItemList.clear();
        engine->m_ThumbFolderList.clear();
        engine->m_CacheSize = 0;
        platform.TakeLog();
        EXPECT_TRUE(engine->m_LoadThumbFile());
        EXPECT_EQ(engine->m_CacheSize, engine->SumOfSizes());
        return Names();
    }
    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& item : engine->m_ThumbItemList) {
            names.push_back("i" + item->URL.substr(item->URL.rfind('/') + 1));
        }
        for (const auto& folder : engine->m_ThumbFolderList) {
            names.push_back("f" + folder->Sid);
        }
        return names;
    }
    static std::string I(const std::string& name) { return ItemRecord("/c/d", "/c/d/" + name, 7); }
    static std::string F(const std::string& name) { return FolderRecord(name, "/c/d"); }
};

TEST_F(Loading, missingFileIsNoIndexAndAnEmptyOneIsEmpty) {
    platform.TakeLog();
    EXPECT_FALSE(engine->m_LoadThumbFile());
    EXPECT_THAT(platform.TakeLog(),
                ElementsAre("I open " + index.string() + " fail , error =2 \n"));
    EXPECT_THAT(Load(""), ElementsAre());
}

TEST_F(Loading, acceptedRecordsBecomeObjectsInFileOrder) {
    EXPECT_THAT(Load(I("a") + F("x") + I("b") + I("b") + F("x")),
                ElementsAre("ia", "ib", "ib", "fx", "fx"));
    EXPECT_THAT(Load(ItemRecord("/c/d", "/c/d/a", 5, 1)), ElementsAre("ia"));
    EXPECT_EQ(engine->m_ThumbItemList.front()->Devicetype, 1);
    EXPECT_THAT(platform.TakeLog(),
                ElementsAre("I m_ParseItem \n", "I path= /c/d ,URL= /c/d/a ,size=5",
                            "I m_ParseItem success###\n"));
    EXPECT_THAT(Load(FolderRecord("x", "/c/x", 1)), ElementsAre("fx"));
    EXPECT_EQ(engine->m_ThumbFolderList.front()->Devicetype, 1);
    EXPECT_THAT(platform.TakeLog(),
                ElementsAre("I m_ParseFolderItem \n", "I id= x ,path= /c/x ,devicetype=1",
                            "I m_ParseFolderItem success###\n"));
}

TEST_F(Loading, sizesAndTypesAreConvertedAsTheyStand) {
    const std::tuple<std::string, long, int> cases[] = {
        {"Size=0,Devicetype=0", 0, 0},
        {"Size=-5,Devicetype=10", 0, 1},
        {"Size= +12x,Devicetype=01", 12, 0},
        {"Size=x,Devicetype=1x", 0, 1},
        {"Size=9999999999,Devicetype=0", 2147483647, 0},
        {"Size=-999999999,Devicetype=0", 0, 0},
    };
    for (const auto& [text, size, type] : cases) {
        EXPECT_THAT(Load("<Type=x,Path=\"p\",URL=\"u\"," + text + ">\r\n"), ElementsAre("iu"))
            << text;
        EXPECT_EQ(engine->m_ThumbItemList.front()->Size, size) << text;
        EXPECT_EQ(engine->m_ThumbItemList.front()->Devicetype, type) << text;
    }
}

TEST_F(Loading, refusedRecordsSayWhichFieldAndCostOnlyThemselves) {
    const std::string path = "<Type=0,Path=\"p\"";
    const std::string url = path + ",URL=\"u\"";
    const std::string sid = "<Type=1,Sid=\"s\"";
    const std::pair<std::string, std::string> cases[] = {
        {"<>", "parse Type failed\n"},
        {"<Typ=0,>", "parse Type failed\n"},
        {"<Type:0,>", "parse Type failed\n"},
        {"<Type=>", "parse StorageId failed\n"},
        {"<Type=,Path>", "parse StorageId failed\n"},
        {"<Type=00000000000,Path>", "parse StorageId failed\n"},
        {"<Type=2,Path>", "type error[2]###\n"},
        {"<Type=9999999999,Path>", "type error[2147483647]###\n"},
        {"<Type=0,>", "parseItem FolderPath failed\n"},
        {"<Type=0,Path=p>", "parseItem FolderPath failed\n"},
        {"<Type=0,Path=\"\",URL=\"u\">", "parseItem FolderPath failed\n"},
        {"<Type=0,Path=\"p>", "parseItem FolderPath failed\n"},
        {path + ">", "parseItem URL failed\n"},
        {path + ",UR=\"u\">", "parseItem URL failed\n"},
        {path + ",URL=\"\",Size=1>", "parseItem URL failed\n"},
        {"<Type=0,Path=\"p\"q\",URL=\"u\">", "parseItem URL failed\n"},
        {url + ",Siz=1>", "parse Size failed###\n"},
        {url + ",Size=,Devicetype=0>", "parse Size failed\n"},
        {url + ",Size=1>", "parse Size failed\n"},
        {url + ",Size=00000000001,Devicetype=0>", "parse Size failed\n"},
        {url + ",Size=1,Device=0>", "parse folder path failed###\n"},
        {url + ",Size=1,Devicetype=>", "parse device type failed\n"},
        {url + ",Size=1,Devicetype=2>", "unknown device type\n"},
        {"<Type=1,Path=\"p\">", "m_ParseFolderItem Sid failed\n"},
        {"<Type=1,Sid=\"\",Path=\"p\">", "m_ParseFolderItem Sid failed\n"},
        {sid + ",Pat=\"p\">", "parse folder path failed###\n"},
        {sid + ",Path=\"\",Devicetype=0>", "parse folder path failed\n"},
        {sid + ",Path=\"p\"q\",Devicetype=0>", "parse folder path failed###\n"},
        {sid + ",Path=\"p\",Devicetype:0>", "parse folder path failed###\n"},
        {sid + ",Path=\"p\",Devicetype=>", "parse folder path failed\n"},
        {sid + ",Path=\"p\",Devicetype=x>", "unknown device type\n"},
        {sid + ",Path=\"p>q\",Devicetype=0>", "parse folder path failed\n"},
    };
    for (const auto& [record, message] : cases) {
        EXPECT_THAT(Load(I("a") + record + "\r\n" + F("x")), ElementsAre("ia", "fx")) << record;
        auto log = platform.TakeLog();
        EXPECT_THAT(std::vector(log.begin() + 3, log.end() - 3),
                    testing::AnyOf(ElementsAre("I " + message),
                                   ElementsAre("I m_ParseItem \n", "I " + message),
                                   ElementsAre("I m_ParseFolderItem \n", "I " + message)))
            << record;
    }
}

TEST_F(Loading, parsersRefuseAWrongFrame) {
    char text[] = "x,y>";
    platform.TakeLog();
    for (const auto parse :
         {&TestEngine::m_Parse, &TestEngine::m_ParseItem, &TestEngine::m_ParseFolderItem}) {
        EXPECT_FALSE((*engine.*parse)(nullptr, 3));
        EXPECT_FALSE((*engine.*parse)(text, 3));
        EXPECT_FALSE((*engine.*parse)(text + 1, 1));
    }
    const char* frame = "I pStart or pStart+len unvalid failed\n";
    EXPECT_THAT(platform.TakeLog(),
                ElementsAre("I m_Parse pStart == NULL ###\n", frame, frame, "I m_ParseItem \n",
                            "I m_ParseItem pStart == NULL ###\n", "I m_ParseItem \n", frame,
                            "I m_ParseItem \n", frame, "I m_ParseFolderItem \n",
                            "I m_ParseFolderItem pStart == NULL ###\n", "I m_ParseFolderItem \n",
                            frame, "I m_ParseFolderItem \n", frame));
}

// What a damaged file still gives.
TEST_F(Loading, damageCostsTheDamagedRecordsOnly) {
    const std::string a = I("a"), b = I("b"), c = I("c"), d = I("d");
    const auto bare = [](std::string record) { return record.substr(0, record.size() - 2); };
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {a + "junk > more\r\n\r\n" + b, {"ia", "ib"}},  // text between records
        {a + b.substr(0, b.size() / 2), {"ia"}},        // torn tail
        {a.substr(a.size() / 2) + b, {"ib"}},           // torn head
        {a + b.substr(0, 20) + c + d, {"ia", "id"}},    // cut out: two halves make one
        {bare(a) + b + c, {"ia", "ic"}},                // no CR LF: the next "<" is lost
        {bare(a) + "\n" + b, {"ia", "ib"}},             // LF alone
        {a + std::string("\0", 1) + b, {"ia"}},         // a NUL ends the text
        {a + b.substr(0, 20) + std::string("\0", 1) + b.substr(20), {"ia"}},
        {"<" + a + b, {"ib"}},                                  // an additional "<"
        {"\xff\xfe" + a + "\x80<\x01>\r\n" + b, {"ia", "ib"}},  // random bytes
    };
    for (const auto& [text, names] : cases) {
        EXPECT_THAT(Load(text), ElementsAreArray(names)) << text;
    }
    // One byte changed, each in turn: the other records stay, but for the one after a lost end.
    for (std::size_t at = 0; at < b.size(); ++at) {
        std::string changed = b;
        changed[at] = '#';
        const auto names = Load(a + changed + c + d);
        EXPECT_EQ(names.front(), "ia") << at;
        EXPECT_EQ(names.back(), "id") << at;
        EXPECT_GE(names.size(), 3U - (b[at] == '>')) << at;
    }
}

TEST_F(Loading, recordsThatStraddleAChunkAreWhole) {
    constexpr std::size_t chunk = 1048576;
    const std::string a = I("a"), b = I("b"), c = I("c");
    std::string filler;  // of records that are refused
    while (filler.size() < chunk - 2000) {
        filler += "<" + std::string(1000, 'x') + ">\r\n";
    }
    for (std::size_t before = chunk - b.size() - 2; before <= chunk + 2; ++before) {
        const std::string blank(before - filler.size() - a.size(), ' ');
        EXPECT_THAT(Load(filler + blank + a + b + c), ElementsAre("ia", "ib", "ic")) << before;
    }
    // Text without an end fills the buffer: what comes before it stays.
    EXPECT_THAT(Load("<" + std::string(chunk, 'x') + ">\r\n" + b), ElementsAre());
    EXPECT_THAT(Load(a + "<" + std::string(chunk, 'x') + ">\r\n" + b), ElementsAre("ia"));
}

TEST_F(Loading, aRewrittenIndexLoadsBackToTheSameListsAndBytes) {
    for (int number = 0; number < 100000; ++number) {
        const std::string name = std::to_string(number);
        engine->AddItem("/c/d, <" + name, "/c/d\n\xff/" + name, number % 500, number % 2);
        if (number % 100 == 0) {
            engine->AddFolder(name, "/c/" + name, number % 2);
        }
    }
    const auto names = Names();
    ASSERT_TRUE(engine->m_RefreshThumbFile());
    const std::string text = Read(index);
    EXPECT_EQ(Load(text), names);
    ASSERT_TRUE(engine->m_RefreshThumbFile());
    EXPECT_EQ(Read(index), text);
}

}  // namespace
