#include "fixture.h"

struct Directories : CacheTest {
    bool Remove(const std::string& path) { return engine->RemoveDir(path.c_str()); }
};

TEST_F(Directories, oneDirectoryIsMadeAndWhatNamesNothingIsRefused) {
    const std::string made = root + "/made", deep = made + "/none/deep";
    EXPECT_FALSE(engine->m_RemoveDir(Write("file", "") + std::string("\0x", 2)));
    EXPECT_TRUE(engine->CreateDir(made.c_str()) && engine->CreateDir(made.c_str()) &&
                engine->FileExist(made.c_str()) && engine->FileExist((root + "/file").c_str()));
    EXPECT_FALSE(engine->CreateDir(deep.c_str()) || engine->CreateDir(nullptr) ||
                 engine->FileExist(deep.c_str()) || engine->FileExist(nullptr) ||
                 engine->RemoveDir(nullptr) || Remove("") || Remove(root + "/none"));
    EXPECT_THAT(Log(), EndsWith("|I CZELThumbFlashCache::m_CreateDir [$/made] alread exist###~"
                                "|I CZELThumbFlashCache::m_CreateDir [$/made/none/deep] failed###~"
                                "|I FileExist fileName is null|I in RemoveDir dirName is NULL~"
                                "|I in m_RemoveDir strDir empty...~"
                                "|I in m_RemoveDir strDir[$/none] not exist...~"));
}

TEST_F(Directories, treesAndFilesAndLinksAreRemovedAndNothingElse) {
    const std::string keep = fs::path(Write("keep/file", "")).parent_path();
    for (const std::string name : {"a b", "$(touch x)", "'\"`;&|", "-rf", "\xff\xfe", "a"}) {
        Write(name + "/sub/file", "");
        fs::create_directory_symlink(keep, root + "/" + name + "/sub/link");
        EXPECT_TRUE(Remove(root + "/" + name));
    }
    EXPECT_TRUE(Remove(Write("file", "")));
    fs::create_directory_symlink(keep, root + "/link");
    EXPECT_TRUE(Remove(root + "/link//"));
    std::string path = "long/" + std::string(200, 'x');
    while (path.size() < 3800)  // nearly the longest path that there may be
        path += "/" + std::string(50, 'x');
    Write(path, "");
    EXPECT_TRUE(Remove(root + "/long") && !fs::exists(root + "/long"));
    EXPECT_THAT(Files(), ElementsAre("$/keep/file"));
}

TEST_F(Directories, theRootAndWhatLeadsToItAreRefused) {
    InJail([this] {
        fs::create_directories("/usr");
        fs::current_path(fs::path(Write("sub/file", "")).parent_path());
        for (const std::string path : {"/", "//", "/.", "/..", ".", "..", "./", "../", "../..",
                                       "/usr/../", "./.", "/usr/.."}) {
            EXPECT_FALSE(Remove(path)) << path;
            EXPECT_EQ(Log(), "I [m_RemoveDir][rm -rf():" + path + "\tfailed]~");
        }
        EXPECT_TRUE(fs::exists("../sub/file"));
    });
}
