#include "udev_access.h"

#include <cerrno>

namespace zel::platform {

bool is_unknown_device(int error) { return error == ENODEV || error == ENOENT || error == ENXIO; }

std::string udev_property(udev_device* device, const char* name) {
    const char* value = device != nullptr ? udev_device_get_property_value(device, name) : nullptr;
    return value != nullptr ? value : "";
}

}  // namespace zel::platform
