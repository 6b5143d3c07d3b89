#include "device_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "util/release.h"

namespace {

constexpr std::size_t kReadSize = std::size_t{64} * 1024;

[[noreturn]] void ThrowError() {
    throw std::system_error(errno, std::generic_category(), "a device's folder");
}

}  // namespace

DeviceFolder::DeviceFolder(const std::string& path)
    : directory_(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) {
    struct stat status = {};
    if (!directory_.IsOpen() || fstat(directory_.Get(), &status) != 0) {
        error_ = errno;
    }
    id_ = {status.st_dev, status.st_ino};
}

std::vector<std::string> DeviceFolder::Names() const {
    const int again = openat(directory_.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const CZELHandle<DIR, closedir> directory(again < 0 ? nullptr : fdopendir(again));
    if (directory == nullptr) {
        ThrowError();
    }
    std::vector<std::string> names;
    errno = 0;  // the end of the folder leaves it so, a failure does not
    while (const dirent* entry = readdir(directory.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(name);
        }
        errno = 0;
    }
    if (errno != 0) {
        ThrowError();
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool DeviceFolder::HoldsOnlyFiles() const {
    const std::vector<std::string> names = Names();
    return std::all_of(names.begin(), names.end(),
                       [this](const std::string& name) { return IsRegularFile(name); });
}

bool DeviceFolder::IsRegularFile(const std::string& name) const {
    struct stat status = {};
    if (fstatat(directory_.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return false;
    }
    errno = EINVAL;
    return S_ISREG(status.st_mode);
}

std::optional<std::string> DeviceFolder::Read(const std::string& name, std::size_t most) const {
    if (!IsRegularFile(name)) {
        return std::nullopt;
    }
    // Without O_NONBLOCK a named pipe that has just taken its place would stop the process here.
    CZELFileDescriptor file(
        openat(directory_.Get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.IsOpen()) {
        return std::nullopt;
    }
    std::string content;
    std::size_t count = 0;
    do {
        const std::size_t held = content.size();
        const std::size_t wanted = std::min(kReadSize, most - held);
        content.resize(held + wanted);
        if (!file.ReadUpTo(&content[held], wanted, count)) {
            return std::nullopt;
        }
        content.resize(held + count);
    } while (count == kReadSize && content.size() < most);
    return content;
}

std::optional<std::uintmax_t> DeviceFolder::Size(const std::string& name) const {
    struct stat status = {};
    if (fstatat(directory_.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return std::nullopt;
    }
    return static_cast<std::uintmax_t>(status.st_size);
}

bool DeviceFolder::Remove(const std::string& name) const {
    return unlinkat(directory_.Get(), name.c_str(), 0) == 0;
}

bool IsFolderPath(const std::string& path) {
    const std::string name = path.substr(path.rfind('/') + 1);
    return !name.empty() && name != "." && name != "..";
}
