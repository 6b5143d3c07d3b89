#include "picture_location.h"

#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;

StorageLocator::StorageLocator(const std::vector<Storage>& storages) {
    for (const Storage& storage : storages) {
        std::error_code error;
        if (!storage.id.empty() && !storage.mount.empty()) {
            const fs::path root = fs::canonical(storage.mount, error);
            if (!error) {
                storages_.emplace_back(storage, root);
            }
        }
    }
}

PictureLocation StorageLocator::Locate(const fs::path& picture) const {
    const Storage* best = nullptr;
    fs::path best_below;
    for (const auto& [storage, root] : storages_) {
        const fs::path below = picture.lexically_relative(root);
        const bool is_below = !below.empty() && *below.begin() != "..";
        if (is_below && (best == nullptr || storage.mount.size() > best->mount.size())) {
            best = &storage;
            best_below = below;
        }
    }
    if (best == nullptr) {
        throw std::runtime_error("on no storage that the platform knows; --device ID names one");
    }
    return {best->id, best->mount / best_below, best_below};
}

PictureLocation LocateOnDevice(const Options& options, const fs::path& picture) {
    if (options.camera) {
        return {options.device, "ptp://" + options.device + "/" + picture.filename().string(),
                picture};
    }
    return {options.device, "/opt/storage/usb/" + options.mount + picture.string(), picture};
}
