// Loads an input as the index of a cache, rewrites it, and loads that.
// An input that begins with "~" stands between two records so long that the border between the
// loader's first two reads lies in its middle, and the second read is full as well.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "thumb_file_record.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

constexpr std::size_t firstReadSize = 1048576;

void Require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "Violated: %s\n", what);
        std::abort();
    }
}

bool IsDeviceType(int type) { return type == DEVICE_TYPE_USB || type == DEVICE_TYPE_PTP; }

void CheckLists(const CZELThumbFlashCache& engine) {
    std::uint32_t sum = 0;
    for (const auto& item : engine.m_ThumbItemList) {
        Require(!item->Path.empty() && !item->URL.empty(), "a thumbnail has its paths");
        Require(item->Size >= 0 && item->Size <= INT32_MAX, "a size is a positive 32-bit number");
        Require(IsDeviceType(item->Devicetype), "a thumbnail has a device type");
        sum += static_cast<std::uint32_t>(item->Size);
    }
    for (const auto& folder : engine.m_ThumbFolderList) {
        Require(!folder->Sid.empty() && !folder->Path.empty(), "a folder has its id and path");
        Require(IsDeviceType(folder->Devicetype), "a folder has a device type");
    }
    Require(static_cast<std::uint32_t>(engine.m_CacheSize) == sum, "sizes are accounted for");
}

// The text that a rewrite of the lists is to give.
std::string Records(const CZELThumbFlashCache& engine) {
    std::string text;
    const auto append = [&](const auto& list) {
        for (const auto& entry : list) {
            char record[thumbFileRecordRoom];
            text.append(record, FormatThumbFileRecord(*entry, record));
        }
    };
    append(engine.m_ThumbFolderList);
    append(engine.m_ThumbItemList);
    return text;
}

std::string MakeIndexPath() {
    std::string folder = std::filesystem::temp_directory_path() / "index-XXXXXX";
    Require(mkdtemp(folder.data()) != nullptr, "a folder can be made");
    return folder + "/index";
}

std::string LoadAndRewrite(const std::string& path) {
    CZELThumbFlashCache engine;
    engine.m_strCachePath = path;
    Require(engine.m_LoadThumbFile(), "an index is loaded");
    CheckLists(engine);
    const std::string records = Records(engine);
    Require(engine.m_RefreshThumbFile(), "an index is rewritten");
    std::ifstream file(path, std::ios::binary);
    Require(std::string(std::istreambuf_iterator<char>(file), {}) == records,
            "a rewrite writes all records");
    return records;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string path = MakeIndexPath();
    std::string index(reinterpret_cast<const char*>(data), size);
    if (!index.empty() && index.front() == '~') {
        const std::string record = "<" + std::string(firstReadSize - size / 2 - 4, 'x') + ">\r\n";
        index = record + index + record;
    }
    std::ofstream(path, std::ios::binary) << index;
    const std::string rewritten = LoadAndRewrite(path);
    Require(LoadAndRewrite(path) == rewritten, "a rewritten index is loaded whole");
    return 0;
}
