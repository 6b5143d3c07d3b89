/**
 * @file
 * What a storage of the storage service consists of.
 */
#ifndef ZEL_PLATFORM_LINUX_STORAGE_H
#define ZEL_PLATFORM_LINUX_STORAGE_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "usb_mounts.h"
#include "zel_platform_storage.h"

/** One storage. */
struct _zel_storage_s {
    std::string mount_path;    /**< empty for a camera */
    std::string serial_number; /**< empty when the device has none */
    dev_t device;              /**< the block device mounted; 0 for a camera */
};

namespace zel::platform {

using StorageList = std::vector<_zel_storage_s>;

/** The storages that stand for mounts. @throw std::bad_alloc */
inline StorageList to_storages(const std::vector<UsbMount>& mounts) {
    StorageList storages;
    for (const UsbMount& mount : mounts)
        storages.push_back({mount.path, mount.serial_number, mount.device});
    return storages;
}

}  // namespace zel::platform

#endif
