#include "usb_mounts.h"

#include <string_view>
#include <utility>

#include "mount_table.h"
#include "udev_access.h"

namespace zel::platform {
namespace {

constexpr std::string_view kUsbRoot = "/opt/storage/usb/";

bool is_below_usb_root(std::string_view path) {
    return path.size() > kUsbRoot.size() && path.substr(0, kUsbRoot.size()) == kUsbRoot;
}

std::string first_not_empty(std::string preferred, std::string otherwise) {
    return preferred.empty() ? std::move(otherwise) : std::move(preferred);
}

UsbMount describe(const std::string& path, dev_t number, udev* database) {
    const UdevDevice device = found_device(udev_device_new_from_devnum(database, 'b', number));
    const std::string label = path.substr(path.rfind('/') + 1);
    return {path, number, first_not_empty(udev_property(device.get(), "ID_FS_UUID"), label),
            first_not_empty(udev_property(device.get(), "ID_SERIAL_SHORT"),
                            udev_property(device.get(), "ID_SERIAL")),
            !device || is_probed(device.get())};
}

}  // namespace

std::vector<UsbMount> list_usb_mounts() {
    const Udev database = open_udev();
    std::vector<UsbMount> mounts;
    for (const auto& [path, number] : read_mount_table()) {
        if (is_below_usb_root(path))
            mounts.push_back(describe(path, number, database.get()));
    }
    return mounts;
}

}  // namespace zel::platform
