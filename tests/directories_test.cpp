#include <sys/resource.h>

#include "fixture.h"

struct Directories : CacheTest {
    bool Remove(const std::string& path) { return engine->RemoveDir(path.c_str()); }

    // Makes a directory with a tree "x" at random, and tells the rights of the owner by path.
    static auto Grow(const std::string& top, std::mt19937 random) {
        std::map<std::string, unsigned long> tree = {{"", random() % 3 == 0 ? random() % 8 : 7}};
        for (int branch = 0; branch < 6; ++branch) {
            std::string path = "/x";
            for (auto levels = 1 + random() % 6; levels > 0; --levels) {
                fs::create_directories(top + path);
                tree[path] = random() % 3 == 0 ? random() % 8 : 7;
                path += "/" + std::to_string(random() % 3);
            }
            if (random() % 2 == 0 && std::ofstream(top + path + "file"))
                tree[path + "file"] = random() % 8;
        }
        for (auto entry = tree.rbegin(); entry != tree.rend(); ++entry)
            fs::permissions(top + entry->first, static_cast<fs::perms>(entry->second << 6));
        return tree;
    }
};

TEST_F(Directories, ofATreeStaysWhatRmLeavesOfIt) {
    const uid_t user = geteuid();
    const uid_t ordinary = user == 0 ? 65534 : user;
    EXPECT_EQ(chown(root.c_str(), ordinary, getegid()), 0);
    EXPECT_EQ(setresuid(ordinary, ordinary, user), 0);
    const std::string ours = root + "/ours", rms = root + "/rms";
    for (unsigned seed = 0; seed < 150; ++seed) {
        const auto tree = Grow(ours, std::mt19937(seed));
        const std::string text = testing::PrintToString(Grow(rms, std::mt19937(seed)));
        const bool removed = std::system(("rm -rf " + rms + "/x 2>/dev/null").c_str()) == 0;
        EXPECT_EQ(Remove(ours + "/x"), removed) << text;
        for (const auto& entry : tree)  // what is there has its rights back, for what is below it
            EXPECT_EQ(chmod((ours + entry.first).c_str(), 0700),
                      chmod((rms + entry.first).c_str(), 0700))
                << entry.first << " of " << text;
        EXPECT_EQ(fs::remove_all(ours), fs::remove_all(rms));
    }
    // A link that cannot be unlinked is not gone through either.
    fs::create_directory(ours);
    fs::create_directory_symlink(fs::path(Write("theirs/file", "")).parent_path(), ours + "/link");
    fs::permissions(ours, fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_FALSE(Remove(ours));
    EXPECT_TRUE(fs::exists(root + "/theirs/file"));
    fs::permissions(ours, fs::perms::owner_all);
    fs::remove_all(ours);
    fs::create_directory(ours), fs::permissions(ours, fs::perms::none);
    EXPECT_FALSE(engine->FileExist(ours.c_str()));
    EXPECT_TRUE(Remove(ours));
    EXPECT_EQ(setresuid(user, user, user), 0);
}

TEST_F(Directories, aTreeWithALongerPathAndMoreLevelsThanDescriptorsIsRemoved) {
    InJail([this](SystemCalls&) {
        for (int level = 0; level < PATH_MAX / 2; ++level) {
            const char* name = level == 1 ? ".deep-0" : "x";  // one that the removal would take
            fs::create_directory(name), fs::current_path(name);
        }
        const rlimit descriptors = {64, 64};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &descriptors), 0);
        EXPECT_TRUE(Remove(root + "/x"));
    });
}

TEST_F(Directories, theRootAndWhatLeadsToItAreRefused) {
    InJail([this](SystemCalls& calls) {
        fs::create_directories("/usr");
        fs::current_path(fs::path(Write("sub/file", "")).parent_path());
        g_calls = &calls;
        for (const std::string path : {"/", "//", "/.", "/..", ".", "..", "./", "../", "../..",
                                       "/usr/../", "./.", "/usr/.."}) {
            EXPECT_FALSE(Remove(path)) << path;
            EXPECT_EQ(Log(), "I [m_RemoveDir][rm -rf():" + path + "\tfailed]~");
        }
        EXPECT_FALSE(engine->m_RemoveDir({"../sub\0x", 8}));
        EXPECT_EQ(calls.failed, "");
        EXPECT_TRUE(fs::exists("../sub/file"));
    });
}
