#include "zel_platform_storage_events.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <memory>
#include <system_error>
#include <thread>
#include <tuple>
#include <utility>

#include "guarded.h"
#include "mount_watch.h"
#include "storage.h"
#include "util/file_descriptor.h"

namespace zel::platform {
namespace {

bool contains(const StorageList& storages, const _zel_storage_s& wanted) {
    return std::any_of(storages.begin(), storages.end(), [&](const _zel_storage_s& storage) {
        return storage.mount_path == wanted.mount_path && storage.device == wanted.device;
    });
}

// The thread that reports, from construction to destruction.
class StorageEvents {
public:
    StorageEvents(zel_storage_event_cb callback, void* user_data)
        : callback_(callback), user_data_(user_data) {
        if (!ending_.IsOpen())
            throw std::system_error(errno, std::generic_category(), "eventfd");
        thread_ = std::thread(&StorageEvents::run, this);
    }

    ~StorageEvents() {
        std::ignore = eventfd_write(ending_.Get(), 1);  // fails only on a counter near its maximum
        thread_.join();
    }

    [[nodiscard]] bool runs_on_this_thread() const {
        return thread_.get_id() == std::this_thread::get_id();
    }

private:
    void run() noexcept {
        leave_signals_to_the_host();
        while (wait_for_notification()) {
            try {
                if (watch_->take_notifications())
                    report_changes();
            } catch (...) {
                // They cannot be listed: the next change is compared with the same old storages.
            }
        }
    }

    static void leave_signals_to_the_host() {
        sigset_t signals;
        sigfillset(&signals);
        std::ignore = pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // cannot fail so called
    }

    [[nodiscard]] bool wait_for_notification() const {
        pollfd sources[] = {{ending_.Get(), POLLIN, 0}, {watch_->descriptor(), POLLIN, 0}};
        int count = 0;
        do {
            count = poll(sources, 2, -1);
        } while (count == -1 && errno == EINTR);
        return count > 0 && sources[0].revents == 0;
    }

    void report_changes() {
        StorageList now = to_storages(list_usb_mounts());
        for (_zel_storage_s& storage : storages_) {
            if (!contains(now, storage))
                report(ZEL_STORAGE_EVENT_REMOVED, storage);
        }
        for (_zel_storage_s& storage : now) {
            if (!contains(storages_, storage))
                report(ZEL_STORAGE_EVENT_CONNECTED, storage);
        }
        storages_ = std::move(now);
    }

    void report(zel_storage_event_e event, _zel_storage_s& storage) noexcept {
        try {
            _zel_storage_s* reported = &storage;
            callback_(user_data_, event, reported);
        } catch (...) {
            // The host's failure to handle one event must not cost it the others.
        }
    }

    const zel_storage_event_cb callback_;
    void* const user_data_;
    CZELFileDescriptor ending_{eventfd(0, EFD_CLOEXEC)};

    // Used by the thread alone. The watch starts before the first list: no change falls between.
    const std::unique_ptr<MountWatch> watch_ = MountWatch::start();
    StorageList storages_ = to_storages(list_usb_mounts());

    std::thread thread_;
};

// Not destroyed at exit: a process that exits in a callback or in a forked child could not join.
Guarded<StorageEvents*> registered;

}  // namespace
}  // namespace zel::platform

using namespace zel::platform;

int zel_storage_register_event_cb(zel_storage_event_cb callback, void* user_data) try {
    auto held = registered.access();
    if (callback == nullptr || *held != nullptr)
        return -1;
    *held = new StorageEvents(callback, user_data);
    return 0;
} catch (const std::exception&) {
    return -1;
}

int zel_storage_unregister_event_cb(void) try {
    std::unique_ptr<StorageEvents> ended;  // joined after the lock is given back
    auto held = registered.access();
    if (*held == nullptr || (*held)->runs_on_this_thread())
        return -1;
    ended.reset(std::exchange(*held, nullptr));
    return 0;
} catch (const std::exception&) {
    return -1;
}
