/**
 * @file
 * Access to the device database of udev.
 */
#ifndef ZEL_PLATFORM_LINUX_UDEV_ACCESS_H
#define ZEL_PLATFORM_LINUX_UDEV_ACCESS_H

#include <libudev.h>

#include <string>

#include "handle.h"

namespace zel::platform {

using Udev = Handle<udev, udev_unref>;
using UdevDevice = Handle<udev_device, udev_device_unref>;

/** Whether a look-up that set errno to this value failed because there is no such device, rather
 * than for want of memory, of file descriptors or of permission. */
bool is_unknown_device(int error);

/**
 * A property of a device.
 * @param device  may be null: a device that udev does not know
 * @return its value, or an empty string
 * @throw std::bad_alloc
 */
std::string udev_property(udev_device* device, const char* name);

}  // namespace zel::platform

#endif
