/**
 * @file
 * The devices that pictures lie on.
 */
#ifndef ZEL_TOOLS_PICTURE_LOCATION_H
#define ZEL_TOOLS_PICTURE_LOCATION_H

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "options.h"
#include "storages.h"

/** Where a picture lies. */
struct PictureLocation {
    std::string device; /**< id of the device */
    std::string url;    /**< the picture's location for the cache */
    std::string
        path; /**< tells the picture from the others of the device, wherever it is mounted */
};

/** Locates pictures on the storages that the platform knows. */
class StorageLocator {
public:
    /** Storages without an id or a mount path are left out. */
    explicit StorageLocator(const std::vector<Storage>& storages);

    /**
     * Locates a picture on the innermost storage that holds it.
     * @param picture  its canonical path
     * Throws std::runtime_error when it is on none.
     */
    [[nodiscard]] PictureLocation Locate(const std::filesystem::path& picture) const;

private:
    std::vector<std::pair<Storage, std::filesystem::path>> storages_;  // with the canonical mount
};

/** Locates a picture, given by its canonical path, on the device that the command line names. */
[[nodiscard]] PictureLocation LocateOnDevice(const Options& options,
                                             const std::filesystem::path& picture);

#endif
