#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

#include "commands.h"
#include "index_reader.h"
#include "report.h"
#include "table.h"

namespace {

std::uintmax_t Bytes(const CachedFolder& folder) {
    std::uintmax_t bytes = 0;
    for (const CachedThumbnail& thumbnail : folder.thumbnails) {
        bytes += thumbnail.bytes;
    }
    return bytes;
}

void PrintText(const std::vector<CachedFolder>& folders) {
    for (const CachedFolder& folder : folders) {
        Table table({{"THUMBNAIL"}, {"BYTES", Alignment::kRight}});
        for (const CachedThumbnail& thumbnail : folder.thumbnails) {
            table.AddRow({thumbnail.file, std::to_string(thumbnail.bytes)});
        }
        std::printf("%s %s in %s\n", folder.kind, Printable(folder.id).c_str(),
                    Printable(folder.path).c_str());
        table.Print();
        PrintTotal(folder.thumbnails.size(), Bytes(folder));
        std::printf("\n");
    }
}

// What is not UTF-8 becomes U+FFFD.
void PrintJson(const std::vector<CachedFolder>& folders, std::size_t thumbnails,
               std::uintmax_t bytes) {
    using nlohmann::ordered_json;
    ordered_json devices = ordered_json::array();
    for (const CachedFolder& folder : folders) {
        ordered_json files = ordered_json::array();
        for (const CachedThumbnail& thumbnail : folder.thumbnails) {
            files.push_back({{"file", thumbnail.file}, {"bytes", thumbnail.bytes}});
        }
        devices.push_back({{"id", folder.id},
                           {"kind", folder.kind},
                           {"path", folder.path},
                           {"thumbnails", std::move(files)},
                           {"bytes", Bytes(folder)}});
    }
    const ordered_json index = {{"devices", std::move(devices)},
                                {"thumbnails", thumbnails},
                                {"bytes", bytes},
                                {"ceiling", kCacheCeiling}};
    std::printf("%s\n", index.dump(2, ' ', false, ordered_json::error_handler_t::replace).c_str());
}

}  // namespace

int PrintIndex(const Options& options) {
    const std::vector<CachedFolder> folders = ReadIndex(options.index);
    std::size_t thumbnails = 0;
    std::uintmax_t bytes = 0;
    for (const CachedFolder& folder : folders) {
        thumbnails += folder.thumbnails.size();
        bytes += Bytes(folder);
    }
    if (options.json) {
        PrintJson(folders, thumbnails, bytes);
    } else {
        PrintText(folders);
        PrintTotal(thumbnails, bytes);
    }
    return 0;
}
