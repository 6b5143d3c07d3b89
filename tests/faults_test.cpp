// Every call to the system, and every allocation, that a piece of work makes fails once.
#include <dirent.h>
#include <sys/resource.h>
#include <sys/sendfile.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <string_view>

#include "fixture.h"

// Which of the calls fail: the N-th from the arming on, or all from the N-th on.
struct Faults {
    int first = 0;  // 0: none
    bool all = false;
    bool noRename = false;  // besides, the directory refuses it
    int calls = 0;
    bool removalFailed = false;

    bool Hit(const char* call) {
        if (first == 0 || InPlatform::active)
            return false;
        if (noRename && call == std::string_view("rename"))
            return errno = EPERM, true;
        if (++calls < first || (calls > first && !all))
            return false;
        constexpr std::string_view removing =
            " remove unlinkat access openat64 fdopendir renameat ";
        removalFailed |= all || removing.find(call) != removing.npos;
        errno = EIO;
        return true;
    }
};
static Faults faults;

// Of each function that the engine calls: the one that the linker calls instead.
#define WRAP(type, name, failure, parameters, ...)                         \
    extern "C" type __real_##name parameters;                              \
    extern "C" type __wrap_##name parameters {                             \
        return faults.Hit(#name) ? (failure) : __real_##name(__VA_ARGS__); \
    }

WRAP(int, open64, -1, (const char* path, int flags, unsigned mode), path, flags, mode)
WRAP(int, openat64, -1, (int at, const char* path, int flags), at, path, flags)
WRAP(ssize_t, read, -1, (int file, void* data, size_t size), file, data, size)
WRAP(ssize_t, pread64, -1, (int file, void* data, size_t size, off_t at), file, data, size, at)
WRAP(ssize_t, write, -1, (int file, const void* data, size_t size), file, data, size)
WRAP(int, ftruncate64, -1, (int file, off_t size), file, size)
WRAP(int, fdatasync, -1, (int file), file)
WRAP(int, sync_file_range, -1, (int file, off_t at, off_t size, unsigned flags), file, at, size,
     flags)
WRAP(int, close, (__real_close(file), -1), (int file), file)
WRAP(int, rename, -1, (const char* from, const char* to), from, to)
WRAP(int, renameat, -1, (int from, const char* old, int to, const char* name), from, old, to, name)
WRAP(ssize_t, sendfile64, -1, (int to, int from, off_t* at, size_t size), to, from, at, size)
WRAP(int, mkdir, -1, (const char* path, mode_t mode), path, mode)
WRAP(int, stat64, -1, (const char* path, struct stat* status), path, status)
WRAP(int, fstat64, -1, (int file, struct stat* status), file, status)
WRAP(int, access, -1, (const char* path, int mode), path, mode)
WRAP(int, remove, -1, (const char* path), path)
WRAP(int, unlinkat, -1, (int at, const char* path, int flags), at, path, flags)
WRAP(char*, realpath, nullptr, (const char* path, char* to), path, to)
WRAP(DIR*, fdopendir, nullptr, (int file), file)
WRAP(FILE*, fopencookie, nullptr, (void* cookie, const char* mode, cookie_io_functions_t io),
     cookie, mode, io)
WRAP(size_t, fwrite, 0, (const void* d, size_t s, size_t n, FILE* file), d, s, n, file)
WRAP(int, fflush, -1, (FILE * file), file)
WRAP(int, fclose, (__real_fclose(file), -1), (FILE * file), file)
WRAP(void*, malloc, nullptr, (size_t size), size)

// Allocations fail like calls.
[[gnu::noinline]] void* operator new(size_t size) {
    void* memory = malloc(size);
    return memory == nullptr ? throw std::bad_alloc() : memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept { std::free(memory); }

// A cache of two devices, "d0" known and "d1" not, each with two thumbnails.
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
    auto Saving(const char* name, int size = 16) {
        return [this, size, file = root + "/" + name] {
            char url[] = "/opt/storage/usb/sda1/a.png";
            std::ignore = engine->SaveFlashFile(pixels.data(), size, size, file.c_str(), url, {});
        };
    }
    // Runs the work with one fault after the other until it meets none, and checks after each.
    void FailEach(std::function<void()> prepare, std::function<void()> work,
                  const std::set<std::string>& mustStay = {"$/d0/a", "$/d0/b"},
                  bool noRename = false) {
        for (const bool all : {false, true}) {
            Faults met;
            int first = 0;
            do {
                SCOPED_TRACE(std::to_string(++first) + (all ? " and all that follow" : ""));
                Build();
                prepare();
                faults = {first, all, noRename};
                work();
                met = std::exchange(faults, {});
                Check(mustStay, met.removalFailed);
            } while (met.calls >= first && !HasFailure());
        }
    }
    std::set<std::uintmax_t> sizes;  // of "d0/new", each time that it was stored
    void Check(const std::set<std::string>& mustStay, bool removalFailed) {
        ASSERT_TRUE(g_mutex_trylock(&engine->m_Mutex));
        g_mutex_unlock(&engine->m_Mutex);
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
        for (const std::string& file : mustStay)
            EXPECT_TRUE(recorded.find(" " + file + " ") != recorded.npos &&
                        Files().count(file) == 1)
                << file << recorded;
        // Only what could not be removed, or not be looked at to remove it, is without an owner.
        for (const std::string& file : Files())
            EXPECT_TRUE((known + recorded).find(" " + file + " ") != known.npos || removalFailed)
                << file;
    }
};

