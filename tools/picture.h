/**
 * @file
 * Decoding and scaling of pictures.
 */
#ifndef ZEL_TOOLS_PICTURE_H
#define ZEL_TOOLS_PICTURE_H

#include <string>
#include <vector>

/** A width and a height in pixels. */
struct PixelSize {
    int width;
    int height;
};

/** Pixels in rows from top to bottom without gaps: blue, green, red and one unused byte each. */
struct Pixels {
    PixelSize size;
    std::vector<unsigned char> bytes;
};

/**
 * Decodes a picture, turned the way its embedded orientation says, over a white ground, and scales
 * it down to fit into box x box pixels; a smaller picture keeps its size.
 * Any threads may decode at the same time; pictures of more than 64 megapixels take turns, as far
 * as they have to be decoded whole. Throws std::runtime_error with the reason when the file is not
 * a picture.
 */
[[nodiscard]] Pixels DecodePicture(const std::string& file, int box);

/** The size of the picture in a file as the file's header states it, 0 x 0 when it has none. */
[[nodiscard]] PixelSize ReadPictureSize(const std::string& file);

/** Whether the extension of a file name is one of the formats that can be decoded. */
[[nodiscard]] bool HasNameOfPicture(const std::string& name);

#endif
