#include "zel_platform_storage.h"

#include "snapshot.h"

using zel::platform::Snapshot, zel::platform::SnapshotPointer;

int zel_get_usb_list(zel_storage_device_type type, void** list) {
    const bool is_known_type =
        type == ZEL_STORAGE_DEVICE_TYPE_USB || type == ZEL_STORAGE_DEVICE_TYPE_PTP;
    if (list == nullptr || !is_known_type)
        return -1;
    const SnapshotPointer devices = zel::platform::attached_devices();
    if (!devices)
        return -1;
    intrusive_ptr_add_ref(devices.get());  // given back with the list
    *list = type == ZEL_STORAGE_DEVICE_TYPE_USB ? &devices->usb : &devices->cameras;
    return 0;
}

int zel_storage_get_list_count(void* list) {
    return list != nullptr
               ? static_cast<int>(static_cast<Snapshot::Listing*>(list)->storages.size())
               : 0;
}

_zel_storage_s* zel_storage_get_storage(int index, void* list) {
    if (index < 0 || index >= zel_storage_get_list_count(list))
        return nullptr;
    return &static_cast<Snapshot::Listing*>(list)->storages[static_cast<std::size_t>(index)];
}

const char* zel_storage_get_mountpath(_zel_storage_s* storage) {
    return storage != nullptr ? storage->mount_path.c_str() : nullptr;
}

const char* zel_storage_get_serialnumber(_zel_storage_s* storage) {
    return storage != nullptr ? storage->serial_number.c_str() : nullptr;
}

int zel_storage_list_destory(void* list) {
    if (list != nullptr)
        intrusive_ptr_release(static_cast<Snapshot::Listing*>(list)->owner);
    return 0;
}
