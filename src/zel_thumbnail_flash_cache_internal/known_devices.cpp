#include <cstdlib>
#include <cstring>
#include <exception>
#include <tuple>
#include <utility>
#include <vector>

#include "util/log.h"
#include "util/release.h"
#include "zel_platform_media_content.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

constexpr char usbMarker[] = "/opt/storage/usb";
constexpr int maxPasses = 3;
constexpr std::size_t expectedStorages = 64;

using DeviceMap = CZELThumbFlashCache::DeviceMap;
using PlatformText = CZELHandle<char, std::free>;

const char* OrEmpty(const char* text) { return text == nullptr ? "" : text; }

// The storages that the storage service lists; they are valid as long as its list. What it answers
// to the release of a list changes nothing.
struct AttachedStorages {
    explicit AttachedStorages(zel_storage_device_type type)
        : bListed(zel_get_usb_list(type, &list) == 0) {}
    ~AttachedStorages() {
        if (bListed) {
            Release();
        }
    }

    void Collect() {
        count = zel_storage_get_list_count(list);
        for (int index = 0; index < count; ++index) {
            _zel_storage_s* storage = zel_storage_get_storage(index, list);
            if (storage == nullptr) {
                continue;
            }
            const char* mountPath = OrEmpty(zel_storage_get_mountpath(storage));
            ZEL_LOG_INFO("device[%d] MountPath = %s", index, mountPath);
            if (std::strstr(mountPath, usbMarker) != nullptr) {
                ZEL_LOG_INFO("USB Storage is Exist\n");
                bUsbPresent = true;
            }
            storages.push_back(storage);
        }
    }

    void Release() {
        bListed = false;
        std::ignore = zel_storage_list_destory(std::exchange(list, nullptr));
    }

    void* list = nullptr;
    bool bListed;
    int count = 0;
    bool bUsbPresent = false;
    std::vector<_zel_storage_s*> storages;
};

// One reading of the database: a filter, and a clone of every storage that it selects.
struct DatabasePass {
    ~DatabasePass() {
        if (filter != nullptr) {
            Release();
        }
    }

    // In place of what was read before.
    bool Read(media_storage_cb keepClone) {
        if (filter != nullptr) {
            Release();
        }
        // Now, when a shortage of memory ends the creation, rather than in the callback, where it
        // would make a storage appear to be gone.
        storages.reserve(expectedStorages);
        if (media_filter_create(&filter) != 0) {
            return false;
        }
        // What could not be read is missing, like a storage that the database does not know yet.
        std::ignore = media_storage_foreach_storage_from_db(filter, keepClone, &storages);
        return true;
    }

    // Also destroys a filter that was never made: the database accepts none.
    void Release() {
        for (void* storage : storages) {
            if (storage != nullptr) {
                std::ignore = media_storage_destroy(storage);  // nothing can be done about it
            }
        }
        storages.clear();
        if (media_filter_destroy(std::exchange(filter, nullptr)) != 0) {
            ZEL_LOG_INFO("FAILED TO media_filter_destroy");
        }
    }

    media_filter_h filter = nullptr;
    std::vector<void*> storages;
};

// A text of a storage of the database; none when the storage is missing, or the text.
PlatformText TextOf(void* storage, int (*getText)(void*, char**)) {
    char* text = nullptr;
    if (storage != nullptr) {
        std::ignore = getText(storage, &text);  // the text stays null on failure
    }
    return PlatformText(text);
}

// Adds the id of each storage of the database that is mounted where an attached one is. True when
// there were as many such pairs as attached storages, or more.
bool MatchStorages(const std::vector<_zel_storage_s*>& usblist, const std::vector<void*>& database,
                   DeviceMap& deviceMap) {
    ZEL_LOG_INFO("usblist.size === [%d]", static_cast<int>(usblist.size()));
    std::size_t matches = 0;
    for (_zel_storage_s* attached : usblist) {
        const char* usbPath = OrEmpty(zel_storage_get_mountpath(attached));
        for (void* storage : database) {
            const PlatformText storagePath = TextOf(storage, media_storage_get_path);
            ZEL_LOG_INFO("usbPath : [%s], storagePath: [%s]\n", usbPath,
                         OrEmpty(storagePath.get()));
            if (!storagePath || std::strcmp(usbPath, storagePath.get()) != 0) {
                continue;
            }
            ++matches;
            const PlatformText storageID = TextOf(storage, media_storage_get_storage_id);
            if (storageID) {
                ZEL_LOG_INFO("storageID: %s\n", storageID.get());
                deviceMap.emplace(storageID.get(), usbPath);
            }
        }
    }
    return matches >= usblist.size();
}

