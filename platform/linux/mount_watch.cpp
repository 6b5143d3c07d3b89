#include "mount_watch.h"

#include <libmount/libmount.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>
#include <tuple>

#include "mount_table.h"
#include "util/file_descriptor.h"
#include "util/release.h"

namespace zel::platform {
namespace {

[[noreturn]] void fail(int error) {
    throw std::system_error(error, std::generic_category(), "mount table");
}

class KernelWatch final : public MountWatch {
public:
    KernelWatch() : monitor_(mnt_new_monitor()) {
        if (!monitor_)
            fail(ENOMEM);
        const int result = mnt_monitor_enable_kernel(monitor_.get(), true);
        if (result != 0 || descriptor() < 0)
            fail(result != 0 ? -result : -descriptor());
    }

    [[nodiscard]] int descriptor() const override { return mnt_monitor_get_fd(monitor_.get()); }

    bool take_notifications() override {
        std::ignore = mnt_monitor_event_cleanup(monitor_.get());  // the table is read in any case
        return true;
    }

private:
    const CZELHandle<libmnt_monitor, mnt_unref_monitor> monitor_;
};

// Watches the file's folder, so that a file renamed over it is seen as well as one rewritten.
class FileWatch : public MountWatch {
public:
    explicit FileWatch(const std::filesystem::path& file)
        : name_(file.filename()), inotify_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        const std::filesystem::path folder = std::filesystem::absolute(file).parent_path();
        if (!inotify_.IsOpen() ||
            inotify_add_watch(inotify_.Get(), folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO) == -1)
            fail(errno);
    }

    [[nodiscard]] int descriptor() const override { return inotify_.Get(); }

    bool take_notifications() override {
        alignas(inotify_event) char events[4096];
        bool changed = false;
        ssize_t size = 0;
        while ((size = read(inotify_.Get(), events, sizeof events)) > 0)
            changed |= names_the_file(events, events + size);
        return changed;
    }

private:
    bool names_the_file(const char* position, const char* end) const {
        bool found = false;
        while (position < end) {
            const auto* event = reinterpret_cast<const inotify_event*>(position);
            found |= (event->mask & IN_Q_OVERFLOW) != 0 || (event->len > 0 && name_ == event->name);
            position += sizeof(inotify_event) + event->len;
        }
        return found;
    }

    const std::string name_;
    const CZELFileDescriptor inotify_;
};

}  // namespace

std::unique_ptr<MountWatch> MountWatch::start() {
    if (const char* file = mount_table_replacement())
        return std::make_unique<FileWatch>(file);
    return std::make_unique<KernelWatch>();
}

}  // namespace zel::platform
