// A directory of its own, a scripted platform and an engine for each test.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/algorithm/string.hpp>
#include <filesystem>
#include <fstream>
#include <future>
#include <random>

#include "fake_platform.h"
#include "system_calls.h"
#include "zel_thumbnail_flash_cache_internal.h"

using testing::ElementsAre, testing::EndsWith, testing::HasSubstr;
namespace fs = std::filesystem;

// In the texts that the verbs take and give, "$" stands for the directory.
struct CacheTest : testing::Test {
    using Engine = CZELThumbFlashCache;

    CacheTest() {
        std::generate(pixels.begin(), pixels.end(), std::mt19937());
        g_platform = &platform;
        engine = std::make_unique<Engine>();
        engine->m_strCachePath = index;
        EXPECT_EQ(Log(), "I constuct...");
    }
    // What holds after every test, whatever went wrong in it.
    ~CacheTest() override {
        if (engine) {
            engine->m_AwaitWorkers();
            EXPECT_TRUE(TryLock(*engine));
        }
        engine.reset();
        EXPECT_THAT(platform.live, testing::IsEmpty());
        EXPECT_EQ(platform.connections, 0);
        EXPECT_EQ(OpenDescriptors(), descriptors);
        EXPECT_THAT(Files(), testing::Each(testing::Not(EndsWith(".new"))));
        fs::remove_all(root);
        g_platform = nullptr;
    }
    static bool TryLock(Engine& of) {
        return g_mutex_trylock(&of.m_Mutex) && (g_mutex_unlock(&of.m_Mutex), true);
    }
    static long OpenDescriptors() {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    }

    std::string Short(const std::string& text) const {
        return boost::replace_all_copy(text, root, "$");
    }
    // The lines since the last call, joined by "|": the letter of the level, a blank and the body,
    // in which "~" stands for a line feed. Those of the test's own thread, or of the others.
    std::string Log(bool ofWorkers = false) {
        const std::lock_guard<std::mutex> lock(platform.mutex);
        return Short(std::exchange(ofWorkers ? platform.workerLog : platform.log, {}));
    }
    std::string Read(const std::string& name = "index") const {
        std::ifstream file(root + "/" + name, std::ios::binary);
        return Short({std::istreambuf_iterator<char>(file), {}});
    }
    // The path of a file, whose folder is made.
    std::string PathOf(const std::string& name) const {
        std::error_code ignored;  // another thread may remove the folder at any time
        fs::create_directories(fs::path(root + "/" + name).parent_path(), ignored);
        return root + "/" + name;
    }
    std::string Write(const std::string& name, const std::string& text) const {
        std::ofstream(PathOf(name)) << boost::replace_all_copy(text, "$/", root + "/");
        return root + "/" + name;
    }
    std::set<std::string> Files() const {
        std::set<std::string> names;
        for (const auto& entry : fs::recursive_directory_iterator(root))
            if (!entry.is_directory())
                names.insert(Short(entry.path()));
        return names;
    }

    bool Save(const std::string& name, std::string url = "/opt/storage/usb/sda1/a.png",
              int xsize = 16, int ysize = 12) {
        const std::string file = PathOf(name);
        return engine->SaveFlashFile(pixels.data(), xsize, ysize, file.c_str(), url.data(), {});
    }
    // Thread N saves for the storage "sN"; it ends before its future is destroyed.
    auto SaveOnThreads(int threads, int saves) {
        std::vector<std::future<void>> savers;
        for (int thread = 0; thread < threads; ++thread)
            savers.push_back(std::async(std::launch::async, [=] {
                const std::string name = "s" + std::to_string(thread);
                for (int save = 0; save < saves; ++save)
                    Save(name + "/" + std::to_string(save), "/opt/storage/usb/" + name + "/a");
            }));
        return savers;
    }
    static std::string ItemRecord(const std::string& file, long size, int type = 0) {
        return "<Type=0,Path=\"" + fs::path(file).parent_path().string() + "\",URL=\"" + file +
               "\",Size=" + std::to_string(size) + ",Devicetype=" + std::to_string(type) + ">\r\n";
    }
    static std::string FolderRecord(const std::string& folder, int type = 0) {
        return "<Type=1,Sid=\"" + fs::path(folder).filename().string() + "\",Path=\"" + folder +
               "\",Devicetype=" + std::to_string(type) + ">\r\n";
    }
    // Loads an index with that text into an empty cache and tells the content.
    std::string Load(const std::string& text) {
        Write("index", text);
        engine->m_ResetState();
        EXPECT_TRUE(engine->m_LoadThumbFile());
        return Content(*engine);
    }

    // Runs what could do harm in a child whose root directory is the test's, where the same paths
    // lead to places below it. Where that may not be changed, the calls that it is given let
    // nothing be removed.
    template <class Body>
    void InJail(Body body) {
        fs::create_directories(root + root);
        const pid_t child = fork();
        if (child == 0) {
            SystemCalls calls;
            if (chroot(root.c_str()) != 0 &&
                (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 || chroot(root.c_str()) != 0))
                for (const char* call : {"openat", "remove", "renameat", "unlinkat"})
                    calls.refused[call] = EPERM;
            fs::current_path(root);
            body(calls);
            _exit(HasFailure());
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }

    // Both lists: the ids of the folders, then the files of the items, each with a blank before it.
    std::string Content(const Engine& of) const {
        std::string content;
        for (const auto& folder : of.m_ThumbFolderList)
            content += " " + folder->Sid;
        for (const auto& item : of.m_ThumbItemList)
            content += " " + item->URL;
        return Short(content);
    }
    // The lists have that content, and the accounted size, the index and the files agree with them.
    void ExpectLeft(const std::string& content) {
        Engine loaded;
        loaded.m_strCachePath = index;
        EXPECT_TRUE(loaded.m_LoadThumbFile());
        std::set<std::string> files = {"$/index"};
        for (const auto& item : engine->m_ThumbItemList)
            files.insert(Short(item->URL));
        EXPECT_EQ(Content(*engine), content);
        EXPECT_EQ(Content(loaded), content);
        EXPECT_EQ(engine->m_CacheSize, loaded.m_CacheSize);
        EXPECT_EQ(Files(), files);
        Log();
    }

    // As a host without standard input is, so that a file may get the descriptor 0.
    static inline const int closedInput = close(STDIN_FILENO);
    const std::string root = mkdtemp((testing::TempDir() + "zelXXXXXX").data());
    const std::string index = root + "/index";
    const long descriptors = OpenDescriptors();
    std::vector<unsigned char> pixels = std::vector<unsigned char>(160 * 120 * 4);
    FakePlatform platform;
    std::unique_ptr<Engine> engine;
};
