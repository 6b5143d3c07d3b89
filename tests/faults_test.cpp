// Every call to the system, and every allocation, that a piece of work makes fails once.
#include <cstdlib>
#include <string_view>

#include "fixture.h"
#include "zel_thumbnail_flash_cache.h"

// A cache of two devices, "d0" known and "d1" not, each with two thumbnails.
//
// A test gives FailEach() a preparation and a piece of work. The work is done again and again on a
// cache that is built anew: first with its first call failing, then with its second, until it makes
// no more; and then so with all calls from the N-th on. What a call is says system_calls.cpp.
// After each, Check() compares what the engine knows, what a fresh one loads from the index, and
// the files: what must stay is there, no image is without an owner, and the lock is free. A failure
// is shown with the number of the failing call, "37" or "37 and all that follow".
struct Faulty : CacheTest {
    void Build() {
        fs::remove_all(root);
        platform.devices[1].storages = {_zel_storage_s{"/opt/storage/usb/sda1"}};
        platform.database = {{"/opt/storage/usb/sda1", "d0"}};
        engine = std::make_unique<Engine>();
        engine->m_strCachePath = index;
        std::string text;
        for (const std::string name : {"d0/a", "d0/b", "d1/a", "d1/b"}) {
            Write(name, "12345");
            text += ItemRecord("$/" + name, 5);
        }
        Write("index", text + FolderRecord("$/d0") + FolderRecord("$/d1"));
    }
    void Start() { EXPECT_TRUE(engine->m_Create()); }
    auto Saving(const std::string& name, int size = 16) {
        return [this, size, file = root + "/" + name] {
            char url[] = "/opt/storage/usb/sda1/a.png";
            std::ignore = engine->SaveFlashFile(pixels.data(), size, size, file.c_str(), url, {});
        };
    }
    // Runs the work with one fault after the other until it meets none, and checks after each. The
    // calls of the script fail as well.
    void FailEach(std::function<void()> prepare, std::function<void()> work,
                  const std::set<std::string>& mustStay = {"$/d0/a", "$/d0/b"},
                  const SystemCalls& with = {}) {
        for (const bool all : {false, true}) {
            int first = 0, calls = 0;
            do {
                SCOPED_TRACE(std::to_string(++first) + (all ? " and all that follow" : ""));
                Build();
                prepare();
                SystemCalls script = with;
                script.first = first;
                script.all = all;
                g_calls = &script;
                work();
                g_calls = nullptr;
                calls = script.calls;
                SCOPED_TRACE(script.failed);
                Check(mustStay, all || FailedToRemove(script.failed));
            } while (calls >= first && !HasFailure());
        }
    }
    // The calls without which something cannot be removed, or not be looked at to remove it.
    std::vector<std::string> removing = {"remove", "unlinkat", "access", "openat", "fdopendir"};
    bool FailedToRemove(const std::string& failed) const {
        return std::any_of(removing.begin(), removing.end(), [&](const std::string& call) {
            return failed.find(" " + call + " ") != failed.npos;
        });
    }
    std::set<std::uintmax_t> sizes;  // of "d0/new", each time that it was stored
    void Check(const std::set<std::string>& mustStay, bool removalFailed) {
        ASSERT_TRUE(TryLock(*engine));
        Engine loaded;
        loaded.m_strCachePath = index;
        EXPECT_TRUE(loaded.m_LoadThumbFile());
        long sum = 0;
        for (const auto& item : engine->m_ThumbItemList) {
            sum += item->Size;
            if (Short(item->URL) == "$/d0/new")
                sizes.insert(fs::file_size(item->URL));
        }
        EXPECT_EQ(engine->m_CacheSize, sum);
        EXPECT_LE(sizes.size(), 1U) << "an image lacks a part";
        const std::string recorded = Content(loaded) + " ", known = Content(*engine) + " $/index ";
        for (const auto& item : engine->m_ThumbItemList)
            EXPECT_THAT(known, HasSubstr(" " + fs::path(item->Path).filename().string() + " "));
        for (const std::string& file : mustStay)
            EXPECT_THAT(recorded, HasSubstr(" " + file + " "));
        const std::set<std::string> files = Files();
        EXPECT_THAT(files, testing::IsSupersetOf(mustStay));
        // Only what could not be removed is without an owner.
        for (const std::string& file : files)
            EXPECT_TRUE((known + recorded).find(" " + file + " ") != known.npos || removalFailed)
                << file;
    }
};

