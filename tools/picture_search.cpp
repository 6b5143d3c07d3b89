#include "picture_search.h"

#include <fts.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <system_error>
#include <tuple>
#include <utility>

#include "picture.h"
#include "util/release.h"

namespace {

using Tree = CZELHandle<FTS, fts_close>;

struct Picture {
    std::string path;
    timespec modified;  // its folder
};

int CompareNames(const FTSENT** left, const FTSENT** right) {
    return std::strcmp((*left)->fts_name, (*right)->fts_name);
}

bool IsNewer(const Picture& left, const Picture& right) {
    return std::tie(left.modified.tv_sec, left.modified.tv_nsec) >
           std::tie(right.modified.tv_sec, right.modified.tv_nsec);
}

bool IsHidden(const FTSENT& entry) {
    return entry.fts_level > FTS_ROOTLEVEL && entry.fts_name[0] == '.';
}

bool IsSame(const FTSENT& folder, const struct stat& other) {
    return folder.fts_statp->st_dev == other.st_dev && folder.fts_statp->st_ino == other.st_ino;
}

std::string Message(int error) { return std::generic_category().message(error); }

std::vector<Picture> SearchFolder(std::string root, const struct stat& cache,
                                  std::vector<FoundPictures::Failure>& failures) {
    std::vector<Picture> pictures;
    char* const roots[] = {root.data(), nullptr};
    const Tree tree(
        fts_open(roots, FTS_PHYSICAL | FTS_COMFOLLOW | FTS_XDEV | FTS_NOCHDIR, CompareNames));
    errno = tree ? 0 : errno;
    while (FTSENT* entry = tree ? fts_read(tree.get()) : nullptr) {
        if (IsHidden(*entry) || (entry->fts_info == FTS_D && IsSame(*entry, cache))) {
            std::ignore = fts_set(tree.get(), entry, FTS_SKIP);  // cannot fail so called
        } else if (entry->fts_info == FTS_F && HasNameOfPicture(entry->fts_name)) {
            pictures.push_back({entry->fts_path, entry->fts_parent->fts_statp->st_mtim});
        } else if (entry->fts_info == FTS_DNR || entry->fts_info == FTS_ERR ||
                   entry->fts_info == FTS_NS) {
            failures.push_back({entry->fts_path, Message(entry->fts_errno)});
        }
        errno = 0;
    }
    if (errno != 0) {
        failures.push_back({root, Message(errno)});
    }
    return pictures;
}

}  // namespace

FoundPictures FindPictures(const std::string& path, const std::filesystem::path& cache,
                           FolderOrder order) {
    std::error_code error;
    if (!std::filesystem::is_directory(path, error)) {
        return {{path}, {}};
    }
    struct stat cache_status = {};
    if (stat(cache.c_str(), &cache_status) != 0) {
        cache_status = {};  // it is not there to be found
    }
    FoundPictures found;
    std::vector<Picture> pictures = SearchFolder(path, cache_status, found.failures);
    if (order == FolderOrder::kNewestFirst) {
        std::stable_sort(pictures.begin(), pictures.end(), IsNewer);
    }
    for (Picture& picture : pictures) {
        found.pictures.push_back(std::move(picture.path));
    }
    return found;
}
