#include "thumbnail_name.h"

#include <glib.h>

#include <algorithm>
#include <climits>

#include "util/release.h"

namespace {

constexpr std::size_t kDigits = 10;

bool IsReplaced(char c) {
    return c == '"' || c == '>' || static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

bool ContinuesCharacter(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

}  // namespace

std::string ThumbnailName(const std::filesystem::path& picture, const std::string& identity) {
    const CZELHandle<char, g_free> checksum(g_compute_checksum_for_data(
        G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(identity.data()), identity.size()));
    const std::string end = "-" + std::string(checksum.get(), kDigits) + ".jpg";
    std::string stem = picture.stem();
    std::size_t length = NAME_MAX - end.size();
    if (stem.size() > length) {
        while (length > 0 && ContinuesCharacter(stem[length])) {
            --length;
        }
        stem.resize(length);
    }
    std::replace_if(stem.begin(), stem.end(), IsReplaced, '_');
    return stem + end;
}
