#include <glib.h>

#include <cstdio>
#include <memory>

#include "commands.h"
#include "index_reader.h"
#include "report.h"
#include "util/release.h"

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
        Table table = {{"THUMBNAIL", "BYTES"}};
        for (const CachedThumbnail& thumbnail : folder.thumbnails) {
            table.push_back({thumbnail.file, std::to_string(thumbnail.bytes)});
        }
        std::printf("%s %s in %s\n", folder.kind, Printable(folder.id).c_str(),
                    Printable(folder.path).c_str());
        PrintTable(table);
        PrintTotal(folder.thumbnails.size(), Bytes(folder));
        std::printf("\n");
    }
}

// A text in its quotes; what is not UTF-8 becomes U+FFFD.
std::string ToJson(const std::string& text) {
    const CZELHandle<char, g_free> valid(
        g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
    std::string json = "\"";
    for (const char* c = valid.get(); *c != '\0'; ++c) {
        if (static_cast<unsigned char>(*c) < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(*c));
            json += escape;
            continue;
        }
        if (*c == '"' || *c == '\\') {
            json += '\\';
        }
        json += *c;
    }
    return json + '"';
}

std::string ToJson(const CachedFolder& folder) {
    std::string json = "{\"id\":" + ToJson(folder.id) + ",\"kind\":\"" + folder.kind +
                       "\",\"path\":" + ToJson(folder.path) + ",\"thumbnails\":[";
    const char* separator = "";
    for (const CachedThumbnail& thumbnail : folder.thumbnails) {
        json += separator;
        json += "{\"file\":" + ToJson(thumbnail.file) +
                ",\"bytes\":" + std::to_string(thumbnail.bytes) + "}";
        separator = ",";
    }
    return json + "],\"bytes\":" + std::to_string(Bytes(folder)) + "}";
}

void PrintJson(const std::vector<CachedFolder>& folders, std::size_t thumbnails,
               std::uintmax_t bytes) {
    std::printf("{\"devices\":[");
    const char* separator = "\n";
    for (const CachedFolder& folder : folders) {
        std::printf("%s%s", separator, ToJson(folder).c_str());
        separator = ",\n";
    }
    std::printf("],\n\"thumbnails\":%zu,\"bytes\":%ju,\"ceiling\":%ju}\n", thumbnails, bytes,
                kCacheCeiling);
}

}  // namespace

int PrintIndex(const Options& options) {
    const std::vector<CachedFolder> folders = ReadIndex(options.operands.front());
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