TEST_F(Faulty, savesIntoOldAndNewFoldersAndIntoAFullCache) {
    // Both of its records need more memory than one.
    const std::string folder = std::string(150, 'f') + "/" + std::string(150, 'd');
    const auto start = [&] { Start(), fs::create_directories(root + "/" + folder); };
    FailEach(start, Saving("d0/new", 120));
    FailEach(start, Saving(folder + "/new"));
    const auto fill = [this] {
        Start();
        for (const auto& item : engine->m_ThumbItemList)
            item->Size = ZEL_FLASH_CACHE_MAX / 2;
        engine->m_CacheSize = ZEL_FLASH_CACHE_MAX;
    };
    SystemCalls noRename;
    noRename.refused["rename"] = EPERM;
    for (const SystemCalls& with : {SystemCalls(), noRename})
        FailEach(fill, Saving("d0/new", 120), {"$/d0/b"}, with);
    // The device has room for the image, and for none of its records.
    Build(), start(), Saving(folder + "/new")();
    SystemCalls full;
    full.room = fs::file_size(root + "/" + folder + "/new");
    FailEach(start, Saving(folder + "/new"), {"$/d0/a", "$/d0/b"}, full);
    // Two records are still to be appended.
    const auto loseRecords = [&] {
        start();
        for (const char* name : {"/one", "/two"}) {
            const auto save = Saving(folder + name);
            SystemCalls filled = full;
            g_calls = &filled;
            save();
            g_calls = nullptr;
        }
    };
    FailEach(loseRecords, Saving(folder + "/new"), {"$/d0/a", "$/d0/b"}, full);
    // No record can hold its name.
    FailEach(start, Saving("d0/has\"quote"));
}

TEST_F(Faulty, recordsBehindATornOneAreReadOnceOneIsAppended) {
    const auto tear = [this] {
        Start();
        std::ofstream(index, std::ios::app) << "<Type=0,Path=" << std::string(5000, '\0');
        engine->m_ThumbFile.Forget();
    };
    FailEach(tear, [this, save = Saving("d0/new"), saveNext = Saving("d0/next")] {
        save();
        g_calls = nullptr;
        saveNext();
        Engine loaded;
        loaded.m_strCachePath = index;
        EXPECT_TRUE(loaded.m_LoadThumbFile());
        EXPECT_EQ(Content(loaded), Content(*engine));
        EXPECT_THAT(Content(loaded), EndsWith(" $/d0/next"));
    });
}

TEST_F(Faulty, startsAndRemovals) {
    removing.push_back("malloc");  // in fdopendir()
    const auto deepen = [this] {
        std::string path = root + "/d1";
        for (int level = 0; level < 33; ++level)
            fs::create_directory(path += "/x");
    };
    FailEach(deepen,
             [this, folder = root + "/d1"] { std::ignore = engine->RemoveDir(folder.c_str()); });
    FailEach([] {},
             [this, folder = root + "/d2"] {
                 std::ignore = engine->m_Create();
                 EXPECT_TRUE(engine->FlagCreate() || Content(*engine).empty());
                 std::ignore = engine->m_RefreshThumbFile();
                 std::ignore = engine->CreateDir(folder.c_str());
             });
    // Whatever fails, no storage that is there counts as gone.
    const auto attach = [this] { platform.database.push_back({"/opt/storage/usb/sda1", "d1"}); };
    FailEach(attach, [this] { std::ignore = engine->m_Create(); },
             {"$/d0/a", "$/d0/b", "$/d1/a", "$/d1/b"});
    const auto start = [&] {
        attach();
        Start();
        engine->m_MountPathMap["d1"] = "/opt/storage/usb/sdb1";
    };
    FailEach(start, [this] {
        _zel_storage_s gone{"/opt/storage/usb/sdb1"}, *storage = &gone;
        Engine::s_ZELUSBConnctedCallback(engine.get(), ZEL_STORAGE_EVENT_REMOVED, storage);
    });
}

TEST_F(Faulty, anImageOfRowsEndsWhereItCouldNotBeWritten) {
    const std::string file = root + "/a.bmp";
    const auto write = [&] {
        return engine->m_BmpSave(pixels.data(), nullptr, 160, 120, file.c_str());
    };
    EXPECT_TRUE(write());
    const std::string whole = Read("a.bmp");
    int first = 0, calls = 0;
    do {
        fs::remove(file);
        SystemCalls script;
        script.first = ++first;
        g_calls = &script;
        std::ignore = write();
        g_calls = nullptr;
        calls = script.calls;
        EXPECT_TRUE(boost::starts_with(whole, Read("a.bmp"))) << first;
    } while (calls >= first);
}

TEST_F(Faulty, hostileIndexIsLoadedAndJudged) {
    InJail([this](SystemCalls& calls) {
        Build();
        std::string text;
        for (const std::string path : {"/", "//", "..", ".", "/proc/self", "/..", "$/d1/..",
                                       "$(ls)", "'; ", "\n", "\xff\xfe", "-rf"})
            text += "<Type=1,Sid=\"x\",Path=\"" + path + "\",Devicetype=0>\r\n<Type=0,Path=\"" +
                    path + "\",URL=\"u\",Size=9999999999,Devicetype=0>\r\n";
        for (int doubling = 0; doubling < 10; ++doubling)
            text += text;
        Write("index", text + FolderRecord("$/d0") + "<" + std::string(900000, 'x') + ">\r\n" +
                           ItemRecord("$/d0/a", 5));
        g_calls = &calls;
        Start();  // each path is that of many folders
        g_calls = nullptr;
        EXPECT_EQ(Content(*engine), " d0 $/d0/a");
        EXPECT_EQ(engine->m_CacheSize, 5);
        EXPECT_EQ(Read(), FolderRecord("$/d0") + ItemRecord("$/d0/a", 5));
    });
}

