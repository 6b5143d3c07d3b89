#include "zel_platform_media_content.h"

#include "snapshot.h"

using zel::platform::Snapshot, zel::platform::SnapshotPointer;

namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = -1;

// Every filter is this one: it selects all storages and has no state.
char every_storage;

int hand_out(char* text, char** out) {
    if (text == nullptr)
        return kFailure;
    *out = text;
    return kSuccess;
}

}  // namespace

int media_content_connect(void) { return zel::platform::connect_devices() ? kSuccess : kFailure; }

int media_content_disconnect(void) {
    return zel::platform::disconnect_devices() ? kSuccess : kFailure;
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
                                          void* user_data) {
    if (filter != &every_storage || callback == nullptr || !zel::platform::is_connected())
        return kFailure;
    const SnapshotPointer devices = zel::platform::attached_devices();
    if (!devices)
        return kFailure;
    for (Snapshot::Record& storage : devices->database) {
        if (!callback(&storage, user_data))
            break;
    }
    return kSuccess;
}

// A clone is one more reference to what never changes.
int media_storage_clone(media_storage_h* out, media_storage_h source) {
    if (out == nullptr || source == nullptr)
        return kFailure;
    intrusive_ptr_add_ref(static_cast<const Snapshot::Record*>(source)->owner);
    *out = source;
    return kSuccess;
}

int media_storage_destroy(media_storage_h storage) {
    if (storage != nullptr)
        intrusive_ptr_release(static_cast<const Snapshot::Record*>(storage)->owner);
    return kSuccess;
}

int media_storage_get_path(media_storage_h storage, char** path) {
    if (storage == nullptr || path == nullptr)
        return kFailure;
    return hand_out(static_cast<const Snapshot::Record*>(storage)->path.copy(), path);
}

int media_storage_get_storage_id(media_storage_h storage, char** storage_id) {
    if (storage == nullptr || storage_id == nullptr)
        return kFailure;
    return hand_out(static_cast<const Snapshot::Record*>(storage)->id.copy(), storage_id);
}
