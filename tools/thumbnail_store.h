/**
 * @file
 * The thumbnails in the cache, and new ones.
 */
#ifndef ZEL_TOOLS_THUMBNAIL_STORE_H
#define ZEL_TOOLS_THUMBNAIL_STORE_H

#include <filesystem>
#include <set>
#include <string>

#include "cache_session.h"
#include "picture.h"
#include "picture_location.h"

/** The thumbnail of a picture. */
struct Thumbnail {
    std::filesystem::path file; /**< where it is, or is to be saved */
    std::string url;            /**< the picture's location for the cache */
    PixelSize size;             /**< 0 x 0 when it has to be made */

    [[nodiscard]] bool IsMade() const { return size.width > 0; }
};

/** Makes the folder of a cache if it is missing, and tells its canonical path. Throws
 * std::runtime_error with the reason. */
[[nodiscard]] std::filesystem::path MakeFolder(const std::filesystem::path& folder);

/** Knows which thumbnails are in the cache, and saves new ones. Used by one thread at a time. */
class ThumbnailStore {
public:
    /**
     * Reads the index.
     * @param session  the cache, ready; outlives the store
     * @param index    path of its index
     * @param cache    the folder of the cache, a canonical path
     * @param box      width and height in pixels that the thumbnails fit into
     * Throws std::system_error when the index cannot be read.
     */
    ThumbnailStore(const CacheSession& session, const std::string& index,
                   std::filesystem::path cache, int box);

    /**
     * Looks for the thumbnail of a picture as it is now. A picture that has changed, and one whose
     * recorded thumbnail is damaged or gone, get a thumbnail with a name of its own: a second
     * record of one file would be evicted together with the file.
     * @param picture   canonical path of the picture
     * @param location  where it lies
     * Throws std::runtime_error with the reason when the picture cannot have a thumbnail.
     */
    [[nodiscard]] Thumbnail Find(const std::filesystem::path& picture,
                                 const PictureLocation& location) const;

    /**
     * Saves a thumbnail that has to be made.
     * @return false when it was there already, since the picture was given twice
     * Throws std::runtime_error with the reason when it is not saved.
     */
    [[nodiscard]] bool Save(const Thumbnail& thumbnail, Pixels& pixels);

private:
    const CacheSession& session_;
    const std::filesystem::path cache_;
    const int box_;
    std::set<std::filesystem::path> recorded_;
};

#endif
