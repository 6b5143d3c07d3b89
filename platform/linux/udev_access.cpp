#include "udev_access.h"

#include <unistd.h>

#include <cerrno>
#include <new>
#include <system_error>

namespace zel::platform {
namespace {

[[noreturn]] void fail(int error) {
    throw std::system_error(error, std::generic_category(), "a device");
}

bool udev_is_running() {
    if (access("/run/udev/control", F_OK) == 0)
        return true;
    if (errno != ENOENT && errno != ENOTDIR)
        fail(errno);
    return false;
}

// What a look-up that set errno has found; it was 0 before.
std::string found_text(const char* text) {
    if (text == nullptr && errno != 0 && errno != ENOENT)
        fail(errno);
    return text != nullptr ? text : "";
}

}  // namespace

Udev open_udev() {
    Udev database(udev_new());
    if (!database)
        throw std::bad_alloc();
    return database;
}

UdevDevice found_device(udev_device* device) {
    const int error = errno;
    if (device == nullptr && error != ENODEV && error != ENOENT && error != ENXIO)
        fail(error);
    return UdevDevice(device);
}

std::string udev_property(udev_device* device, const char* name) {
    if (device == nullptr)
        return "";
    errno = 0;
    return found_text(udev_device_get_property_value(device, name));
}

std::string udev_attribute(udev_device* device, const char* name) {
    errno = 0;
    return found_text(udev_device_get_sysattr_value(device, name));
}

std::string udev_kind(udev_device* device) {
    errno = 0;
    return found_text(udev_device_get_devtype(device));
}

bool is_probed(udev_device* device) {
    errno = 0;
    const bool is_initialized = udev_device_get_is_initialized(device) > 0;
    if (!is_initialized && errno != 0 && errno != ENOENT)
        fail(errno);
    return is_initialized || !udev_is_running();
}

}  // namespace zel::platform
