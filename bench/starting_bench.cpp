// A start: reading an index, and what the records cost in memory.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <fstream>
#include <map>
#include <memory>
#include <string>

#include "bare.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

// An index of thumbnails whose folder and file have 40 and 60 characters.
std::string MakeIndex(const bare::Folder& folder, int records) {
    const std::string device = "/var/cache/thumbnails/0123456789abcdef012";
    const std::string index = folder / "index";
    std::ofstream out(index, std::ios::binary);
    for (int number = 0; number < records; ++number) {
        out << bare::MakeRecord(device.substr(0, 40), number, 1024);
    }
    return index;
}

// The bytes that the process has resident.
long ResidentSet() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * 4096;
}

void Start(benchmark::State& state) {
    const int records = static_cast<int>(state.range(0));
    const bare::Folder folder;
    const std::string index = MakeIndex(folder, records);
    long bytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        malloc_trim(0);
        auto engine = std::make_unique<CZELThumbFlashCache>();
        engine->m_strCachePath = index;
        const long before = ResidentSet();
        state.ResumeTiming();
        const bool loaded = engine->m_LoadThumbFile();
        state.PauseTiming();
        bytes = ResidentSet() - before;
        if (!loaded || engine->m_ThumbItemList.size() != static_cast<std::size_t>(records)) {
            std::abort();
        }
        engine.reset();
        state.ResumeTiming();
    }
    state.counters["bytes_per_record"] = static_cast<double>(bytes) / records;
}

void BareStart(benchmark::State& state) {
    const int records = static_cast<int>(state.range(0));
    const bare::Folder folder;
    const std::string index = MakeIndex(folder, records);
    for (auto _ : state) {
        state.PauseTiming();
        malloc_trim(0);
        state.ResumeTiming();
        auto kept = bare::ReadIndex(index);
        state.PauseTiming();
        if (kept.size() != static_cast<std::size_t>(records)) {
            std::abort();
        }
        kept = {};
        state.ResumeTiming();
    }
}

// A start that finds every folder of the index stale: as many folders as thumbnails, of devices
// that are gone, while one is there.
void StaleStart(benchmark::State& state) {
    const int records = static_cast<int>(state.range(0));
    const std::map<std::string, std::string> known = {{"known", "/opt/storage/usb/known"}};
    const bare::Folder folder;
    for (auto _ : state) {
        state.PauseTiming();
        auto engine = std::make_unique<CZELThumbFlashCache>();
        engine->m_strCachePath = folder / "index";
        for (int number = 0; number < records; ++number) {
            using Folder = CZELThumbFlashCache::CZELFlashCacheFolderItem;
            using Item = CZELThumbFlashCache::CZELFlashCacheItem;
            engine->m_ThumbFolderList.emplace_back(new Folder);
            engine->m_ThumbFolderList.back()->Sid = std::to_string(number);
            engine->m_ThumbFolderList.back()->Path = folder / std::to_string(number);
            engine->m_ThumbItemList.emplace_back(new Item);
            engine->m_ThumbItemList.back()->Path = folder / std::to_string(number);
        }
        auto usb = known;
        std::map<std::string, std::string> cameras;
        state.ResumeTiming();
        const bool judged = engine->m_DelUnvalidData(usb, cameras);
        state.PauseTiming();
        if (!judged || !engine->m_ThumbItemList.empty()) {
            std::abort();
        }
        engine.reset();
        state.ResumeTiming();
    }
}

BENCHMARK(StaleStart)->RangeMultiplier(10)->Range(1000, 1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(Start)->RangeMultiplier(10)->Range(1000, 1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BareStart)->RangeMultiplier(10)->Range(1000, 1000000)->Unit(benchmark::kMillisecond);

}  // namespace
