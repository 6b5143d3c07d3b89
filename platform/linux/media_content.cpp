#include "zel_platform_media_content.h"

#include <atomic>
#include <cstring>
#include <new>

#include "usb_mounts.h"

using zel::platform::UsbMount;

namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = -1;

std::atomic<int> connections{0};

// Every filter is this one: it selects all storages and has no state.
char every_storage;

int copy_out(const std::string& text, char** copy) {
    char* text_copy = strdup(text.c_str());
    if (text_copy == nullptr)
        return kFailure;
    *copy = text_copy;
    return kSuccess;
}

}  // namespace

int media_content_connect(void) {
    ++connections;
    return kSuccess;
}

int media_content_disconnect(void) {
    int count = connections;
    while (count > 0) {
        if (connections.compare_exchange_weak(count, count - 1))
            return kSuccess;
    }
    return kFailure;
}

int media_filter_create(media_filter_h* filter) {
    if (filter == nullptr)
        return kFailure;
    *filter = &every_storage;
    return kSuccess;
}

int media_filter_destroy(media_filter_h filter) {
    return filter == nullptr || filter == &every_storage ? kSuccess : kFailure;
}

int media_storage_foreach_storage_from_db(media_filter_h filter, media_storage_cb callback,
                                          void* user_data) try {
    if (filter != &every_storage || callback == nullptr || connections == 0)
        return kFailure;
    auto mounts = zel::platform::list_usb_mounts();
    if (!mounts)
        return kFailure;
    for (UsbMount& mount : *mounts) {
        if (!callback(&mount, user_data))
            break;
    }
    return kSuccess;
} catch (...) {
    return kFailure;
}

int media_storage_clone(media_storage_h* out, media_storage_h source) try {
    if (out == nullptr || source == nullptr)
        return kFailure;
    *out = new UsbMount(*static_cast<const UsbMount*>(source));
    return kSuccess;
} catch (const std::bad_alloc&) {
    return kFailure;
}

int media_storage_destroy(media_storage_h storage) {
    delete static_cast<UsbMount*>(storage);
    return kSuccess;
}

int media_storage_get_path(media_storage_h storage, char** path) {
    if (storage == nullptr || path == nullptr)
        return kFailure;
    return copy_out(static_cast<const UsbMount*>(storage)->path, path);
}

int media_storage_get_storage_id(media_storage_h storage, char** storage_id) {
    if (storage == nullptr || storage_id == nullptr)
        return kFailure;
    return copy_out(static_cast<const UsbMount*>(storage)->storage_id, storage_id);
}
