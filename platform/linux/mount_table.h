/**
 * @file
 * The mounts of the process.
 */
#ifndef ZEL_PLATFORM_LINUX_MOUNT_TABLE_H
#define ZEL_PLATFORM_LINUX_MOUNT_TABLE_H

#include <sys/types.h>

#include <map>
#include <string>

namespace zel::platform {

/** What is mounted at each path; of several mounts at one path the one that can be seen. */
using DevicesByPath = std::map<std::string, dev_t>;

/** The file that stands in for the kernel's mount table, in the format of the kernel's mountinfo:
 * the value of the environment variable ZEL_MOUNTINFO, or null when that is not set or empty. */
[[nodiscard]] const char* mount_table_replacement();

/**
 * Reads the mount table, all of it.
 * @throw std::exception when it cannot be read or understood, or memory is short
 */
DevicesByPath read_mount_table();

}  // namespace zel::platform

#endif
