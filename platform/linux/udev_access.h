/**
 * @file
 * Access to the device database of udev.
 */
#ifndef ZEL_PLATFORM_LINUX_UDEV_ACCESS_H
#define ZEL_PLATFORM_LINUX_UDEV_ACCESS_H

#include <libudev.h>

#include <string>

#include "util/release.h"

namespace zel::platform {

using Udev = CZELHandle<udev, udev_unref>;
using UdevDevice = CZELHandle<udev_device, udev_device_unref>;

/** Opens the database. @throw std::bad_alloc */
Udev open_udev();

/**
 * Takes over what a look-up of a device has returned, right after it.
 * @return the device, or null when there is no such device
 * @throw std::exception when the look-up failed, for want of memory, of descriptors, of permission
 */
UdevDevice found_device(udev_device* device);

/**
 * A property of a device.
 * @param device  may be null: a device that udev does not know
 * @return its value, or an empty string
 * @throw std::exception when the device cannot be read
 */
[[nodiscard]] std::string udev_property(udev_device* device, const char* name);

/** An attribute of a device in the kernel's own tree, or an empty string. @throw likewise */
[[nodiscard]] std::string udev_attribute(udev_device* device, const char* name);

/** The kind of a device within its subsystem, or an empty string. @throw likewise */
[[nodiscard]] std::string udev_kind(udev_device* device);

/**
 * Whether what udev finds out about a device can be known: it has looked at it, or does not run at
 * all, as in a container.
 * @param device  not null
 * @throw std::exception when the device cannot be read
 */
[[nodiscard]] bool is_probed(udev_device* device);

}  // namespace zel::platform

#endif
