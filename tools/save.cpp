#include <filesystem>
#include <set>
#include <stdexcept>
#include <system_error>
#include <tuple>

#include "cache_session.h"
#include "commands.h"
#include "index_lock.h"
#include "index_reader.h"
#include "picture.h"
#include "report.h"
#include "storages.h"
#include "table.h"

namespace fs = std::filesystem;

namespace {

struct Row {
    std::string picture;
    fs::path thumbnail;
    PixelSize size;
    const char* state;
};

struct Location {
    std::string device;
    std::string url;
};

fs::path MakeFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw std::runtime_error("the folder " + folder.string() + ": " + error.message());
    }
    return fs::canonical(folder);
}

// The picture's path below a directory, or an empty path.
fs::path Below(const fs::path& directory, const fs::path& picture) {
    std::error_code error;
    const fs::path root = fs::canonical(directory, error);
    const fs::path below = error ? fs::path() : picture.lexically_relative(root);
    return below.empty() || *below.begin() == ".." ? fs::path() : below;
}

// One run over all pictures.
class Saver {
public:
    explicit Saver(const Options& options)
        : options_(options),
          lock_(options.index),
          cache_(MakeFolder(options.cache)),
          session_(options.index) {
        if (options.device.empty()) {
            storages_ = ListStorages();
        }
        if (fs::exists(options.index)) {
            for (const CachedFolder& folder : ReadIndex(options.index)) {
                for (const CachedThumbnail& thumbnail : folder.thumbnails) {
                    recorded_.insert(thumbnail.file);
                }
            }
        }
    }

    Row Save(const std::string& picture) {
        std::error_code error;
        const fs::path path = fs::canonical(picture, error);
        if (error) {
            throw std::runtime_error(error.message());
        }
        if (!fs::is_regular_file(path)) {
            throw std::runtime_error("not a regular file");
        }
        const Location location = Locate(picture, path);
        const fs::path thumbnail = TakeName(cache_ / location.device, picture);
        if (fs::equivalent(thumbnail, path, error)) {
            throw std::runtime_error("it is the file that its thumbnail would replace");
        }
        const PixelSize size = ReadPictureSize(thumbnail);
        if (size.width > 0 && IsCurrent(thumbnail, path)) {
            return {picture, thumbnail, size, "kept"};
        }
        Pixels pixels = DecodePicture(path, options_.size);
        Store(thumbnail, location.url, pixels);
        return {picture, thumbnail, pixels.size, "saved"};
    }

private:
    [[nodiscard]] Location Locate(const fs::path& picture, const fs::path& canonical) const {
        const std::string name = picture.filename();
        if (options_.camera) {
            return {options_.device, "ptp://" + options_.device + "/" + name};
        }
        if (!options_.device.empty()) {
            return {options_.device, "/opt/storage/usb/" + options_.mount + "/" + name};
        }
        return LocateOnStorage(canonical);
    }

    [[nodiscard]] Location LocateOnStorage(const fs::path& picture) const {
        const Storage* best = nullptr;
        fs::path best_below;
        for (const Storage& storage : storages_) {
            if (storage.id.empty() || storage.mount.empty()) {
                continue;
            }
            const fs::path below = Below(storage.mount, picture);
            if (!below.empty() && (best == nullptr || storage.mount.size() > best->mount.size())) {
                best = &storage;
                best_below = below;
            }
        }
        if (best == nullptr) {
            throw std::runtime_error(
                "on no storage that the platform knows; --device ID names one");
        }
        return {best->id, best->mount / best_below};
    }

    // The picture's name without its extension; with it when another picture has taken that name.
    fs::path TakeName(const fs::path& folder, const fs::path& picture) {
        for (fs::path name : {picture.stem(), picture.filename()}) {
            fs::path thumbnail = folder / (name += ".jpg");
            if (thumbnail.string().find_first_of("\">") != std::string::npos) {
                throw std::runtime_error("the cache cannot hold a name with \" or >");
            }
            if (taken_.insert(thumbnail).second) {
                return thumbnail;
            }
        }
        throw std::runtime_error("other pictures of this run have taken its name in the cache");
    }

    [[nodiscard]] bool IsCurrent(const fs::path& thumbnail, const fs::path& picture) const {
        return recorded_.count(thumbnail) > 0 &&
               fs::last_write_time(thumbnail) >= fs::last_write_time(picture);
    }

    // The cache takes a request also when it cannot write the file, so that only a file that was
    // not there before proves that it was written.
    void Store(const fs::path& thumbnail, const std::string& url, Pixels& pixels) {
        std::ignore = MakeFolder(thumbnail.parent_path());  // it stays as it is named
        std::ignore = fs::remove(thumbnail);                // it need not be there
        if (!session_.Save(thumbnail, url, pixels) || !fs::exists(thumbnail)) {
            throw std::runtime_error("the cache did not save it (ZEL_LOG_LEVEL=info shows why)");
        }
    }

    const Options& options_;
    const IndexLock lock_;
    const fs::path cache_;
    const CacheSession session_;
    std::vector<Storage> storages_;
    std::set<fs::path> recorded_;
    std::set<fs::path> taken_;
};

// A thumbnail of this run may have been deleted to make room for a later one.
void Print(const std::vector<Row>& rows) {
    Table table({{"SOURCE"},
                 {"THUMBNAIL"},
                 {"PIXELS", Alignment::kRight},
                 {"BYTES", Alignment::kRight},
                 {"STATE"}});
    std::size_t thumbnails = 0;
    std::uintmax_t total = 0;
    for (const Row& row : rows) {
        std::error_code error;
        const std::uintmax_t bytes = fs::file_size(row.thumbnail, error);
        if (!error) {
            ++thumbnails;
            total += bytes;
        }
        table.AddRow({row.picture, row.thumbnail,
                      std::to_string(row.size.width) + "x" + std::to_string(row.size.height),
                      error ? "-" : std::to_string(bytes), error ? "evicted" : row.state});
    }
    table.Print();
    PrintTotal(thumbnails, total);
}

}  // namespace

int SavePictures(const Options& options) {
    const std::vector<std::string>& pictures = options.operands;
    std::vector<Row> rows;
    {
        Saver saver(options);
        for (std::size_t i = 0; i < pictures.size(); ++i) {
            ShowProgress(std::to_string(i + 1) + "/" + std::to_string(pictures.size()) + " " +
                         pictures[i]);
            try {
                rows.push_back(saver.Save(pictures[i]));
            } catch (const std::exception& error) {
                ReportFailure(pictures[i], error.what());
            }
        }
        ShowProgress("");
    }
    Print(rows);
    return rows.size() == pictures.size() ? 0 : 1;
}
