/**
 * @file
 * The USB storages mounted now, with what udev knows of them.
 */
#ifndef ZEL_PLATFORM_LINUX_USB_MOUNTS_H
#define ZEL_PLATFORM_LINUX_USB_MOUNTS_H

#include <sys/types.h>

#include <string>
#include <tuple>
#include <vector>

namespace zel::platform {

/** One file system mounted below /opt/storage/usb/. */
struct UsbMount {
    std::string path;          /**< the mount point */
    dev_t device;              /**< the block device mounted */
    std::string storage_id;    /**< UUID of the file system, else the last component of path */
    std::string serial_number; /**< of the device; empty when it has none */
    bool is_probed;            /**< false while udev has still to look at the device */

    bool operator==(const UsbMount& other) const {
        return std::tie(path, device, storage_id, serial_number, is_probed) ==
               std::tie(other.path, other.device, other.storage_id, other.serial_number,
                        other.is_probed);
    }
};

/**
 * Reads the mount table and looks up each USB storage in udev. Of several mounts at one path only
 * the one that can be seen is listed; a device that udev does not know has no serial number.
 * @return the mounts in the order of their paths
 * @throw std::exception when the table or a device cannot be read, or memory is short
 */
[[nodiscard]] std::vector<UsbMount> list_usb_mounts();

}  // namespace zel::platform

#endif
