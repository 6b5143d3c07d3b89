#include "picture_search.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <system_error>
#include <tuple>
#include <utility>

#include "picture.h"

namespace {

namespace fs = std::filesystem;

struct Picture {
    std::string path;
    timespec modified;  // its folder
};

bool IsNewer(const Picture& left, const Picture& right) {
    return std::tie(left.modified.tv_sec, left.modified.tv_nsec) >
           std::tie(right.modified.tv_sec, right.modified.tv_nsec);
}

bool IsSame(const struct stat& folder, const struct stat& other) {
    return folder.st_dev == other.st_dev && folder.st_ino == other.st_ino;
}

// Of what is in a folder, but for what is hidden.
std::vector<std::string> ListNames(const std::string& folder, std::error_code& error) {
    std::vector<std::string> names;
    fs::directory_iterator entry(folder, error);
    while (!error && entry != fs::directory_iterator()) {
        std::string name = entry->path().filename();
        if (name[0] != '.') {
            names.push_back(std::move(name));
        }
        entry.increment(error);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Not by fts(3): on 32-bit machines that of the C library ends at large inode numbers.
class Search {
public:
    explicit Search(const struct stat& cache) : cache_(cache) {}

    void SearchFolder(const std::string& folder, const struct stat& status) {
        std::error_code error;
        for (const std::string& name : ListNames(folder, error)) {
            LookAt(folder + (folder.back() == '/' ? "" : "/") + name, status);
        }
        if (error) {
            failures_.push_back({folder, error.message()});
        }
    }

    std::vector<Picture> TakePictures() { return std::move(pictures_); }
    std::vector<FoundPictures::Failure> TakeFailures() { return std::move(failures_); }

private:
    void LookAt(const std::string& path, const struct stat& folder) {
        struct stat status = {};
        if (lstat(path.c_str(), &status) != 0) {
            failures_.push_back({path, std::generic_category().message(errno)});
        } else if (S_ISREG(status.st_mode) && HasNameOfPicture(path)) {
            pictures_.push_back({path, folder.st_mtim});
        } else if (S_ISDIR(status.st_mode) && status.st_dev == folder.st_dev &&
                   !IsSame(status, cache_)) {
            SearchFolder(path, status);
        }
    }

    const struct stat& cache_;
    std::vector<Picture> pictures_;
    std::vector<FoundPictures::Failure> failures_;
};

}  // namespace

FoundPictures FindPictures(const std::string& path, const std::filesystem::path& cache,
                           FolderOrder order) {
    std::error_code error;
    if (!fs::is_directory(path, error)) {
        return {{path}, {}};
    }
    struct stat cache_status = {};
    if (stat(cache.c_str(), &cache_status) != 0) {
        cache_status = {};  // it is not there to be found
    }
    Search search(cache_status);
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        return {{}, {{path, std::generic_category().message(errno)}}};
    }
    if (!IsSame(status, cache_status)) {
        search.SearchFolder(path, status);
    }
    std::vector<Picture> pictures = search.TakePictures();
    if (order == FolderOrder::kNewestFirst) {
        std::stable_sort(pictures.begin(), pictures.end(), IsNewer);
    }
    FoundPictures found = {{}, search.TakeFailures()};
    for (Picture& picture : pictures) {
        found.pictures.push_back(std::move(picture.path));
    }
    return found;
}
