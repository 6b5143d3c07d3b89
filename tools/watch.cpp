#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <tuple>

#include "cache_session.h"
#include "commands.h"
#include "index_lock.h"
#include "report.h"
#include "zel_platform_storage_events.h"
#include "zel_thumbnail_flash_cache_events.h"

namespace {

// Whoever reads the output through a pipe sees each line at once.
void PrintLine(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::ignore = std::fflush(stdout);  // main() reports a standard output that failed
}

void HandleEvent(void*, zel_storage_event_e event, _zel_storage_s*& storage) {
    const char* mount = zel_storage_get_mountpath(storage);
    const std::string path = mount != nullptr ? Printable(mount) : "";
    zel_thumbnail_flash_cache_storage_event(event, storage);
    PrintLine((event == ZEL_STORAGE_EVENT_REMOVED ? "removed " : "connected ") + path);
}

class Registration {
public:
    Registration() {
        if (zel_storage_register_event_cb(HandleEvent, nullptr) != 0) {
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
    const CacheSession session(options.index);
    const Registration registration;
    PrintLine("ready");
    int signal = 0;
    std::ignore = sigwait(&stop, &signal);  // cannot fail with this set
    return 0;
}
