/**
 * @file
 * The structure of JPEG files.
 */
#ifndef ZEL_TOOLS_JPEG_STRUCTURE_H
#define ZEL_TOOLS_JPEG_STRUCTURE_H

#include <string_view>

#include "picture.h"

/** Whether a file that begins like this is meant to be a JPEG file. */
[[nodiscard]] bool BeginsAsJpeg(std::string_view content);

/** What the segments of a JPEG file say, or of the part of one that was read. */
struct JpegStructure {
    PixelSize size = {0, 0};  /**< width and height; 0 x 0 when no segment says them */
    bool is_complete = false; /**< the end of the image was found; anything may follow it */
};

/**
 * Follows the segments of a JPEG file from its first byte to the marker at the end of the image.
 * The picture itself is not decoded.
 */
[[nodiscard]] JpegStructure ReadJpegStructure(std::string_view content);

#endif
