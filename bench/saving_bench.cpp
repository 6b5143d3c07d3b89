// One save: below the ceiling, and in a full cache that evicts the oldest and rewrites its index.
#include <benchmark/benchmark.h>

#include <algorithm>

#include "bare.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

constexpr char url[] = "/opt/storage/usb/sda1/DCIM/a.png";

// An engine that is ready, with its index in a folder.
class Engine : public CZELThumbFlashCache {
public:
    explicit Engine(const bare::Folder& folder) {
        m_strCachePath = folder / "index";
        if (!m_Create()) {
            std::abort();
        }
    }
    void Save(std::vector<unsigned char>& picture, int xsize, int ysize, const std::string& file) {
        if (!SaveFlashFile(picture.data(), xsize, ysize, file.c_str(), const_cast<char*>(url),
                           nullptr)) {
            std::abort();
        }
    }
    void AddItem(const std::string& folder, const std::string& file, long size) {
        m_ThumbItemList.emplace_back(new CZELFlashCacheItem);
        m_ThumbItemList.back()->Path = folder;
        m_ThumbItemList.back()->URL = file;
        m_ThumbItemList.back()->Size = size;
        m_CacheSize += static_cast<int>(size);
    }
    // Brings the accounted size to where the next save evicts just one.
    void Fill(int estimate) { m_CacheSize = ZEL_FLASH_CACHE_MAX - estimate + 1; }
};

void Save(benchmark::State& state) {
    const int xsize = static_cast<int>(state.range(0)), ysize = xsize * 3 / 4;
    const bare::Folder folder;
    auto picture = bare::MakePicture(xsize, ysize);
    const std::string file = folder / "a.jpg";
    Engine engine(folder);
    for (auto _ : state) {
        engine.Save(picture, xsize, ysize, file);
    }
}

void BareSave(benchmark::State& state) {
    const int xsize = static_cast<int>(state.range(0)), ysize = xsize * 3 / 4;
    const bare::Folder folder;
    auto picture = bare::MakePicture(xsize, ysize);
    const std::string file = folder / "a.jpg", thumbFile = folder / "index";
    const std::string record = bare::MakeRecord(folder.Path(), 1, 1000);
    for (auto _ : state) {
        bare::EncodeJpeg(picture, xsize, ysize, file.c_str());
        bare::Append(thumbFile, record);
    }
}

void EvictingSave(benchmark::State& state) {
    const int records = static_cast<int>(state.range(0));
    const bare::Folder folder;
    auto picture = bare::MakePicture(160, 120);
    const long share = std::max(ZEL_FLASH_CACHE_MAX / records, 1);
    Engine engine(folder);
    for (int number = 0; number < records; ++number) {
        engine.AddItem(folder.Path(),
                       folder / ("picture" + std::to_string(10000000 + number) + ".jpg"), share);
    }
    const std::string file = folder / "picture10000000.jpg";
    for (auto _ : state) {
        engine.Fill(160 * 120 * 4 + 54);
        engine.Save(picture, 160, 120, file);
    }
}

void BareEvictingSave(benchmark::State& state) {
    const int records = static_cast<int>(state.range(0));
    const bare::Folder folder;
    auto picture = bare::MakePicture(160, 120);
    std::string index;
    for (int number = 0; number < records; ++number) {
        index += bare::MakeRecord(folder.Path(), 10000000 + number, ZEL_FLASH_CACHE_MAX / records);
    }
    const std::string file = folder / "a.jpg", thumbFile = folder / "index";
    const std::string record = bare::MakeRecord(folder.Path(), 1, 1000);
    for (auto _ : state) {
        bare::Replace(thumbFile, index);
        bare::EncodeJpeg(picture, 160, 120, file.c_str());
        bare::Append(thumbFile, record);
    }
}

BENCHMARK(Save)->Arg(16)->Arg(160)->Arg(320);
BENCHMARK(BareSave)->Arg(16)->Arg(160)->Arg(320);
BENCHMARK(EvictingSave)->Arg(1000)->Arg(6000)->Arg(10000)->Arg(24000)->Arg(100000)->Arg(1000000);
BENCHMARK(BareEvictingSave)
    ->Arg(1000)
    ->Arg(6000)
    ->Arg(10000)
    ->Arg(24000)
    ->Arg(100000)
    ->Arg(1000000);

}  // namespace