// Reads the database until it knows every attached storage, a few times at most. False when it
// gives no filter.
bool FindStorages(const AttachedStorages& attached, DatabasePass& database,
                  media_storage_cb keepClone, DeviceMap& deviceMap) {
    bool bComplete = false;
    int passes = 0;
    for (; passes < maxPasses && !bComplete; ++passes) {
        if (!database.Read(keepClone)) {
            return false;
        }
        ZEL_LOG_INFO("m_GetStorageList storageListSize = %d ",
                     static_cast<int>(database.storages.size()));
        deviceMap.clear();
        bComplete = MatchStorages(attached.storages, database.storages, deviceMap);
    }
    if (passes == maxPasses) {
        ZEL_LOG_INFO(" TimeOut Occured \n");
    } else {
        ZEL_LOG_INFO(" UsbScanning is Completed \n");
    }
    return true;
}

bool ScanUsb(AttachedStorages& attached, media_storage_cb keepClone, DeviceMap& deviceMap) {
    DatabasePass database;
    if (!attached.bUsbPresent) {
        ZEL_LOG_INFO("USB Storage Not is Exist\n");
    } else if (!FindStorages(attached, database, keepClone, deviceMap)) {
        database.Release();
        ZEL_LOG_INFO("[m_GetStorageList] - failed to media_filter_create");
        attached.Release();
        return false;
    }
    attached.Release();
    database.Release();
    ZEL_LOG_INFO(" exit m_GetStorageList...\n");
    return true;
}

}  // namespace

bool CZELThumbFlashCache::m_InitDeviceList() {
    if (!m_GetDeciveList(m_MountPathMap, ZEL_STORAGE_DEVICE_TYPE_USB)) {
        ZEL_LOG_INFO("m_GetDeciveList usb fail###\n");
    }
    if (!m_GetDeciveList(m_PtpDeviceMap, ZEL_STORAGE_DEVICE_TYPE_PTP)) {
        ZEL_LOG_INFO("m_GetDeciveList ptp fail###\n");
    }
    std::ignore = m_DelUnvalidData(m_MountPathMap, m_PtpDeviceMap);  // always true
    ZEL_LOG_INFO("m_GetDeciveList end###\n");
    return true;
}

bool CZELThumbFlashCache::m_GetDeciveList(DeviceMap& deviceMap, zel_storage_device_type type) {
    ZEL_LOG_INFO("[start to excute m_GetDeciveList]...\n");
    AttachedStorages attached(type);
    ZEL_LOG_INFO(" zel_get_usb_list has return to zel_get_usb_list ");
    if (attached.bListed) {
        ZEL_LOG_INFO("zel_get_usb_storage_list device type = [%d]", static_cast<int>(type));
        attached.Collect();
    }
    if (type == ZEL_STORAGE_DEVICE_TYPE_USB) {
        return ScanUsb(attached, s_GetStorageCallback, deviceMap);
    }
    if (type != ZEL_STORAGE_DEVICE_TYPE_PTP) {
        ZEL_LOG_INFO(" it is unknow device type exit m_GetStorageList...\n");
        return false;
    }
    deviceMap.clear();
    if (attached.count == 0) {
        ZEL_LOG_INFO("PTP Storage Not is Exist\n");
        return false;
    }
    ZEL_LOG_INFO("usblist.size === [%d]", static_cast<int>(attached.storages.size()));
    for (_zel_storage_s* storage : attached.storages) {
        const char* serialNumber = OrEmpty(zel_storage_get_serialnumber(storage));
        if (*serialNumber != '\0') {
            ZEL_LOG_INFO(" serialNumber = [%s]\n", serialNumber);
            deviceMap.emplace(serialNumber, "ptp");
        }
    }
    ZEL_LOG_INFO(" exit m_GetDeciveList...\n");
    return true;
}

bool CZELThumbFlashCache::m_GetStorageList(DeviceMap& deviceMap) try {
    ZEL_LOG_INFO("[start to excute m_GetStorageList]...\n");
    AttachedStorages attached(ZEL_STORAGE_DEVICE_TYPE_USB);
    ZEL_LOG_INFO(" zel_get_usb_list has return to zel_get_usb_list ");
    if (attached.bListed) {
        ZEL_LOG_INFO("m_GetStorageList device type = [%d]",
                     static_cast<int>(ZEL_STORAGE_DEVICE_TYPE_USB));
        attached.Collect();
    }
    return ScanUsb(attached, s_GetStorageCallback, deviceMap);
} catch (const std::exception& error) {
    ZEL_LOG_WARN("m_GetStorageList failed: %s", error.what());
    return false;
}

bool CZELThumbFlashCache::s_GetStorageCallback(void* storage, void* userData) {
    auto* storages = static_cast<std::vector<void*>*>(userData);
    try {
        storages->push_back(nullptr);
    } catch (const std::exception& error) {
        // Must not pass through the database's own code.
        ZEL_LOG_WARN("a storage is left out: %s", error.what());
        return true;
    }
    // A clone that cannot be made stays null and counts as a storage without path and id.
    std::ignore = media_storage_clone(&storages->back(), storage);
    return true;
}