TEST_F(Faulty, shortMemoryIsAnsweredAndTold) {
    zel_thumbnail_flash_cache_param_h param = nullptr, other = nullptr;
    ASSERT_EQ(zel_create_thumbnail_flash_cache_param(&param), 1);
    ASSERT_EQ(zel_set_thumbnail_flash_cache_filename(param, "f"), 1);
    ASSERT_EQ(zel_set_thumbnail_flash_cache_url(param, "u"), 1);
    char *text = nullptr, url[] = "/opt/storage/usb/sda1/a.png";
    _zel_storage_s gone{"/opt/storage/usb/sda1"}, *storage = &gone;
    Build();
    Start();
    Engine fresh;
    Log();
    std::string mount = gone.path;
    std::vector<void*> noStorages;
    const std::string record = "W Out of memory.", failed = " failed: std::bad_alloc",
                      engineless = "|W no engine: std::bad_alloc",
                      create = "I start CZELThumbFlashCache::Create";
    const std::pair<std::function<int()>, std::string> cases[] = {
        {[&] { return zel_create_thumbnail_flash_cache_param(&other); }, record},
        {[&] { return zel_get_thumbnail_flash_cache_filename(param, &text); }, record},
        {[&] { return zel_get_thumbnail_flash_cache_url(param, &text); }, record},
        {[&] { return zel_set_thumbnail_flash_cache_filename(param, "g"); }, record},
        {[&] { return zel_set_thumbnail_flash_cache_url(param, "v"); }, record},
        {[&] { return zel_thumbnail_flash_cache_init("i"); },
         "I zel_thumbnail_flash_cache_init" + engineless},
        {[&] { return zel_thumbnail_flash_cache_save_file(param, pixels.data(), nullptr); },
         "I zel_thumbnail_flash_cache_save_file" + engineless},
        {[&] { return engine->CreateDir(gone.path); }, "W CreateDir" + failed},
        {[&] { return engine->RemoveDir(gone.path); }, "W RemoveDir" + failed},
        {[&] { return !Engine::s_GetStorageCallback(storage, &noStorages); },
         "W a storage is left out: std::bad_alloc"},
        {[&] { return engine->m_RefreshThumbFile(); },
         "I m_RefreshThumbFile...~|W m_RefreshThumbFile" + failed},
#ifndef ZEL_SANITIZED  // they make such arrays
        {[&] { return engine->m_LoadThumbFile(); }, "I malloc pBuf failed...~"},
#endif
        {[&] { return engine->Create(index.c_str()); },
         "W failed to start the worker: std::bad_alloc"},
        {[&] { return engine->m_BmpSave(pixels.data(), nullptr, 1, 1, gone.path); },
         "W m_BmpSave" + failed},
        {[&] { return engine->SaveFlashFile(pixels.data(), 1, 1, "/opt/a/a", url, {}); },
         "I m_CheckUrl..filename[/opt/a/a], url[/opt/storage/usb/sda1/a.png]~|W save" + failed},
        {[&] { return engine->m_RemoveStorage(std::move(mount)); }, "W m_RemoveStorage" + failed},
        {[&] {
             Engine::s_ZELUSBConnctedCallback(engine.get(), ZEL_STORAGE_EVENT_REMOVED, storage);
             return 0;
         },
         "I s_USBConnctedCallback...~|I s_ZELUSBConnctedCallback event is [2]~|I device MountPath "
         "= [/opt/storage/usb/sda1]###|W s_ZELUSBConnctedCallback" +
             failed},
        {[&] { return fresh.m_Create(); },
         create + "...~|" + create +
             "111...~|I start usb_device_init...~|I zel usb....~|I end usb_device_init2222...~|"
             "I open  fail , error =2 ~|I end m_LoadThumbFile...~|"
             "I [start to excute m_GetDeciveList]...~|"
             "I  zel_get_usb_list has return to zel_get_usb_list |"
             "I zel_get_usb_storage_list device type = [1]|"
             "I device[0] MountPath = /opt/storage/usb/sda1|I USB Storage is Exist~|"
             "W creation" +
             failed},
    };
    for (const auto& [call, line] : cases) {
        SystemCalls script;
        for (const char* allocation : {"malloc", "memory", "strdup"})
            script.refused[allocation] = ENOMEM;
        g_calls = &script;
        const int answer = call();
        g_calls = nullptr;
        EXPECT_EQ(answer, 0);
        EXPECT_EQ(Log(), line);
    }
    EXPECT_EQ(zel_get_thumbnail_flash_cache_filename(param, &text), 0) << "it has an earlier name";
    EXPECT_EQ(Log(), "W Invalid param.");
    zel_destroy_thumbnail_flash_cache_param(param);
#ifndef ZEL_SANITIZED  // they start the threads
    SystemCalls script;
    script.refused["pthread_create"] = EAGAIN;
    g_calls = &script;
    EXPECT_FALSE(engine->Create(index.c_str()));
    g_calls = nullptr;
    EXPECT_THAT(Log(), HasSubstr("W failed to start the worker: "));
#endif
}
