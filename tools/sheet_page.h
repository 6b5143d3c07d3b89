/**
 * @file
 * The web page that shows a cache.
 */
#ifndef ZEL_TOOLS_SHEET_PAGE_H
#define ZEL_TOOLS_SHEET_PAGE_H

#include <cstdint>
#include <string>
#include <vector>

#include "picture.h"

/** One thumbnail on the page. Texts are any bytes, but for the address. */
struct SheetImage {
    std::string file;     /**< full path */
    std::uintmax_t bytes; /**< as recorded */
    std::string source;   /**< percent-encoded address of the image, empty when there is none */
    PixelSize size;       /**< of the image that is shown */
    std::string trouble;  /**< why there is none, in a word or two */
};

/** The thumbnails of one device. */
struct SheetDevice {
    std::string kind;
    std::string id;
    std::string path;
    std::uintmax_t bytes; /**< of all together */
    std::vector<SheetImage> images;
};

/** The page, complete in itself but for the images that are not embedded. */
[[nodiscard]] std::string RenderSheet(const std::string& index,
                                      const std::vector<SheetDevice>& devices);

#endif
