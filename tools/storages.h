/**
 * @file
 * The storages that the platform knows.
 */
#ifndef ZEL_TOOLS_STORAGES_H
#define ZEL_TOOLS_STORAGES_H

#include <string>
#include <vector>

/** One attached storage. A text that the platform does not know is empty. */
struct Storage {
    const char* kind;   /**< "usb" or "camera" */
    std::string id;     /**< names the storage's folder in the cache */
    std::string mount;  /**< mount path; empty for a camera */
    std::string serial; /**< serial number of the device */
};

/**
 * Lists the attached storages, USB first.
 * Throws std::runtime_error when the media-content database does not answer.
 */
[[nodiscard]] std::vector<Storage> ListStorages();

#endif
