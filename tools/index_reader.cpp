#include "index_reader.h"

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <system_error>

#include "zel_thumbnail_flash_cache_internal.h"

std::uintmax_t BytesIn(const CachedFolder& folder) {
    std::uintmax_t bytes = 0;
    for (const CachedThumbnail& thumbnail : folder.thumbnails) {
        bytes += thumbnail.bytes;
    }
    return bytes;
}

void CheckIndexIsReadable(const std::string& index) {
    int error = access(index.c_str(), R_OK) == 0 ? 0 : errno;
    if (error == 0 && std::filesystem::is_directory(index)) {
        error = EISDIR;  // the loader would take it for an empty file
    }
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), index);
    }
}

std::vector<CachedFolder> ReadIndex(const std::string& index) {
    CheckIndexIsReadable(index);
    // Never started, it loads and changes nothing. One thread uses it, so its lock is not needed.
    CZELThumbFlashCache loader;
    loader.m_strCachePath = index;
    if (!loader.m_LoadThumbFile() || !loader.m_ThumbFile.IsRead()) {
        throw std::system_error(EIO, std::generic_category(), index);
    }
    std::vector<CachedFolder> folders;
    std::map<std::string, std::size_t> positions;
    const auto folder_at = [&](const std::string& path, const std::string& id, int device_type) {
        const auto [entry, is_new] = positions.emplace(path, folders.size());
        if (is_new) {
            folders.push_back({id, device_type == DEVICE_TYPE_PTP ? "camera" : "usb", path, 0, {}});
        }
        return &folders[entry->second];
    };
    for (const auto& folder : loader.m_ThumbFolderList) {
        ++folder_at(folder->Path, folder->Sid, folder->Devicetype)->records;
    }
    for (const auto& item : loader.m_ThumbItemList) {
        const auto id = std::filesystem::path(item->Path).filename();
        folder_at(item->Path, id, item->Devicetype)
            ->thumbnails.push_back({item->URL, static_cast<std::uintmax_t>(item->Size)});
    }
    return folders;
}
