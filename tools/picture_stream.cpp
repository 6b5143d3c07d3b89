#include "picture_stream.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace fs = std::filesystem;

namespace {

// So many that small pictures are decoded behind a large one, if they take 32 MiB at most.
std::size_t MostWaiting(int jobs, int box) {
    const int bytes = 4 * box * box;
    return static_cast<std::size_t>(jobs + std::clamp((32 << 20) / bytes, 1, 16));
}

}  // namespace

PictureStream::PictureStream(std::vector<std::string> pictures, Locate locate,
                             const ThumbnailStore& store, int jobs, int box)
    : pictures_(std::move(pictures)),
      locate_(std::move(locate)),
      store_(store),
      most_waiting_(MostWaiting(jobs, box)),
      pool_(std::clamp(static_cast<int>(pictures_.size()), 1, jobs), box) {}

std::optional<ReadyPicture> PictureStream::Next() {
    while (begun_ < pictures_.size() && waiting_.size() < most_waiting_) {
        waiting_.push_back(Begin(pictures_[begun_++]));
    }
    if (waiting_.empty()) {
        return std::nullopt;
    }
    Entry entry = std::move(waiting_.front());
    waiting_.pop_front();
    if (entry.pixels.valid()) {
        try {
            entry.picture.pixels = entry.pixels.get();
            entry.picture.thumbnail.size = entry.picture.pixels.size;
        } catch (const std::exception& error) {
            entry.picture.failure = error.what();
        }
    }
    return std::move(entry.picture);
}

PictureStream::Entry PictureStream::Begin(const std::string& path) {
    Entry entry;
    entry.picture.path = path;
    try {
        const fs::path canonical = fs::canonical(path);
        entry.picture.thumbnail = store_.Find(canonical, locate_(canonical));
        if (!entry.picture.thumbnail.IsMade()) {
            entry.pixels = pool_.Decode(canonical);
        }
    } catch (const fs::filesystem_error& error) {
        entry.picture.failure = error.code().message();
    } catch (const std::exception& error) {
        entry.picture.failure = error.what();
    }
    return entry;
}
