#include <langinfo.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <tuple>

#include "commands.h"
#include "index_reader.h"
#include "json_output.h"
#include "report.h"
#include "table.h"

namespace {

using nlohmann::ordered_json;

// When the files of a device's thumbnails were written; 0 when none is there.
struct Times {
    std::time_t oldest = 0;
    std::time_t newest = 0;
};

Times ReadTimes(const CachedFolder& folder) {
    Times times;
    for (const CachedThumbnail& thumbnail : folder.thumbnails) {
        struct stat status = {};
        if (lstat(thumbnail.file.c_str(), &status) != 0) {
            continue;
        }
        times.oldest =
            times.oldest == 0 ? status.st_mtime : std::min(times.oldest, status.st_mtime);
        times.newest = std::max(times.newest, status.st_mtime);
    }
    return times;
}

struct Statistics {
    std::vector<std::uintmax_t> sizes;  // ascending
    std::uintmax_t bytes = 0;
    std::size_t records = 0;

    [[nodiscard]] std::uintmax_t Median() const {
        return sizes.empty() ? 0 : sizes[sizes.size() / 2];
    }
    [[nodiscard]] std::uintmax_t Largest() const { return sizes.empty() ? 0 : sizes.back(); }

    // How many more thumbnails of the median size there is room for.
    [[nodiscard]] std::uintmax_t Room() const {
        const std::uintmax_t free = kCacheCeiling - std::min(bytes, kCacheCeiling);
        const std::uintmax_t median = Median();
        return median == 0 ? 0 : free / median;
    }
};

Statistics Count(const std::vector<CachedFolder>& folders) {
    Statistics statistics;
    for (const CachedFolder& folder : folders) {
        for (const CachedThumbnail& thumbnail : folder.thumbnails) {
            statistics.sizes.push_back(thumbnail.bytes);
        }
        statistics.bytes += BytesIn(folder);
        statistics.records += folder.records + folder.thumbnails.size();
    }
    std::sort(statistics.sizes.begin(), statistics.sizes.end());
    return statistics;
}

std::string TimeText(std::time_t time, const char* format,
                     std::tm* (*convert)(const std::time_t*, std::tm*)) {
    std::tm parts = {};
    char text[32] = "-";
    if (time != 0 && convert(&time, &parts) != nullptr) {
        std::ignore = std::strftime(text, sizeof text, format, &parts);  // it fits
    }
    return text;
}

std::string LocalTime(std::time_t time) { return TimeText(time, "%Y-%m-%d %H:%M", localtime_r); }

ordered_json JsonTime(std::time_t time) {
    return time == 0 ? ordered_json()
                     : ordered_json(TimeText(time, "%Y-%m-%dT%H:%M:%SZ", gmtime_r));
}

std::string Bar(double percent) {
    constexpr int width = 40;
    const bool is_utf8 = std::string(nl_langinfo(CODESET)) == "UTF-8";
    const int filled = std::clamp(static_cast<int>(std::ceil(percent * width / 100)), 0, width);
    std::string bar;
    for (int i = 0; i < width; ++i) {
        const bool is_filled = i < filled;
        bar += is_utf8 ? (is_filled ? "\u2588" : "\u2591") : (is_filled ? "#" : ".");
    }
    return bar;
}

void PrintText(const std::vector<CachedFolder>& folders, const Statistics& statistics) {
    const double share = ShareOfCache(statistics.bytes);
    std::printf("thumbnails  %zu\n", statistics.sizes.size());
    std::printf("in all      %s of %s\n", SizeText(statistics.bytes).c_str(),
                SizeText(kCacheCeiling).c_str());
    std::printf("            %s %.2f %%\n", Bar(share).c_str(), share);
    std::printf("size        median %s, largest %s\n", SizeText(statistics.Median()).c_str(),
                SizeText(statistics.Largest()).c_str());
    std::printf("room        %ju more of the median size\n", statistics.Room());
    std::printf("index       %s\n\n", CountText(statistics.records, "record").c_str());
    Table table({{"KIND"},
                 {"ID"},
                 {"THUMBNAILS", Alignment::kRight},
                 {"SIZE", Alignment::kRight},
                 {"OLDEST"},
                 {"NEWEST"}});
    for (const CachedFolder& folder : folders) {
        const Times times = ReadTimes(folder);
        table.AddRow({folder.kind, folder.id, std::to_string(folder.thumbnails.size()),
                      SizeText(BytesIn(folder)), LocalTime(times.oldest), LocalTime(times.newest)});
    }
    table.Print();
}

void PrintAsJson(const std::vector<CachedFolder>& folders, const Statistics& statistics) {
    ordered_json devices = ordered_json::array();
    for (const CachedFolder& folder : folders) {
        const Times times = ReadTimes(folder);
        devices.push_back({{"kind", folder.kind},
                           {"id", folder.id},
                           {"thumbnails", folder.thumbnails.size()},
                           {"bytes", BytesIn(folder)},
                           {"oldest", JsonTime(times.oldest)},
                           {"newest", JsonTime(times.newest)}});
    }
    PrintJson({{"thumbnails", statistics.sizes.size()},
               {"bytes", statistics.bytes},
               {"ceiling", kCacheCeiling},
               {"records", statistics.records},
               {"median", statistics.Median()},
               {"largest", statistics.Largest()},
               {"room", statistics.Room()},
               {"devices", std::move(devices)}});
}

}  // namespace

int PrintStatistics(const Options& options) {
    const std::vector<CachedFolder> folders = ReadIndex(options.index);
    const Statistics statistics = Count(folders);
    if (options.json) {
        PrintAsJson(folders, statistics);
    } else {
        PrintText(folders, statistics);
    }
    return 0;
}
