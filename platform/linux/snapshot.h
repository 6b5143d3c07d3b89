/**
 * @file
 * The devices that were attached at one moment, as both services answer for them.
 */
#ifndef ZEL_PLATFORM_LINUX_SNAPSHOT_H
#define ZEL_PLATFORM_LINUX_SNAPSHOT_H

#include <atomic>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <list>
#include <string>
#include <vector>

#include "cameras.h"
#include "storage.h"
#include "usb_mounts.h"
#include "util/zel_intrusive_ptr_base.h"

namespace zel::platform {

/** What is attached now. @throw std::exception when it cannot be listed, or memory is short */
struct Devices {
    std::vector<UsbMount> mounts = list_usb_mounts();
    std::vector<Camera> cameras = list_cameras();

    bool operator==(const Devices& other) const {
        return mounts == other.mounts && cameras == other.cameras;
    }
};

/** A text of which one copy can be handed out also when memory is short. */
class CopiedText {
public:
    /** @throw std::bad_alloc */
    explicit CopiedText(const std::string& text);
    ~CopiedText();
    CopiedText(const CopiedText&) = delete;
    CopiedText& operator=(const CopiedText&) = delete;

    /** A copy to be released with free(); null when memory is short for the second time. */
    [[nodiscard]] char* copy() const;

private:
    const std::string text_;
    mutable std::atomic<char*> spare_;
};

/**
 * The USB storages and the cameras of one moment. What a service hands out is a part of a snapshot
 * and holds a reference to it, so that handing it out needs no memory and cannot fail.
 */
class Snapshot : public ZEL_IntrusivePtr_Base<Snapshot> {
public:
    /** A storage of the database. */
    struct Record {
        Record(const Snapshot* whole, const UsbMount& mount)
            : owner(whole), path(mount.path), id(mount.storage_id) {}
        const Snapshot* const owner;
        const CopiedText path;
        const CopiedText id;
    };

    /** The storages of one kind. */
    struct Listing {
        const Snapshot* owner;
        StorageList storages;
    };

    /** @throw std::bad_alloc */
    explicit Snapshot(Devices attached);

    const Devices devices;
    std::list<Record> database; /**< in the order of their paths */
    Listing usb;
    Listing cameras;
};

using SnapshotPointer = boost::intrusive_ptr<Snapshot>;

/**
 * Opens a connection: takes a snapshot, for which devices that udev has still to look at are waited
 * for, 3 seconds at most.
 * @return false, and a line of log, when anything about it fails: what then looked like an empty
 *         machine would cost the thumbnails of every device
 */
[[nodiscard]] bool connect_devices() noexcept;

/** Closes a connection; false when there is none. */
[[nodiscard]] bool disconnect_devices() noexcept;

/** Whether there is a connection. */
[[nodiscard]] bool is_connected() noexcept;

/**
 * The devices attached now; while there is a connection and they cannot be listed, with a line of
 * log, those of the last time.
 * @return null when there are neither
 */
[[nodiscard]] SnapshotPointer attached_devices() noexcept;

}  // namespace zel::platform

#endif
