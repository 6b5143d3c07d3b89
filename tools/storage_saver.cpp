#include "storage_saver.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <system_error>
#include <utility>

#include "picture_location.h"
#include "picture_search.h"
#include "report.h"

namespace fs = std::filesystem;

namespace {

// What the cache makes room for before it saves a thumbnail.
std::uintmax_t Estimate(PixelSize size) {
    return 54 + std::uintmax_t{4} * static_cast<unsigned>(size.width) *
                    static_cast<unsigned>(size.height);
}

std::uintmax_t FileSize(const fs::path& file) {
    std::error_code error;
    const std::uintmax_t bytes = fs::file_size(file, error);
    return error ? 0 : bytes;
}

}  // namespace

StorageSaver::StorageSaver(const Options& options, fs::path cache, const CacheSession& session)
    : options_(options), session_(session), cache_(std::move(cache)) {}

StorageSaver::~StorageSaver() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        is_ending_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void StorageSaver::Start() { thread_ = std::thread(&StorageSaver::Run, this); }

void StorageSaver::Connect(const std::string& mount) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        mounts_[mount].connected = ++connections_;
        has_changed_ = true;
    }
    changed_.notify_one();
}

void StorageSaver::Remove(const std::string& mount, const std::function<void()>& forget) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Mount& known = mounts_[mount];
    ++known.removals;
    known.saved = 0;
    known.is_done = known.is_cut_short = false;
    forget();
}

void StorageSaver::Run() {
    while (WaitForStorages()) {
        try {
            SaveAll();
        } catch (const std::exception& error) {
            ReportFailure("thumbnails of storages", error.what());
        }
    }
}

bool StorageSaver::WaitForStorages() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return has_changed_ || is_ending_; });
    has_changed_ = false;
    return !is_ending_;
}

void StorageSaver::SaveAll() {
    std::uintmax_t bytes = 0;
    for (const Attached& attached : ListUnfinished()) {
        Save(attached, bytes);
    }
}

// Removals are counted before the storages are listed: one that goes in between, and may be listed
// all the same, then has gone once more than its count says, and nothing of it is saved.
std::vector<StorageSaver::Attached> StorageSaver::ListUnfinished() {
    std::map<std::string, Mount> mounts;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        mounts = mounts_;
    }
    std::vector<Attached> unfinished;
    for (const Storage& storage : ListStorages()) {
        const Mount& mount = mounts[storage.mount];
        if (!storage.id.empty() && !storage.mount.empty() && !mount.is_done) {
            unfinished.push_back({storage, mount.connected, mount.removals});
        }
    }
    std::stable_sort(unfinished.begin(), unfinished.end(), [](const auto& left, const auto& right) {
        return left.connected > right.connected;
    });
    return unfinished;
}

void StorageSaver::Save(const Attached& attached, std::uintmax_t& bytes) {
    if (!MayBegin(attached)) {
        return;
    }
    const std::vector<std::string> pictures = ListPictures(attached);
    ThumbnailStore store = ReadStore();
    {
        const StorageLocator locator({attached.storage});
        const auto locate = [&](const fs::path& picture) { return locator.Locate(picture); };
        PictureStream stream(pictures, locate, store, options_.jobs, options_.size);
        while (SaveNext(attached, stream, store, bytes)) {
        }
    }  // pictures that are being decoded are waited for here, without the mutex
    const std::lock_guard<std::mutex> lock(mutex_);
    if (MayGoOn(attached)) {
        Mount& mount = mounts_[attached.storage.mount];
        mount.is_done = true;
        PrintLine("saved " + std::to_string(mount.saved) + " thumbnails of " +
                  Printable(attached.storage.mount) +
                  (mount.is_cut_short ? "; the cache is full" : ""));
    }
}

bool StorageSaver::MayBegin(const Attached& attached) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return MayGoOn(attached);
}

ThumbnailStore StorageSaver::ReadStore() {
    const std::lock_guard<std::mutex> lock(mutex_);  // no removal rewrites the index meanwhile
    return ThumbnailStore(session_, options_.index, cache_, options_.size);
}

std::vector<std::string> StorageSaver::ListPictures(const Attached& attached) {
    FoundPictures found = FindPictures(attached.storage.mount, cache_, FolderOrder::kNewestFirst);
    const std::lock_guard<std::mutex> lock(mutex_);
    if (MayGoOn(attached)) {
        for (const FoundPictures::Failure& failure : found.failures) {
            ReportFailure(failure.path, failure.reason);
        }
    }
    return std::move(found.pictures);
}

// False when there is no next picture, or it is of no use.
bool StorageSaver::SaveNext(const Attached& attached, PictureStream& pictures,
                            ThumbnailStore& store, std::uintmax_t& bytes) {
    std::optional<ReadyPicture> picture = pictures.Next();
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!picture || !MayGoOn(attached)) {
        return false;
    }
    if (!picture->failure.empty()) {
        ReportFailure(picture->path, picture->failure);
        return true;
    }
    if (!picture->pixels.bytes.empty()) {
        if (bytes + Estimate(picture->thumbnail.size) > kCacheCeiling) {
            mounts_[attached.storage.mount].is_cut_short = true;
            return false;
        }
        try {
            mounts_[attached.storage.mount].saved +=
                store.Save(picture->thumbnail, picture->pixels) ? 1 : 0;
        } catch (const std::exception& error) {
            ReportFailure(picture->path, error.what());
            return false;  // the next one would fare no better
        }
    }
    bytes += FileSize(picture->thumbnail.file);
    return true;
}

// Under the mutex.
bool StorageSaver::MayGoOn(const Attached& attached) {
    return !is_ending_ && !has_changed_ &&
           mounts_[attached.storage.mount].removals == attached.removals;
}
