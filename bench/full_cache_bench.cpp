// Saves into a cache of 6,000 thumbnails that is full, the state that a cache spends its life in:
// by the library, with more or less room left by an eviction, and by what could be used in its
// place.
#include <benchmark/benchmark.h>
#include <leveldb/db.h>
#include <leveldb/write_batch.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>

#include "bare.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

// Of images of that size, which have 17.5 kB, 6,000 reach the ceiling.
constexpr int filling = 7000, saves = 3000, xsize = 170, ysize = 120;

void Check(bool done) {
    if (!done) {
        std::abort();
    }
}

// What the process has handed to the system for writing so far, whatever the file system makes of
// it: in memory nothing reaches a device.
double WrittenBytes() {
    std::ifstream file("/proc/self/io");
    for (std::string key; file >> key;) {
        if (double value = 0; key == "wchar:" && file >> value) {
            return value;
        }
    }
    return 0;
}

// Fills a cache, and counts each save into the full one.
template <class Cache>
void RunFull(benchmark::State& state, Cache& cache) {
    using Clock = std::chrono::steady_clock;
    auto picture = bare::MakePicture(xsize, ysize);
    Check(filling * bare::EncodeJpeg(picture, xsize, ysize).size() > ZEL_FLASH_CACHE_MAX);
    int number = 0;
    for (; number < filling; ++number) {
        cache.Save(picture, number);
    }
    Clock::duration longest{};
    const double written = WrittenBytes();
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        cache.Save(picture, number++);
        longest = std::max(longest, Clock::now() - start);
    }
    state.counters["longest_ms"] = std::chrono::duration<double, std::milli>(longest).count();
    state.counters["written_bytes"] = (WrittenBytes() - written) / saves;
}

class Folder : public bare::Folder {
public:
    [[nodiscard]] std::string Image(int number) const {
        return *this / ("picture" + std::to_string(10000000 + number) + ".jpg");
    }
};

class OwnCache : public CZELThumbFlashCache {
public:
    explicit OwnCache(int headroom) {
        m_strCachePath = m_Folder / "index";
        m_EvictionHeadroom = headroom;
        Check(m_Create());
    }
    void Save(std::vector<unsigned char>& picture, int number) {
        char url[] = "/opt/storage/usb/sda1/DCIM/a.png";
        Check(SaveFlashFile(picture.data(), xsize, ysize, m_Folder.Image(number).c_str(), url,
                            nullptr));
    }

private:
    Folder m_Folder;
};

// A table of what there is, beside images in files.
class Sqlite {
public:
    Sqlite() {
        Check(sqlite3_open((m_Folder / "index").c_str(), &m_Database) == SQLITE_OK);
        m_Run(
            "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; CREATE TABLE thumbnails "
            "(id INTEGER PRIMARY KEY, folder TEXT, file TEXT, size INTEGER)");
        m_Insert = m_Prepare("INSERT INTO thumbnails (folder, file, size) VALUES (?, ?, ?)");
        m_Oldest = m_Prepare("SELECT id, file, size FROM thumbnails ORDER BY id LIMIT 1");
        m_Delete = m_Prepare("DELETE FROM thumbnails WHERE id = ?");
    }
    ~Sqlite() {
        for (sqlite3_stmt* statement : {m_Insert, m_Oldest, m_Delete}) {
            sqlite3_finalize(statement);
        }
        sqlite3_close(m_Database);
    }
    Sqlite(const Sqlite&) = delete;
    Sqlite& operator=(const Sqlite&) = delete;

