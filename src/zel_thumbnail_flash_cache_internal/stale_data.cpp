#include <algorithm>
#include <exception>
#include <string_view>
#include <tuple>
#include <unordered_set>

#include "util/log.h"
#include "util/size_arithmetic.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

// Removes the items that a test is true of and takes their sizes out of the accounted size.
template <class Test>
void RemoveItems(CZELThumbFlashCache::ItemList& items, int& cacheSize, Test isGone) {
    for (auto item = items.begin(); item != items.end();) {
        if (isGone(**item)) {
            cacheSize = WrappingSubtract(cacheSize, (*item)->Size);
            item = items.erase(item);
        } else {
            ++item;
        }
    }
}

}  // namespace

bool CZELThumbFlashCache::m_DelUnvalidData(DeviceMap& usbFlashMap, DeviceMap& ptpFlashMap) {
    ZEL_LOG_INFO("usbFlashMap size= [%d],ptpFlashMap size= [%d]\n",
                 static_cast<int>(usbFlashMap.size()), static_cast<int>(ptpFlashMap.size()));
    if (usbFlashMap.empty() && ptpFlashMap.empty()) {
        m_RemoveAllFolders();
    } else {
        m_RemoveUnknownFolders(usbFlashMap, ptpFlashMap);
    }
    return true;
}

void CZELThumbFlashCache::m_RemoveAllFolders() {
    while (!m_ThumbFolderList.empty()) {
        const std::string& path = m_ThumbFolderList.front()->Path;
        ZEL_LOG_INFO("m_ThumbFolderList remove [%s]\n", path.c_str());
        std::ignore = m_RemoveDir(path);  // logged there; the records go all the same
        m_ThumbFolderList.pop_front();
    }
    RemoveItems(m_ThumbItemList, m_CacheSize, [](const auto&) { return true; });
    std::ignore = m_RefreshThumbFile();  // logged there
}

// The thumbnails of all stale folders go in one walk: an index may hold any number of folders.
void CZELThumbFlashCache::m_RemoveUnknownFolders(const DeviceMap& usbFlashMap,
                                                 const DeviceMap& ptpFlashMap) {
    FolderList staleFolders;
    std::unordered_set<std::string_view> stalePaths;
    for (auto next = m_ThumbFolderList.begin(); next != m_ThumbFolderList.end();) {
        const auto folder = next++;
        const std::string& path = (*folder)->Path;
        ZEL_LOG_INFO("m_ThumbFolderList get id = [%s]\n", (*folder)->Sid.c_str());
        if (usbFlashMap.count((*folder)->Sid) != 0 || ptpFlashMap.count((*folder)->Sid) != 0) {
            continue;
        }
        staleFolders.splice(staleFolders.end(), m_ThumbFolderList, folder);
        if (!path.empty()) {
            ZEL_LOG_INFO("m_ThumbFolderList remove [%s]\n", path.c_str());
            std::ignore = m_RemoveDir(path);  // logged there; the records go all the same
            stalePaths.insert(path);
        }
    }
    if (!stalePaths.empty()) {
        RemoveItems(m_ThumbItemList, m_CacheSize,
                    [&](const auto& item) { return stalePaths.count(item.Path) != 0; });
        std::ignore = m_RefreshThumbFile();  // logged there
    }
}

bool CZELThumbFlashCache::m_RemoveStorage(std::string strMountPath) try {
    const CZELMutexGuard guard(m_Lock);
    if (m_MountPathMap.empty()) {
        ZEL_LOG_INFO("m_MountPathMap.size() <= 0###\n");
        return false;
    }
    const auto storage =
        std::find_if(m_MountPathMap.begin(), m_MountPathMap.end(),
                     [&](const auto& entry) { return entry.second == strMountPath; });
    if (storage == m_MountPathMap.end()) {
        return true;
    }
    const auto folder =
        std::find_if(m_ThumbFolderList.begin(), m_ThumbFolderList.end(),
                     [&](const auto& known) { return known->Sid == storage->first; });
    if (folder != m_ThumbFolderList.end()) {
        const std::string path = (*folder)->Path;
        std::ignore = m_RemoveDir(path);  // logged there; the records go all the same
        m_ThumbFolderList.erase(folder);
        RemoveItems(m_ThumbItemList, m_CacheSize,
                    [&](const auto& item) { return item.Path == path; });
        std::ignore = m_RefreshThumbFile();  // logged there
    }
    m_MountPathMap.erase(storage);
    return true;
} catch (const std::exception& error) {
    ZEL_LOG_WARN("m_RemoveStorage failed: %s", error.what());
    return false;
}

void CZELThumbFlashCache::s_ZELUSBConnctedCallback(void* userData, zel_storage_event_e event,
                                                   _zel_storage_s*& storage) try {
    ZEL_LOG_INFO("s_USBConnctedCallback...\n");
    if (userData == nullptr) {
        ZEL_LOG_INFO("s_ZELUSBConnctedCallback error\n");
        return;
    }
    ZEL_LOG_INFO("s_ZELUSBConnctedCallback event is [%d]\n", static_cast<int>(event));
    if (event != ZEL_STORAGE_EVENT_REMOVED) {
        return;
    }
    const char* mountPath = zel_storage_get_mountpath(storage);
    ZEL_LOG_INFO("device MountPath = [%s]###", mountPath == nullptr ? "" : mountPath);
    if (mountPath != nullptr && *mountPath != '\0') {
        // Its result tells nothing that the log does not.
        std::ignore = static_cast<CZELThumbFlashCache*>(userData)->m_RemoveStorage(mountPath);
    }
} catch (const std::exception& error) {
    ZEL_LOG_WARN("s_ZELUSBConnctedCallback failed: %s", error.what());
}
