#include <csignal>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>

#include "cache_session.h"
#include "commands.h"
#include "index_lock.h"
#include "report.h"
#include "storage_saver.h"
#include "thumbnail_store.h"
#include "zel_platform_storage_events.h"
#include "zel_thumbnail_flash_cache_events.h"

namespace {

// The saver is null when no thumbnails are made.
void HandleEvent(void* user_data, zel_storage_event_e event, _zel_storage_s*& storage) {
    auto* saver = static_cast<StorageSaver*>(user_data);
    const char* mount = zel_storage_get_mountpath(storage);
    const std::string path = mount != nullptr ? mount : "";
    const auto tell_cache = [&] { zel_thumbnail_flash_cache_storage_event(event, storage); };
    if (event != ZEL_STORAGE_EVENT_REMOVED) {
        tell_cache();
        PrintLine("connected " + Printable(path));
        if (saver != nullptr) {
            saver->Connect(path);
        }
        return;
    }
    if (saver != nullptr) {
        saver->Remove(path, tell_cache);
    } else {
        tell_cache();
    }
    PrintLine("removed " + Printable(path));
}

class Registration {
public:
    explicit Registration(StorageSaver* saver) {
        if (zel_storage_register_event_cb(HandleEvent, saver) != 0) {
            throw std::runtime_error("the storages cannot be watched");
        }
    }
    ~Registration() {
        std::ignore = zel_storage_unregister_event_cb();  // fails only when not registered
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
};

}  // namespace

int WatchStorages(const Options& options) {
    // Blocked before any thread starts, so that no thread but this one gets them.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    std::ignore = pthread_sigmask(SIG_BLOCK, &stop,
                                  nullptr);  // cannot fail with these arguments

    const IndexLock lock(options.index);
    const std::filesystem::path cache =
        options.cache.empty() ? std::filesystem::path() : MakeFolder(options.cache);
    const CacheSession session(options.index);
    const auto saver =
        cache.empty() ? nullptr : std::make_unique<StorageSaver>(options, cache, session);
    const Registration registration(saver.get());
    PrintLine("ready");
    if (saver) {
        saver->Start();
    }
    int signal = 0;
    std::ignore = sigwait(&stop, &signal);  // cannot fail with this set
    return 0;
}