    void Save(std::vector<unsigned char>& picture, int number) {
        const std::string file = m_Folder.Image(number);
        bare::EncodeJpeg(picture, xsize, ysize, file.c_str());
        const auto size = static_cast<long>(std::filesystem::file_size(file));
        m_Run("BEGIN");
        sqlite3_bind_text(m_Insert, 1, m_Folder.Path().c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(m_Insert, 2, file.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_int64(m_Insert, 3, size);
        m_Step(m_Insert, SQLITE_DONE);
        for (m_Size += size; m_Size > ZEL_FLASH_CACHE_MAX;) {
            Check(sqlite3_step(m_Oldest) == SQLITE_ROW);
            m_Size -= sqlite3_column_int64(m_Oldest, 2);
            Check(std::remove(reinterpret_cast<const char*>(sqlite3_column_text(m_Oldest, 1))) ==
                  0);
            sqlite3_bind_int64(m_Delete, 1, sqlite3_column_int64(m_Oldest, 0));
            sqlite3_reset(m_Oldest);
            m_Step(m_Delete, SQLITE_DONE);
        }
        m_Run("COMMIT");
    }

private:
    void m_Run(const char* text) {
        Check(sqlite3_exec(m_Database, text, nullptr, nullptr, nullptr) == SQLITE_OK);
    }
    sqlite3_stmt* m_Prepare(const char* text) {
        sqlite3_stmt* statement = nullptr;
        Check(sqlite3_prepare_v2(m_Database, text, -1, &statement, nullptr) == SQLITE_OK);
        return statement;
    }
    static void m_Step(sqlite3_stmt* statement, int expected) {
        Check(sqlite3_step(statement) == expected);
        sqlite3_reset(statement);
    }

    Folder m_Folder;
    sqlite3* m_Database = nullptr;
    sqlite3_stmt *m_Insert = nullptr, *m_Oldest = nullptr, *m_Delete = nullptr;
    long m_Size = 0;
};

// The images are the values; their keys count up, so that the oldest is the first.
class LevelDb {
public:
    LevelDb() {
        leveldb::Options options;
        options.create_if_missing = true;
        options.compression = leveldb::kNoCompression;  // of JPEG nothing would come
        leveldb::DB* database = nullptr;
        Check(leveldb::DB::Open(options, m_Folder / "thumbnails", &database).ok());
        m_Database.reset(database);
    }
    void Save(std::vector<unsigned char>& picture, int number) {
        const std::string image = bare::EncodeJpeg(picture, xsize, ysize);
        leveldb::WriteBatch batch;
        batch.Put(m_Folder.Image(number), image);
        m_Sizes.emplace_back(number, image.size());
        for (m_Size += image.size(); m_Size > ZEL_FLASH_CACHE_MAX; m_Sizes.pop_front()) {
            batch.Delete(m_Folder.Image(m_Sizes.front().first));
            m_Size -= m_Sizes.front().second;
        }
        Check(m_Database->Write({}, &batch).ok());
    }

private:
    Folder m_Folder;
    std::unique_ptr<leveldb::DB> m_Database;
    std::deque<std::pair<int, std::size_t>> m_Sizes;
    std::size_t m_Size = 0;
};

// With so many MiB of headroom.
void FullCache(benchmark::State& state) {
    OwnCache cache(static_cast<int>(state.range(0)) << 20);
    RunFull(state, cache);
}

template <class Cache>
void FullOther(benchmark::State& state) {
    Cache cache;
    RunFull(state, cache);
}

// The save below the ceiling without a library.
class Bare {
public:
    void Save(std::vector<unsigned char>& picture, int number) {
        bare::EncodeJpeg(picture, xsize, ysize, m_Folder.Image(number).c_str());
        bare::Append(m_Folder / "index", bare::MakeRecord(m_Folder.Path(), number, 1000));
    }

private:
    Folder m_Folder;
};

BENCHMARK(FullCache)->Arg(0)->Arg(1)->Arg(5)->Iterations(saves)->MeasureProcessCPUTime();
BENCHMARK_TEMPLATE(FullOther, Sqlite)->Iterations(saves)->MeasureProcessCPUTime();
BENCHMARK_TEMPLATE(FullOther, LevelDb)->Iterations(saves)->MeasureProcessCPUTime();
BENCHMARK_TEMPLATE(FullOther, Bare)->Iterations(saves)->MeasureProcessCPUTime();

}  // namespace
