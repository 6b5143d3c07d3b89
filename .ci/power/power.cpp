// The process that loses its power, and the one that looks at what is left:
//   power save FOLDER SEED full|roomy   saves thumbnails into the cache in the folder, how many and
//                                       which depends on the seed, and shuts its file system down
//   power list FOLDER                   prints the files of the thumbnails that the index names
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "zel_thumbnail_flash_cache_internal.h"

namespace {

constexpr int width = 160, height = 120;
constexpr int kept = 20;  // thumbnails in a full cache

// Of ext4: nothing that is not on the device by then gets there, not even the journal.
constexpr unsigned long shutDown = _IOR('X', 125, std::uint32_t);
constexpr std::uint32_t withoutJournal = 2;

[[noreturn]] void Fail(const char* what) {
    std::perror(what);
    std::exit(EXIT_FAILURE);
}

// A saved thumbnail counts as a part of the ceiling, so that some fill the cache.
void Enlarge(CZELThumbFlashCache& cache) {
    auto& last = *cache.m_ThumbItemList.back();
    cache.m_CacheSize += static_cast<int>(ZEL_FLASH_CACHE_MAX / kept - last.Size);
    last.Size = ZEL_FLASH_CACHE_MAX / kept;
}

void Save(const std::string& folder, unsigned seed, bool full) {
    std::mt19937 random(seed);
    CZELThumbFlashCache cache;
    cache.m_strCachePath = folder + "/index";
    const int root = open(folder.c_str(), O_RDONLY | O_DIRECTORY);
    if (root < 0 || mkdir((folder + "/stick").c_str(), 0777) != 0 || !cache.m_Create()) {
        Fail("start");
    }
    std::vector<unsigned char> pixels(4 * width * height);
    std::string url = "/opt/storage/usb/sda1/picture.png";
    const unsigned saves = (full ? kept : 0) + 1 + random() % 40;
    for (unsigned save = 1; save <= saves; ++save) {
        std::generate(pixels.begin(), pixels.end(), std::ref(random));
        const std::string file = folder + "/stick/" + std::to_string(save) + ".jpg";
        if (!cache.SaveFlashFile(pixels.data(), width, height, file.c_str(), url.data(), nullptr)) {
            Fail("save");
        }
        if (full) {
            Enlarge(cache);
        } else if (random() % 8 == 0 && syncfs(root) != 0) {  // as the system does in its own time
            Fail("syncfs");
        }
    }
    if (ioctl(root, shutDown, &withoutJournal) != 0) {
        Fail("shutdown");
    }
    std::printf("%u saves, ", saves);
}

// The whole records of an index: what stands behind them was being written.
std::size_t CountRecords(const std::string& index) {
    std::ifstream file(index, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    std::size_t count = 0;
    for (std::size_t end = 0; (end = text.find(">\r\n", end)) != std::string::npos; ++end) {
        ++count;
    }
    return count;
}

void List(const std::string& folder) {
    CZELThumbFlashCache loader;  // which, never started, changes nothing
    loader.m_strCachePath = folder + "/index";
    if (!loader.m_LoadThumbFile() && errno != ENOENT) {
        Fail("index");
    }
    const std::size_t loaded = loader.m_ThumbItemList.size() + loader.m_ThumbFolderList.size();
    if (loaded != CountRecords(loader.m_strCachePath)) {
        std::fprintf(stderr, "%zu of %zu records load\n", loaded,
                     CountRecords(loader.m_strCachePath));
        std::exit(EXIT_FAILURE);
    }
    for (const auto& item : loader.m_ThumbItemList) {
        std::puts(item->URL.c_str());
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::string verb = argc > 2 ? argv[1] : "";
    if (verb == "save" && argc == 5) {
        Save(argv[2], static_cast<unsigned>(std::atoi(argv[3])), argv[4] == std::string("full"));
    } else if (verb == "list") {
        List(argv[2]);
    } else {
        return EXIT_FAILURE;
    }
}
