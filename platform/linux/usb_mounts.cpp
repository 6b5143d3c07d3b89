#include "usb_mounts.h"

#include <libmount/libmount.h>

#include <cerrno>
#include <cstdlib>
#include <map>
#include <string_view>
#include <utility>

#include "handle.h"
#include "udev_access.h"

namespace zel::platform {
namespace {

constexpr std::string_view kUsbRoot = "/opt/storage/usb/";

using MountTable = Handle<libmnt_table, mnt_unref_table>;
using MountIterator = Handle<libmnt_iter, mnt_free_iter>;
// Of several mounts at one path the last of the table hides the others.
using DevicesByPath = std::map<std::string, dev_t>;

bool is_below_usb_root(std::string_view path) {
    return path.size() > kUsbRoot.size() && path.substr(0, kUsbRoot.size()) == kUsbRoot;
}

std::optional<DevicesByPath> read_mount_table() {
    const char* replacement = mount_table_replacement();
    const char* path = replacement != nullptr ? replacement : "/proc/self/mountinfo";
    const MountTable table(mnt_new_table());
    const MountIterator iterator(mnt_new_iter(MNT_ITER_FORWARD));
    if (!table || !iterator || mnt_table_parse_file(table.get(), path) != 0)
        return std::nullopt;
    DevicesByPath devices;
    libmnt_fs* mount = nullptr;
    while (mnt_table_next_fs(table.get(), iterator.get(), &mount) == 0) {
        const char* target = mnt_fs_get_target(mount);
        if (target != nullptr && is_below_usb_root(target))
            devices[target] = mnt_fs_get_devno(mount);
    }
    return devices;
}

std::string first_not_empty(std::string preferred, std::string otherwise) {
    return preferred.empty() ? std::move(otherwise) : std::move(preferred);
}

UsbMount describe(const std::string& path, dev_t number, udev_device* device) {
    const std::string label = path.substr(path.rfind('/') + 1);
    return {path, number, first_not_empty(udev_property(device, "ID_FS_UUID"), label),
            first_not_empty(udev_property(device, "ID_SERIAL_SHORT"),
                            udev_property(device, "ID_SERIAL"))};
}

}  // namespace

const char* mount_table_replacement() {
    const char* path = std::getenv("ZEL_MOUNTINFO");
    return path != nullptr && *path != '\0' ? path : nullptr;
}

std::optional<std::vector<UsbMount>> list_usb_mounts() {
    const auto devices = read_mount_table();
    const Udev database(udev_new());
    if (!devices || !database)
        return std::nullopt;
    std::vector<UsbMount> mounts;
    for (const auto& [path, number] : *devices) {
        const UdevDevice device(udev_device_new_from_devnum(database.get(), 'b', number));
        if (!device && !is_unknown_device(errno))
            return std::nullopt;
        mounts.push_back(describe(path, number, device.get()));
    }
    return mounts;
}

}  // namespace zel::platform
