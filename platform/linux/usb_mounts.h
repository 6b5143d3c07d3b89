/**
 * @file
 * The USB storages mounted now, with what udev knows of them: shared by the media-content database
 * and the storage service.
 */
#ifndef ZEL_PLATFORM_LINUX_USB_MOUNTS_H
#define ZEL_PLATFORM_LINUX_USB_MOUNTS_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace zel::platform {

/** One file system mounted below /opt/storage/usb/. */
struct UsbMount {
    std::string path;          /**< the mount point */
    dev_t device;              /**< the block device mounted */
    std::string storage_id;    /**< UUID of the file system, else the last component of path */
    std::string serial_number; /**< of the device; empty when it has none */
};

/** The file that stands in for the kernel's mount table, in the format of the kernel's mountinfo:
 * the value of the environment variable ZEL_MOUNTINFO, or null when that is not set or empty. */
const char* mount_table_replacement();

/**
 * Reads the mount table and looks up each USB storage in udev. Of several mounts at one path only
 * the one that can be seen is listed; a device that udev does not know has no serial number.
 * @return the mounts in the order of their paths; nothing when the table or udev cannot be read
 * @throw std::bad_alloc
 */
std::optional<std::vector<UsbMount>> list_usb_mounts();

}  // namespace zel::platform

#endif
