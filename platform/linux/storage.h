/**
 * @file
 * What a storage of the storage service consists of.
 */
#ifndef ZEL_PLATFORM_LINUX_STORAGE_H
#define ZEL_PLATFORM_LINUX_STORAGE_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "zel_platform_storage.h"

/** One storage. */
struct _zel_storage_s {
    std::string mount_path;    /**< empty for a camera */
    std::string serial_number; /**< empty when the device has none */
    dev_t device;              /**< the block device mounted; 0 for a camera */
};

namespace zel::platform {

using StorageList = std::vector<_zel_storage_s>;

/**
 * The USB storages mounted now.
 * @return nothing when the mount table or udev cannot be read
 * @throw std::bad_alloc
 */
std::optional<StorageList> list_usb_storages();

}  // namespace zel::platform

#endif