TEST_F(Faulty, savesIntoOldAndNewFoldersAndIntoAFullCache) {
    const auto start = [this] { Start(), fs::create_directory(root + "/d2"); };
    FailEach(start, Saving("d0/new", 120));
    FailEach(start, Saving("d2/new"));
    const auto fill = [this] {
        Start();
        for (const auto& item : engine->m_ThumbItemList)
            item->Size = ZEL_FLASH_CACHE_MAX / 2;
        engine->m_CacheSize = ZEL_FLASH_CACHE_MAX;
    };
    for (const bool noRename : {false, true})
        FailEach(fill, Saving("d0/new", 120), {"$/d0/b"}, noRename);
}

TEST_F(Faulty, startsAndRemovals) {
    const auto deepen = [this] {
        std::string path = root + "/d1";
        for (int level = 0; level < 34; ++level)
            fs::create_directory(path += "/x");
    };
    FailEach(deepen, [this, folder = root + "/d2"] {
        std::ignore = engine->m_Create() && engine->m_RefreshThumbFile();
        std::ignore = engine->CreateDir(folder.c_str());
    });
    const auto start = [this] {
        platform.database.push_back({"/opt/storage/usb/sda1", "d1"});
        Start();
        engine->m_MountPathMap["d1"] = "/opt/storage/usb/sdb1";
    };
    FailEach(start, [this] {
        _zel_storage_s gone{"/opt/storage/usb/sdb1"}, *storage = &gone;
        Engine::s_ZELUSBConnctedCallback(engine.get(), ZEL_STORAGE_EVENT_REMOVED, storage);
    });
}

// A start whose index is longer than the images, so that a limit of the size of files meets it
// alone.
struct FullDisk : Faulty {
    FullDisk() {
        std::signal(SIGXFSZ, SIG_IGN);
        Build();
        Start();
        Write("index", Read() + std::string(5000, ' ') + ">\r\n");
        size = fs::file_size(index);
    }
    void WithLargestFile(rlim_t largest, std::function<void()> work) {
        rlimit old;
        getrlimit(RLIMIT_FSIZE, &old);
        const rlimit limit = {largest, old.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        work();
        setrlimit(RLIMIT_FSIZE, &old);
    }
    rlim_t size = 0;
};

TEST_F(FullDisk, recordsWithoutRoomFollowInOrderWithTheNextOne) {
    fs::create_directory(root + "/d2");
    for (const char* name : {"d0/new", "d2/new"}) {
        WithLargestFile(size + (name[1] == '0' ? 10 : 0), Saving(name));
        EXPECT_THAT(Log(), HasSubstr("I m_AddItemToThumbFile fwrite failed...~"));
    }
    WithLargestFile(20, Saving("d0/none"));
    EXPECT_EQ(fs::file_size(index), size);
    Saving("d0/last")();
    EXPECT_THAT(Log(), Not(HasSubstr("m_RefreshThumbFile")));
    ExpectLeft(" d0 d2 $/d0/a $/d0/b $/d0/new $/d2/new $/d0/last");
}

TEST_F(FullDisk, rewriteWithoutRoomIsMadeBeforeTheNextRecordWhenOneIsMissing) {
    WithLargestFile(size, Saving("d0/new"));
    WithLargestFile(20, [this] { EXPECT_TRUE(engine->m_RefreshThumbFile()); });
    Saving("d0/last")();
    EXPECT_THAT(Log(), HasSubstr("I m_RefreshThumbFile...~"));
    ExpectLeft(" d0 $/d0/a $/d0/b $/d0/new $/d0/last");
}

TEST_F(Faulty, hostileIndexIsLoadedAndJudged) {
    InJail([this] {
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
        Start();  // each path is that of many folders
        EXPECT_EQ(Content(*engine), " d0 $/d0/a");
        EXPECT_EQ(engine->m_CacheSize, 5);
        EXPECT_EQ(Read(), FolderRecord("$/d0") + ItemRecord("$/d0/a", 5));
    });
}
