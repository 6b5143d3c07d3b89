#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

#include "util/log.h"
#include "zel_platform_media_content.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

constexpr char usbMarker[] = "/opt/storage/usb";
constexpr int maxPasses = 3;
constexpr std::size_t expectedStorages = 64;

using DeviceMap = std::map<std::string, std::string>;
using PlatformText = std::unique_ptr<char, decltype(&std::free)>;

const char* OrEmpty(const char* text) { return text == nullptr ? "" : text; }

// The storages of one kind that the storage service lists; valid until they are released.
class AttachedStorages {
public:
    explicit AttachedStorages(zel_storage_device_type type)
        : m_bListed(zel_get_usb_list(type, &m_List) == 0) {}
    ~AttachedStorages() {
        if (m_bListed) {
            Release();
        }
    }
    AttachedStorages(const AttachedStorages&) = delete;
    AttachedStorages& operator=(const AttachedStorages&) = delete;

    [[nodiscard]] bool IsListed() const { return m_bListed; }
    [[nodiscard]] int Count() const { return m_Count; }
    [[nodiscard]] bool IsUsbPresent() const { return m_bUsbPresent; }
    [[nodiscard]] const std::vector<_zel_storage_s*>& Storages() const { return m_Storages; }

    void Collect() {
        m_Count = zel_storage_get_list_count(m_List);
        for (int index = 0; index < m_Count; ++index) {
            _zel_storage_s* storage = zel_storage_get_storage(index, m_List);
            if (storage == nullptr) {
                continue;
            }
            const char* mountPath = OrEmpty(zel_storage_get_mountpath(storage));
            ZEL_LOG_INFO("device[%d] MountPath = %s", index, mountPath);
            if (std::strstr(mountPath, usbMarker) != nullptr) {
                ZEL_LOG_INFO("USB Storage is Exist\n");
                m_bUsbPresent = true;
            }
            m_Storages.push_back(storage);
        }
    }

    void Release() {
        std::ignore = zel_storage_list_destory(m_List);  // nothing can be done about a failure
        m_List = nullptr;
        m_bListed = false;
        m_Storages.clear();
    }

private:
    void* m_List = nullptr;
    bool m_bListed;
    int m_Count = 0;
    bool m_bUsbPresent = false;
    std::vector<_zel_storage_s*> m_Storages;
};

// One reading of the database: a filter, and a clone of every storage that it selects.
class DatabasePass {
public:
    DatabasePass() = default;
    ~DatabasePass() {
        if (m_Filter != nullptr) {
            Release();
        }
    }
    DatabasePass(const DatabasePass&) = delete;
    DatabasePass& operator=(const DatabasePass&) = delete;

    // In place of what was read before.
    bool Read(media_storage_cb keepClone) {
        if (m_Filter != nullptr) {
            Release();
        }
        // Now, when a shortage of memory ends the creation, rather than in the callback, where it
        // would make a storage appear to be gone.
        m_Storages.reserve(expectedStorages);
        if (media_filter_create(&m_Filter) != 0) {
            return false;
        }
        // What could not be read is missing, like a storage that the database does not know yet.
        std::ignore = media_storage_foreach_storage_from_db(m_Filter, keepClone, &m_Storages);
        return true;
    }

    // Also destroys a filter that was never made: the database accepts none.
    void Release() {
        for (void* storage : m_Storages) {
            if (storage != nullptr) {
                std::ignore =
                    media_storage_destroy(storage);  // nothing can be done about a failure
            }
        }
        m_Storages.clear();
        if (media_filter_destroy(std::exchange(m_Filter, nullptr)) != 0) {
            ZEL_LOG_INFO("FAILED TO media_filter_destroy");
        }
    }

    [[nodiscard]] const std::vector<void*>& Storages() const { return m_Storages; }

private:
    media_filter_h m_Filter = nullptr;
    std::vector<void*> m_Storages;
};

PlatformText PathOf(void* storage) {
    char* path = nullptr;
    if (storage != nullptr) {
        std::ignore = media_storage_get_path(storage, &path);  // the path stays null on failure
    }
    return PlatformText(path, &std::free);
}

PlatformText IdOf(void* storage) {
    char* id = nullptr;
    std::ignore = media_storage_get_storage_id(storage, &id);  // the id stays null on failure
    return PlatformText(id, &std::free);
}

// Adds the id of each storage of the database that is mounted where an attached one is. True when
// there were as many such pairs as attached storages.
bool MatchStorages(const std::vector<_zel_storage_s*>& usblist, const std::vector<void*>& database,
                   DeviceMap& deviceMap) {
    ZEL_LOG_INFO("usblist.size === [%d]", static_cast<int>(usblist.size()));
    std::size_t matches = 0;
    bool bComplete = false;
    for (_zel_storage_s* attached : usblist) {
        const char* usbPath = OrEmpty(zel_storage_get_mountpath(attached));
        for (void* storage : database) {
            const PlatformText storagePath = PathOf(storage);
            ZEL_LOG_INFO("usbPath : [%s], storagePath: [%s]\n", usbPath,
                         OrEmpty(storagePath.get()));
            if (!storagePath || std::strcmp(usbPath, storagePath.get()) != 0) {
                continue;
            }
            ++matches;
            const PlatformText storageID = IdOf(storage);
            if (storageID) {
                ZEL_LOG_INFO("storageID: %s\n", storageID.get());
                deviceMap.emplace(storageID.get(), usbPath);
            }
            bComplete = bComplete || matches == usblist.size();
        }
    }
    return bComplete;
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
                     static_cast<int>(database.Storages().size()));
        deviceMap.clear();
        bComplete = MatchStorages(attached.Storages(), database.Storages(), deviceMap);
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
    if (!attached.IsUsbPresent()) {
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
    if (attached.IsListed()) {
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
    if (attached.Count() == 0) {
        ZEL_LOG_INFO("PTP Storage Not is Exist\n");
        return false;
    }
    ZEL_LOG_INFO("usblist.size === [%d]", static_cast<int>(attached.Storages().size()));
    for (_zel_storage_s* storage : attached.Storages()) {
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
    if (attached.IsListed()) {
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
