#include <glib.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "commands.h"
#include "device_folder.h"
#include "index_reader.h"
#include "jpeg_structure.h"
#include "sheet_page.h"
#include "util/release.h"
#include "zel_thumbnail_flash_cache_internal/util/replacement_file.h"

namespace fs = std::filesystem;

namespace {

using Text = CZELHandle<char, g_free>;

std::string DataUrl(const std::string& content) {
    const Text text(
        g_base64_encode(reinterpret_cast<const guchar*>(content.data()), content.size()));
    return "data:image/jpeg;base64," + std::string(text.get());
}

// A relative address of a file, of any bytes.
std::string Link(const fs::path& file, const fs::path& from) {
    const std::string path = file.lexically_relative(from);
    const Text text(g_uri_escape_string(path.c_str(), "/", FALSE));
    return text.get();
}

// Collects what the page shows of each thumbnail.
class SheetMaker {
public:
    // The page will lie in that folder, which is canonical.
    SheetMaker(fs::path page_folder, bool embeds)
        : page_folder_(std::move(page_folder)), embeds_(embeds) {}

    SheetImage Make(const CachedThumbnail& thumbnail) {
        SheetImage image = {thumbnail.file, thumbnail.bytes, "", {0, 0}, ""};
        const fs::path file = thumbnail.file;
        Open(file.parent_path());
        const std::optional<std::string> content =
            folder_->Error() == 0 ? folder_->Read(file.filename(), std::string::npos)
                                  : std::nullopt;
        if (!content) {
            const int error = folder_->Error() != 0 ? folder_->Error() : errno;
            image.trouble = error == ENOENT ? "missing" : std::generic_category().message(error);
            return image;
        }
        image.size = ReadJpegStructure(*content).size;
        if (image.size.width == 0 || image.size.height == 0) {
            image.trouble = "no image";
        } else {
            image.source = embeds_ ? DataUrl(*content)
                                   : Link(canonical_folder_ / file.filename(), page_folder_);
        }
        return image;
    }

private:
    void Open(const fs::path& path) {
        if (folder_ && path == path_) {
            return;
        }
        path_ = path;
        folder_.emplace(path);
        if (folder_->Error() == 0) {
            canonical_folder_ = fs::canonical(path);
        }
    }

    const fs::path page_folder_;
    const bool embeds_;
    fs::path path_;
    fs::path canonical_folder_;
    std::optional<DeviceFolder> folder_;
};

std::vector<SheetDevice> CollectDevices(const std::vector<CachedFolder>& folders,
                                        SheetMaker& maker) {
    std::vector<SheetDevice> devices;
    for (const CachedFolder& folder : folders) {
        SheetDevice device = {folder.kind, folder.id, folder.path, BytesIn(folder), {}};
        for (const CachedThumbnail& thumbnail : folder.thumbnails) {
            device.images.push_back(maker.Make(thumbnail));
        }
        devices.push_back(std::move(device));
    }
    return devices;
}

// The folder that the page will lie in; the working directory for standard output.
fs::path FolderOf(const std::string& output) {
    return output.empty() ? fs::current_path() : fs::canonical(fs::absolute(output).parent_path());
}

// As a whole or not at all.
void WriteFile(const std::string& path, const std::string& text) {
    CZELReplacementFile file(path);
    bool is_written = file.Open();
    constexpr std::size_t piece = CZELReplacementFile::maxPiece;
    for (std::size_t at = 0; is_written && at < text.size(); at += piece) {
        is_written = file.Append(text.copy(file.Room(), piece, at));
    }
    if (!is_written || !file.Commit()) {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

}  // namespace

int MakeSheet(const Options& options) {
    const std::vector<CachedFolder> folders = ReadIndex(options.index);
    SheetMaker maker(FolderOf(options.output), options.embed);
    const std::string page = RenderSheet(options.index, CollectDevices(folders, maker));
    if (options.output.empty()) {
        return std::fwrite(page.data(), 1, page.size(), stdout) == page.size() ? 0 : 1;
    }
    WriteFile(options.output, page);
    return 0;
}
