/**
 * @file
 * The header of an uncompressed 32-bit BMP file.
 */
#ifndef ZEL_BMP_HEADER_H
#define ZEL_BMP_HEADER_H

#include <array>

using BmpHeader = std::array<unsigned char, 54>;

/** The bytes of the file of a picture, wrapped to 32 bits. */
[[nodiscard]] int BmpFileSize(int xsize, int ysize);

/** The header of the file of a picture. */
BmpHeader MakeBmpHeader(int xsize, int ysize);

#endif
