/**
 * @file
 * The folder of one device, and the files in it.
 */
#ifndef ZEL_TOOLS_DEVICE_FOLDER_H
#define ZEL_TOOLS_DEVICE_FOLDER_H

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "util/file_descriptor.h"

/**
 * An open folder. No link is followed, neither at the end of its path nor in it, so that whatever
 * an index names, only what lies directly in a folder of that path is read and removed.
 */
class DeviceFolder {
public:
    /** Opens it; Error() tells whether that went well. */
    explicit DeviceFolder(const std::string& path);

    /** 0, or the error number of what went wrong. */
    [[nodiscard]] int Error() const { return error_; }

    /** The same for all paths of one folder. */
    using Identity = std::pair<dev_t, ino_t>;
    [[nodiscard]] Identity Id() const { return id_; }

    /** The names in it but "." and "..", sorted. Throws std::system_error. */
    [[nodiscard]] std::vector<std::string> Names() const;

    /** Whether nothing but regular files lies in it. Throws std::system_error. */
    [[nodiscard]] bool HoldsOnlyFiles() const;

    /**
     * Reads the beginning of a regular file.
     * @return nothing when there is no such file, it is not a regular one or cannot be read, with
     *         the reason in errno: ENOENT for none, EINVAL for one that is not regular
     */
    [[nodiscard]] std::optional<std::string> Read(const std::string& name, std::size_t most) const;

    /** The size of a file in bytes; nothing when that cannot be known, with the reason in errno. */
    [[nodiscard]] std::optional<std::uintmax_t> Size(const std::string& name) const;

    /** Removes a file; false when it stays, with the reason in errno. */
    [[nodiscard]] bool Remove(const std::string& name) const;

private:
    // Whether it is one; if not, errno is EINVAL, or tells why that cannot be known.
    [[nodiscard]] bool IsRegularFile(const std::string& name) const;

    CZELFileDescriptor directory_;
    int error_ = 0;
    Identity id_ = {};
};

/** Whether a path can be that of a device's folder: its last component names a directory. */
[[nodiscard]] bool IsFolderPath(const std::string& path);

#endif
