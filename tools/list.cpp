#include <cstdio>
#include <utility>

#include "commands.h"
#include "index_reader.h"
#include "json_output.h"
#include "report.h"
#include "table.h"

namespace {

void PrintText(const std::vector<CachedFolder>& folders, SizeStyle style) {
    const char* heading = style == SizeStyle::kBytes ? "BYTES" : "SIZE";
    for (const CachedFolder& folder : folders) {
        Table table({{"THUMBNAIL"}, {heading, Alignment::kRight}});
        for (const CachedThumbnail& thumbnail : folder.thumbnails) {
            table.AddRow({thumbnail.file, SizeText(thumbnail.bytes, style)});
        }
        std::printf("%s %s in %s\n", folder.kind, Printable(folder.id).c_str(),
                    Printable(folder.path).c_str());
        table.Print();
        PrintTotal(folder.thumbnails.size(), BytesIn(folder), style);
        std::printf("\n");
    }
}

void PrintAsJson(const std::vector<CachedFolder>& folders, std::size_t thumbnails,
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
                           {"bytes", BytesIn(folder)}});
    }
    const ordered_json index = {{"devices", std::move(devices)},
                                {"thumbnails", thumbnails},
                                {"bytes", bytes},
                                {"ceiling", kCacheCeiling}};
    PrintJson(index);
}

}  // namespace

int PrintIndex(const Options& options) {
    const std::vector<CachedFolder> folders = ReadIndex(options.index);
    std::size_t thumbnails = 0;
    std::uintmax_t bytes = 0;
    for (const CachedFolder& folder : folders) {
        thumbnails += folder.thumbnails.size();
        bytes += BytesIn(folder);
    }
    if (options.json) {
        PrintAsJson(folders, thumbnails, bytes);
    } else {
        const SizeStyle style = options.bytes ? SizeStyle::kBytes : SizeStyle::kRounded;
        PrintText(folders, style);
        PrintTotal(thumbnails, bytes, style);
    }
    return 0;
}
