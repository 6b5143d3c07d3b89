#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <tuple>
#include <utility>

#include "util/log.h"
#include "util/size_arithmetic.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

using FolderList = CZELThumbFlashCache::FolderList;

bool IsListed(const FolderList& folders, const std::string& id, const std::string& path) {
    return std::any_of(folders.begin(), folders.end(), [&](const auto& folder) {
        return folder->Sid == id && folder->Path == path;
    });
}

// Accounts for the size of an item's image file in place of the estimate.
void AccountFile(CZELThumbFlashCache::CZELFlashCacheItem& item, int& cacheSize) {
    struct stat status {};
    if (stat(item.URL.c_str(), &status) != 0) {
        return;
    }
    const int fileSize = HoldToInt32(status.st_size);
    cacheSize = WrappingAdd(WrappingSubtract(cacheSize, item.Size), fileSize);
    if (fileSize > 0) {
        item.Size = fileSize;
    }
    ZEL_LOG_INFO("jepg size is %d, m_CacheSize end:%d\n", fileSize, cacheSize);
}

}  // namespace

void CZELThumbFlashCache::m_ReserveSpace(long size) {
    ZEL_LOG_INFO("m_CacheSize begin:%d\n", m_CacheSize);
    m_CacheSize = WrappingAdd(m_CacheSize, size);
    ZEL_LOG_INFO("m_CacheSize space hold:%d\n", m_CacheSize);
    if (m_CacheSize <= ZEL_FLASH_CACHE_MAX) {
        return;
    }
    ZEL_LOG_INFO("m_CacheSize > ZEL_FLASH_CACHE_MAX\n");
    long m = WrappingSubtract(m_CacheSize, ZEL_FLASH_CACHE_MAX);
    ZEL_LOG_INFO("m = [%ld]\n", m);
    while (m > -m_EvictionHeadroom && !m_ThumbItemList.empty()) {
        ZEL_LOG_INFO("m 11= [%ld]\n", m);
        const CZELFlashCacheItem& oldest = *m_ThumbItemList.front();
        m = WrappingSubtract(m, oldest.Size);
        ZEL_LOG_INFO("m 22= [%ld]\n", m);
        // A file that stays is logged there; the item goes either way.
        std::ignore = m_DeleteItem(m_ThumbItemList.front());
        m_CacheSize = WrappingSubtract(m_CacheSize, oldest.Size);
        m_ThumbItemList.pop_front();
    }
    // A failure is logged there; the old index then names more thumbnails than there are.
    std::ignore = m_RefreshThumbFile();
}

bool CZELThumbFlashCache::m_InsertItem(boost::intrusive_ptr<CZELFlashCacheItem> pThumbItem,
                                       std::string strId, unsigned char* buffer, int xsize,
                                       int ysize, const char* filename, char* bufferPreset) {
    if (!pThumbItem || strId.empty()) {
        ZEL_LOG_INFO("m_InsertItem pThumbItem is NULL###\n");
        return false;
    }
    if (pThumbItem->Path.empty()) {
        ZEL_LOG_INFO("m_InsertItem strFolder is empty###\n");
        return false;
    }

    // All that needs memory comes before the image, so that no image is left without its record.
    FolderList newFolder;
    if (!IsListed(m_ThumbFolderList, strId, pThumbItem->Path)) {
        newFolder.push_back(
            boost::intrusive_ptr<CZELFlashCacheFolderItem>(new CZELFlashCacheFolderItem));
        newFolder.front()->Sid = std::move(strId);
        newFolder.front()->Path = pThumbItem->Path;
        newFolder.front()->Devicetype = pThumbItem->Devicetype;
    }
    m_ThumbFile.ReserveAppends(2);

    ZEL_LOG_INFO("Start");
    if (!m_SaveThumb(buffer, bufferPreset, xsize, ysize, filename)) {
        ZEL_LOG_INFO("m_InsertItem m_JpegSave failed###\n");
        return false;
    }
    AccountFile(*pThumbItem, m_CacheSize);
    ZEL_LOG_INFO("End");
    return m_RecordItem(*pThumbItem, newFolder);
}

bool CZELThumbFlashCache::m_RecordItem(CZELFlashCacheItem& item, FolderList& newFolder) {
    if (!m_AddItemToThumbFile(&item)) {
        ZEL_LOG_INFO("m_InsertItem m_AddItemToThumbFile failed###\n");
        // The URL is moved, as there may be no memory for a copy. A file that stays is logged
        // there; the save has failed either way.
        std::ignore = m_RemoveThumb(std::move(item.URL));
        return false;
    }
    if (!newFolder.empty()) {
        // A failure is logged there; the record follows with the next rewrite.
        std::ignore = m_AddFolderItemToThumbFile(newFolder.front());
        m_ThumbFolderList.splice(m_ThumbFolderList.end(), newFolder);
    }
    return true;
}

bool CZELThumbFlashCache::m_DeleteItem(boost::intrusive_ptr<CZELFlashCacheItem> pThumbItem) {
    ZEL_LOG_INFO("m_DeleteItem...\n");
    if (!pThumbItem) {
        ZEL_LOG_INFO("m_DeleteItem pThumbItem is NULL\n");
        return false;
    }
    return m_RemoveThumb(pThumbItem->URL);
}

bool CZELThumbFlashCache::m_RemoveThumb(std::string strFile) {
    ZEL_LOG_INFO("m_RemoveThumb...\n");
    if (strFile.empty()) {
        ZEL_LOG_INFO("m_RemoveThumb strFile is empty...\n");
        return false;
    }
    ZEL_LOG_INFO("m_RemoveThumb file[%s]\n", strFile.c_str());
    if (std::remove(strFile.c_str()) != 0) {
        ZEL_LOG_WARN("m_RemoveThumb: remove [%s] failed.", strFile.c_str());
        return false;
    }
    return true;
}
