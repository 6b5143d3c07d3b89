/**
 * @file
 * The PTP cameras attached now.
 */
#ifndef ZEL_PLATFORM_LINUX_CAMERAS_H
#define ZEL_PLATFORM_LINUX_CAMERAS_H

#include <string>
#include <vector>

namespace zel::platform {

/** A camera, or a device that may turn out to be one. */
struct Camera {
    std::string serial_number; /**< empty when it has none */
    bool is_probed;            /**< false while udev has still to look at the device */

    bool operator==(const Camera& other) const {
        return serial_number == other.serial_number && is_probed == other.is_probed;
    }
};

/**
 * Asks udev for the cameras.
 * @throw std::exception when a device cannot be read, or memory is short
 */
[[nodiscard]] std::vector<Camera> list_cameras();

}  // namespace zel::platform

#endif
