#include "storages.h"

#include <cstdlib>
#include <map>
#include <new>
#include <stdexcept>
#include <tuple>

#include "util/release.h"
#include "zel_platform_media_content.h"
#include "zel_platform_storage.h"

namespace {

struct DatabaseConnection {
    ~DatabaseConnection() { std::ignore = media_content_disconnect(); }  // closed either way
};

std::string Text(const char* text) { return text != nullptr ? text : ""; }

std::string ReadText(int (*get)(media_storage_h, char**), media_storage_h storage) {
    char* copy = nullptr;
    const bool is_read = get(storage, &copy) == 0;
    const CZELHandle<char, std::free> owner(copy);
    return is_read ? Text(copy) : "";
}

using IdsByPath = std::map<std::string, std::string>;

// Called by C code, which an exception must not pass through.
bool AddId(media_storage_h storage, void* ids) try {
    static_cast<IdsByPath*>(ids)->emplace(ReadText(media_storage_get_path, storage),
                                          ReadText(media_storage_get_storage_id, storage));
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

IdsByPath ReadIds() {
    if (media_content_connect() != 0) {
        throw std::runtime_error("the media-content database cannot be reached");
    }
    const DatabaseConnection connection;
    IdsByPath ids;
    media_filter_h every = nullptr;
    const bool is_created = media_filter_create(&every) == 0;
    const CZELHandle<void, media_filter_destroy> filter(every);
    if (!is_created || media_storage_foreach_storage_from_db(every, AddId, &ids) != 0) {
        throw std::runtime_error("the media-content database cannot be read");
    }
    return ids;
}

void AppendStorages(zel_storage_device_type type, const IdsByPath& ids, std::vector<Storage>& all) {
    void* handle = nullptr;
    const bool is_listed = zel_get_usb_list(type, &handle) == 0;
    const CZELHandle<void, zel_storage_list_destory> list(handle);
    const int count = is_listed ? zel_storage_get_list_count(handle) : 0;
    for (int i = 0; i < count; ++i) {
        _zel_storage_s* storage = zel_storage_get_storage(i, handle);
        if (storage == nullptr) {
            continue;
        }
        const std::string mount = Text(zel_storage_get_mountpath(storage));
        const std::string serial = Text(zel_storage_get_serialnumber(storage));
        if (type == ZEL_STORAGE_DEVICE_TYPE_PTP) {
            all.push_back({"camera", serial, mount, serial});
        } else {
            const auto id = ids.find(mount);
            all.push_back({"usb", id != ids.end() ? id->second : "", mount, serial});
        }
    }
}

}  // namespace

std::vector<Storage> ListStorages() {
    std::vector<Storage> all;
    const IdsByPath ids = ReadIds();
    AppendStorages(ZEL_STORAGE_DEVICE_TYPE_USB, ids, all);
    AppendStorages(ZEL_STORAGE_DEVICE_TYPE_PTP, ids, all);
    return all;
}
