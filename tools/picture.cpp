#include "picture.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <mutex>
#include <set>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "util/release.h"

namespace {

using Pixbuf = CZELHandle<GdkPixbuf, g_object_unref>;

using FormatName = CZELHandle<char, g_free>;

constexpr std::int64_t kMostPixels = std::int64_t{256} << 20;
constexpr std::int64_t kMostPixelsAtOnce = std::int64_t{64} << 20;

void AppendExtensions(GdkPixbufFormat* format, std::set<std::string>& extensions) {
    const CZELHandle<char*, g_strfreev> own(gdk_pixbuf_format_get_extensions(format));
    for (char** extension = own.get(); *extension != nullptr; ++extension) {
        extensions.insert(*extension);
    }
}

// Leaves out the icon container, which tells the size of its pictures only once they are decoded,
// however large.
std::set<std::string> ChooseFormats() {
    std::set<std::string> extensions;
    const CZELHandle<GSList, g_slist_free> formats(gdk_pixbuf_get_formats());
    for (const GSList* entry = formats.get(); entry != nullptr; entry = entry->next) {
        auto* format = static_cast<GdkPixbufFormat*>(entry->data);
        const FormatName name(gdk_pixbuf_format_get_name(format));
        if (g_strcmp0(name.get(), "icns") == 0) {
            gdk_pixbuf_format_set_disabled(format, TRUE);
        } else {
            AppendExtensions(format, extensions);
        }
    }
    return extensions;
}

// The extensions of the formats. To be called before a file is read, by whichever thread is first.
const std::set<std::string>& ChosenExtensions() {
    static const std::set<std::string> extensions = ChooseFormats();
    return extensions;
}

// Only as much as a scaled-down picture needs is decoded of a JPEG file, and drawn of a scalable
// picture. Other formats gain nothing from that, and would pass off the part of a file that is cut
// short as the picture.
GdkPixbuf* Decode(const char* file, int box, GError** error) {
    std::ignore = ChosenExtensions();  // only the choice matters here
    PixelSize size = {0, 0};
    GdkPixbufFormat* format = gdk_pixbuf_get_file_info(file, &size.width, &size.height);
    const FormatName name(format != nullptr ? gdk_pixbuf_format_get_name(format) : nullptr);
    const bool is_scalable = format != nullptr && gdk_pixbuf_format_is_scalable(format) == TRUE;
    if (!is_scalable && std::int64_t{size.width} * size.height > kMostPixels) {
        throw std::runtime_error("it has " + std::to_string(size.width) + " x " +
                                 std::to_string(size.height) +
                                 " pixels, which is more than 256 megapixels");
    }
    const bool is_large = size.width > box || size.height > box;
    if (is_large && (is_scalable || g_strcmp0(name.get(), "jpeg") == 0)) {
        return gdk_pixbuf_new_from_file_at_scale(file, box, box, TRUE, error);
    }
    static std::mutex turn;
    std::unique_lock<std::mutex> lock(turn, std::defer_lock);
    if (std::int64_t{size.width} * size.height > kMostPixelsAtOnce) {
        lock.lock();  // it takes up to a gigabyte of memory
    }
    return gdk_pixbuf_new_from_file(file, error);
}

Pixbuf ScaleDown(Pixbuf pixbuf, int box) {
    const int width = gdk_pixbuf_get_width(pixbuf.get());
    const int height = gdk_pixbuf_get_height(pixbuf.get());
    const double scale = static_cast<double>(box) / std::max(width, height);
    if (scale >= 1) {
        return pixbuf;
    }
    const auto scaled = [scale](int side) {
        return std::max(1, static_cast<int>(std::lround(side * scale)));
    };
    return Pixbuf(
        gdk_pixbuf_scale_simple(pixbuf.get(), scaled(width), scaled(height), GDK_INTERP_BILINEAR));
}

Pixbuf Load(const std::string& file, int box) {
    GError* error = nullptr;
    Pixbuf pixbuf(Decode(file.c_str(), box, &error));
    const CZELHandle<GError, g_error_free> reason(error);
    if (pixbuf == nullptr) {
        throw std::runtime_error(reason != nullptr ? reason->message : "it cannot be decoded");
    }
    pixbuf.reset(gdk_pixbuf_apply_embedded_orientation(pixbuf.get()));
    if (pixbuf != nullptr) {
        pixbuf = ScaleDown(std::move(pixbuf), box);
    }
    if (pixbuf == nullptr) {
        throw std::runtime_error("memory is short");
    }
    return pixbuf;
}

unsigned char OverWhite(unsigned colour, unsigned alpha) {
    return static_cast<unsigned char>((colour * alpha + 255 * (255 - alpha) + 127) / 255);
}

}  // namespace

Pixels DecodePicture(const std::string& file, int box) {
    const Pixbuf pixbuf = Load(file, box);
    const int width = gdk_pixbuf_get_width(pixbuf.get());
    const int height = gdk_pixbuf_get_height(pixbuf.get());
    const int channels = gdk_pixbuf_get_n_channels(pixbuf.get());
    const size_t stride = static_cast<size_t>(gdk_pixbuf_get_rowstride(pixbuf.get()));
    const unsigned char* rows = gdk_pixbuf_read_pixels(pixbuf.get());

    Pixels pixels = {{width, height}, {}};
    pixels.bytes.reserve(size_t{4} * static_cast<size_t>(width) * static_cast<size_t>(height));
    for (int y = 0; y < height; ++y) {
        const unsigned char* rgb = rows + static_cast<size_t>(y) * stride;
        for (int x = 0; x < width; ++x, rgb += channels) {
            const unsigned alpha = channels == 4 ? rgb[3] : 255;
            for (const int colour : {2, 1, 0}) {
                pixels.bytes.push_back(OverWhite(rgb[colour], alpha));
            }
            pixels.bytes.push_back(0);
        }
    }
    return pixels;
}

PixelSize ReadPictureSize(const std::string& file) {
    std::ignore = ChosenExtensions();  // only the choice matters here
    PixelSize size = {0, 0};
    if (gdk_pixbuf_get_file_info(file.c_str(), &size.width, &size.height) == nullptr) {
        return {0, 0};
    }
    return size;
}

bool HasNameOfPicture(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string::npos) {
        return false;
    }
    const CZELHandle<char, g_free> extension(g_ascii_strdown(name.c_str() + dot + 1, -1));
    return ChosenExtensions().count(extension.get()) > 0;
}
