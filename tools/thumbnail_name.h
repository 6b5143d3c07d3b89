/**
 * @file
 * The names of thumbnails.
 */
#ifndef ZEL_TOOLS_THUMBNAIL_NAME_H
#define ZEL_TOOLS_THUMBNAIL_NAME_H

#include <filesystem>
#include <string>

/**
 * The name of a picture's thumbnail: STEM-HASH.jpg with the picture's name without its extension,
 * and ten hexadecimal digits of a checksum. It fits into a file name, and the index can hold it: a
 * long stem is cut at a character, and quotes, ">" and control characters become "_".
 * @param picture   the picture, of which only the name is used
 * @param identity  the text, of any bytes, that tells this thumbnail from the others of its device
 */
[[nodiscard]] std::string ThumbnailName(const std::filesystem::path& picture,
                                        const std::string& identity);

#endif
