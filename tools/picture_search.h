/**
 * @file
 * The search for pictures in folders.
 */
#ifndef ZEL_TOOLS_PICTURE_SEARCH_H
#define ZEL_TOOLS_PICTURE_SEARCH_H

#include <filesystem>
#include <string>
#include <vector>

/** The order of the folders that are searched. */
enum class FolderOrder {
    kByName,      /**< a folder's pictures and folders in the order of their bytes */
    kNewestFirst, /**< the folder that was modified last comes first, wherever it is */
};

/** What a search has found. */
struct FoundPictures {
    /** What could not be read. */
    struct Failure {
        std::string path;
        std::string reason;
    };

    std::vector<std::string> pictures; /**< below the path that was searched, as it was given */
    std::vector<Failure> failures;
};

/**
 * Finds the pictures in a folder and the folders below it. Taken are regular files whose names end
 * like those of pictures. Left out are what is hidden, symbolic links, file systems mounted below,
 * and the folder of the cache, whose thumbnails are pictures too.
 * @param path   a folder, or a link to one; any other path is taken for a picture
 * @param cache  the folder of the cache
 */
[[nodiscard]] FoundPictures FindPictures(const std::string& path,
                                         const std::filesystem::path& cache, FolderOrder order);

#endif
