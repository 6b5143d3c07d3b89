#include "cameras.h"

#include <cerrno>
#include <new>
#include <stdexcept>

#include "udev_access.h"

namespace zel::platform {
namespace {

using UdevEnumeration = CZELHandle<udev_enumerate, udev_enumerate_unref>;

// What has a PTP interface (class 6, subclass 1, protocol 1) or, for cameras that show another one,
// what the rules of the photo tools know as a camera.
bool is_camera(udev_device* device) {
    return udev_property(device, "ID_USB_INTERFACES").find(":060101:") != std::string::npos ||
           udev_property(device, "ID_GPHOTO2") == "1";
}

std::string serial_number_of(udev_device* camera) {
    std::string serial_number = udev_property(camera, "ID_SERIAL_SHORT");
    return serial_number.empty() ? udev_attribute(camera, "serial") : serial_number;
}

}  // namespace

// Every device is looked at here: an enumeration that selects by properties passes over a device
// whose properties it fails to read.
std::vector<Camera> list_cameras() {
    const Udev database = open_udev();
    const UdevEnumeration devices(udev_enumerate_new(database.get()));
    if (!devices)
        throw std::bad_alloc();
    if (udev_enumerate_add_match_subsystem(devices.get(), "usb") < 0 ||
        udev_enumerate_scan_devices(devices.get()) < 0)
        throw std::runtime_error("the USB devices cannot be listed");
    errno = 0;
    udev_list_entry* const first = udev_enumerate_get_list_entry(devices.get());
    if (first == nullptr && errno != 0 && errno != ENODATA)
        throw std::runtime_error("the list of the USB devices cannot be made");
    std::vector<Camera> cameras;
    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, first) {
        const UdevDevice device = found_device(
            udev_device_new_from_syspath(database.get(), udev_list_entry_get_name(entry)));
        if (!device || udev_kind(device.get()) != "usb_device")
            continue;
        if (!is_probed(device.get()))
            cameras.push_back({"", false});
        else if (is_camera(device.get()))
            cameras.push_back({serial_number_of(device.get()), true});
    }
    return cameras;
}

}  // namespace zel::platform
