#include "thumbnail_store.h"

#include <sys/stat.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <tuple>
#include <utility>

#include "index_reader.h"
#include "thumbnail_name.h"

namespace fs = std::filesystem;

namespace {

// What makes another thumbnail necessary when it changes. A path holds no zero byte.
std::string Identity(const std::string& path, const struct stat& picture, int box) {
    std::string identity = path;
    for (const auto number : {std::intmax_t{picture.st_size}, std::intmax_t{picture.st_mtim.tv_sec},
                              std::intmax_t{picture.st_mtim.tv_nsec}, std::intmax_t{box}}) {
        identity += '\0' + std::to_string(number);
    }
    return identity;
}

}  // namespace

fs::path MakeFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw std::runtime_error("the folder " + folder.string() + ": " + error.message());
    }
    return fs::canonical(folder);
}

ThumbnailStore::ThumbnailStore(const CacheSession& session, const std::string& index,
                               fs::path cache, int box)
    : session_(session), cache_(std::move(cache)), box_(box) {
    if (!fs::exists(index)) {
        return;
    }
    for (const CachedFolder& folder : ReadIndex(index)) {
        for (const CachedThumbnail& thumbnail : folder.thumbnails) {
            recorded_.insert(thumbnail.file);
        }
    }
}

Thumbnail ThumbnailStore::Find(const fs::path& picture, const PictureLocation& location) const {
    struct stat status = {};
    if (stat(picture.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category());
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::runtime_error("not a regular file");
    }
    const fs::path folder = cache_ / location.device;
    if (folder.string().find_first_of("\">") != std::string::npos) {
        throw std::runtime_error("the cache cannot hold a path with \" or >");
    }
    std::string identity = Identity(location.path, status, box_);
    for (;; identity += '\0') {
        const fs::path file = folder / ThumbnailName(picture, identity);
        std::error_code error;
        if (fs::equivalent(file, picture, error)) {
            throw std::runtime_error("it is the file that its thumbnail would replace");
        }
        const bool is_recorded = recorded_.count(file) > 0;
        const PixelSize size = is_recorded ? ReadPictureSize(file) : PixelSize{0, 0};
        if (!is_recorded || size.width > 0) {
            return {file, location.url, size};
        }
    }
}

// The cache takes a request also when it cannot write the file, so that only a file that was not
// there before proves that it was written.
bool ThumbnailStore::Save(const Thumbnail& thumbnail, Pixels& pixels) {
    if (recorded_.count(thumbnail.file) > 0) {
        return false;
    }
    std::ignore = MakeFolder(thumbnail.file.parent_path());  // it stays as it is named
    std::ignore = fs::remove(thumbnail.file);                // it need not be there
    if (!session_.Save(thumbnail.file, thumbnail.url, pixels) || !fs::exists(thumbnail.file)) {
        throw std::runtime_error("the cache did not save it (ZEL_LOG_LEVEL=info shows why)");
    }
    recorded_.insert(thumbnail.file);
    return true;
}
