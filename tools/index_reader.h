/**
 * @file
 * Reading of an index by the library's own loader.
 */
#ifndef ZEL_TOOLS_INDEX_READER_H
#define ZEL_TOOLS_INDEX_READER_H

#include <cstdint>
#include <string>
#include <vector>

/** One recorded thumbnail. */
struct CachedThumbnail {
    std::string file;     /**< full path */
    std::uintmax_t bytes; /**< as recorded */
};

/** The folder of one device. */
struct CachedFolder {
    std::string id;   /**< id of the device */
    const char* kind; /**< "usb" or "camera" */
    std::string path;
    std::size_t records;                     /**< how many records the folder itself has */
    std::vector<CachedThumbnail> thumbnails; /**< oldest first */
};

/** The sum of the bytes of the thumbnails. */
[[nodiscard]] std::uintmax_t BytesIn(const CachedFolder& folder);

/** Throws std::system_error when the index is missing or cannot be read. */
void CheckIndexIsReadable(const std::string& index);

/**
 * Reads what an index holds, without changing it: the recorded folders in the order of the index,
 * then the folders of thumbnails that have no recorded folder.
 * Throws std::system_error when the file is missing or cannot be read.
 */
[[nodiscard]] std::vector<CachedFolder> ReadIndex(const std::string& index);

#endif
