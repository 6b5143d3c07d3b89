#include <unistd.h>

#include "fixture.h"

namespace {

using testing::ElementsAre;
namespace fs = std::filesystem;

class Directories : public CacheTest {
protected:
    Directories() { platform.TakeLog(); }
    bool Remove(const std::string& path) { return engine->RemoveDir(path.c_str()); }
};

TEST_F(Directories, oneDirectoryIsMadeAndFound) {
    const std::string made = root / "made";
    EXPECT_TRUE(engine->CreateDir(made.c_str()));
    EXPECT_TRUE(engine->CreateDir(made.c_str()));
    EXPECT_FALSE(engine->CreateDir((made + "/none/deep").c_str()));
    Write(root / "file", "");
    EXPECT_FALSE(engine->CreateDir((root / "file").c_str()));
    EXPECT_FALSE(engine->CreateDir(nullptr));
    EXPECT_TRUE(engine->FileExist(made.c_str()));
    EXPECT_FALSE(engine->FileExist((made + "/none").c_str()));
    EXPECT_FALSE(engine->FileExist(nullptr));
    const std::string name = "I CZELThumbFlashCache::m_CreateDir [";
    EXPECT_THAT(platform.TakeLog(),
                ElementsAre(name + made + "] success###\n", name + made + "] alread exist###\n",
                            name + made + "/none/deep] failed###\n",
                            name + (root / "file").string() + "] failed###\n",
                            "I FileExist fileName is null"));
}

TEST_F(Directories, whatIsNotThereIsNotRemoved) {
    EXPECT_FALSE(engine->RemoveDir(nullptr));
    EXPECT_FALSE(Remove(""));
    const std::string none = root / "none";
    EXPECT_FALSE(Remove(none));
    EXPECT_THAT(
        platform.TakeLog(),
        ElementsAre("I in RemoveDir dirName is NULL\n", "I in m_RemoveDir strDir empty...\n",
                    "I in m_RemoveDir strDir[" + none + "] not exist...\n"));
}

TEST_F(Directories, treesAndFilesAndLinksAreRemovedAndNothingElse) {
    const std::string keep = MakeFolder("keep");
    Write(keep + "/file", "");
    for (const char* name : {"a b", "$(touch x)", "'\"`;&|\n", "-rf", "\xff\xfe", "a"}) {
        const std::string tree = MakeFolder(name);
        MakeFolder(std::string(name) + "/sub/deep");
        Write(tree + "/sub/file", "");
        fs::create_directory_symlink(keep, tree + "/sub/link");
        EXPECT_TRUE(Remove(tree)) << name;
        EXPECT_THAT(platform.TakeLog(), ElementsAre("I m_RemoveDir [" + tree + "] success###\n"));
    }
    Write(root / "file", "");
    EXPECT_TRUE(Remove(root / "file"));
    for (const char* link : {"link", "link//"}) {
        fs::create_directory_symlink(keep, root / "link");
        EXPECT_TRUE(Remove(root.string() + "/" + link));
    }
    EXPECT_THAT(Files(), ElementsAre("keep/file"));
}

TEST_F(Directories, longPathsAreRemovedWhole) {
    const std::string name = "/" + std::string(200, 'x');
    std::string path = root;
    while (path.size() < 3800) {
        path += name;
    }
    std::filesystem::create_directories(path);
    EXPECT_TRUE(Remove(path.substr(0, root.native().size() + 8 * name.size())));
    EXPECT_TRUE(fs::exists(path.substr(0, root.native().size() + 7 * name.size())));
    EXPECT_TRUE(Remove(root.native() + name));
}

TEST_F(Directories, theRootAndWhatLeadsToItAreRefused) {
    const fs::path before = fs::current_path();
    MakeFolder("sub/deep");
    fs::current_path(root / "sub/deep");
    for (const char* path :
         {"/", "//", "/.", "/..", ".", "..", "./", "../", "../..", "/tmp/../", "./.", "/usr/.."}) {
        platform.TakeLog();
        EXPECT_FALSE(Remove(path)) << path;
        EXPECT_THAT(platform.TakeLog(),
                    ElementsAre("I [m_RemoveDir][rm -rf():" + std::string(path) + "\tfailed]\n"));
    }
    fs::current_path(before);
    EXPECT_TRUE(fs::exists(root / "sub/deep"));
    EXPECT_FALSE(engine->m_RemoveDir((root / "sub").string() + std::string("\0x", 2)));
    EXPECT_TRUE(fs::exists(root / "sub/deep"));
}

}  // namespace
