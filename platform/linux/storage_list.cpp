#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

#include "storage.h"
#include "udev_access.h"
#include "usb_mounts.h"

namespace zel::platform {
namespace {

using UdevEnumeration = Handle<udev_enumerate, udev_enumerate_unref>;

std::string serial_number_of(udev_device* camera) {
    std::string serial_number = udev_property(camera, "ID_SERIAL_SHORT");
    const char* attribute = udev_device_get_sysattr_value(camera, "serial");
    if (serial_number.empty() && attribute != nullptr)
        serial_number = attribute;
    return serial_number;
}

// Selects what has a PTP interface (class 6, subclass 1, protocol 1) or, for cameras that show
// another one, what the rules of the photo tools know as a camera.
bool select_cameras(udev_enumerate* devices) {
    return udev_enumerate_add_match_subsystem(devices, "usb") >= 0 &&
           udev_enumerate_add_match_property(devices, "ID_USB_INTERFACES", "*:060101:*") >= 0 &&
           udev_enumerate_add_match_property(devices, "ID_GPHOTO2", "1") >= 0 &&
           udev_enumerate_scan_devices(devices) >= 0;
}

std::optional<StorageList> list_cameras() {
    const Udev database(udev_new());
    const UdevEnumeration devices(database ? udev_enumerate_new(database.get()) : nullptr);
    if (!devices || !select_cameras(devices.get()))
        return std::nullopt;
    StorageList cameras;
    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(devices.get())) {
        const char* path = udev_list_entry_get_name(entry);
        const UdevDevice device(udev_device_new_from_syspath(database.get(), path));
        if (!device && !is_unknown_device(errno))
            return std::nullopt;
        const char* kind = device ? udev_device_get_devtype(device.get()) : nullptr;
        if (kind != nullptr && std::strcmp(kind, "usb_device") == 0)
            cameras.push_back({"", serial_number_of(device.get()), 0});
    }
    return cameras;
}

std::optional<StorageList> list_storages(zel_storage_device_type type) {
    switch (type) {
        case ZEL_STORAGE_DEVICE_TYPE_USB:
            return list_usb_storages();
        case ZEL_STORAGE_DEVICE_TYPE_PTP:
            return list_cameras();
        default:
            return std::nullopt;
    }
}

}  // namespace

std::optional<StorageList> list_usb_storages() {
    auto mounts = list_usb_mounts();
    if (!mounts)
        return std::nullopt;
    StorageList storages;
    for (UsbMount& mount : *mounts)
        storages.push_back({std::move(mount.path), std::move(mount.serial_number), mount.device});
    return storages;
}

}  // namespace zel::platform

using zel::platform::StorageList;

int zel_get_usb_list(zel_storage_device_type type, void** list) try {
    if (list == nullptr)
        return -1;
    auto storages = zel::platform::list_storages(type);
    if (!storages)
        return -1;
    *list = new StorageList(std::move(*storages));
    return 0;
} catch (const std::exception&) {
    return -1;
}

int zel_storage_get_list_count(void* list) {
    return list != nullptr ? static_cast<int>(static_cast<StorageList*>(list)->size()) : 0;
}

_zel_storage_s* zel_storage_get_storage(int index, void* list) {
    if (index < 0 || index >= zel_storage_get_list_count(list))
        return nullptr;
    return &(*static_cast<StorageList*>(list))[index];
}

const char* zel_storage_get_mountpath(_zel_storage_s* storage) {
    return storage != nullptr ? storage->mount_path.c_str() : nullptr;
}

const char* zel_storage_get_serialnumber(_zel_storage_s* storage) {
    return storage != nullptr ? storage->serial_number.c_str() : nullptr;
}

int zel_storage_list_destory(void* list) {
    delete static_cast<StorageList*>(list);
    return 0;
}
