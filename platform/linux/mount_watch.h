/**
 * @file
 * Notification of changes of the mount table.
 */
#ifndef ZEL_PLATFORM_LINUX_MOUNT_WATCH_H
#define ZEL_PLATFORM_LINUX_MOUNT_WATCH_H

#include <memory>

namespace zel::platform {

/** Watches the mount table: the kernel's, or the file that stands in for it. */
class MountWatch {
public:
    /**
     * Starts a watch; every change from now on is notified.
     * @throw std::system_error when the table cannot be watched
     * @throw std::bad_alloc
     */
    static std::unique_ptr<MountWatch> start();

    virtual ~MountWatch() = default;

    /** The file descriptor that becomes readable when there is a notification. */
    [[nodiscard]] virtual int descriptor() const = 0;

    /** Takes all notifications that wait. @return whether one of them says that the table changed
     */
    [[nodiscard]] virtual bool take_notifications() = 0;
};

}  // namespace zel::platform

#endif
