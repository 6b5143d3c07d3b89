/**
 * @file
 * JPEG encoding into an image file, with the errors of the JPEG library as results.
 */
#ifndef ZEL_JPEG_ENCODER_H
#define ZEL_JPEG_ENCODER_H

#include <array>

#include "image_file.h"

/** The largest width or height of a JPEG picture. */
constexpr int maxJpegSide = 65500;

/** A pixel is blue, green, red, and a byte that is ignored. */
constexpr int bytesPerPixel = 4;

/** Why a picture could not be encoded. */
using JpegError = std::array<char, 200>;

/**
 * Encodes and writes a picture with quality 100.
 * @param file    is open, and nothing waits in its buffer
 * @param buffer  xsize * ysize pixels, only read; both sides are 1 to maxJpegSide
 * @param error   receives the reason of a failure
 * @return false when memory is short or the device does not take it all
 */
[[nodiscard]] bool EncodeJpeg(CZELImageFile& file, unsigned char* buffer, int xsize, int ysize,
                              JpegError& error);

#endif
