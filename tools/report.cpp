#include "report.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <tuple>

namespace {

// Characters of a UTF-8 text: every byte that does not continue a character.
std::size_t Width(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

void PrintError(const std::string& text) {
    std::ignore = std::fputs(text.c_str(), stderr);  // there is no other place to report it
}

}  // namespace

std::string Printable(std::string text) {
    std::replace_if(text.begin(), text.end(), IsControl, '?');
    return text;
}

void PrintTable(const Table& table) {
    std::vector<std::size_t> widths;
    for (const auto& line : table) {
        widths.resize(std::max(widths.size(), line.size()));
        for (std::size_t column = 0; column < line.size(); ++column) {
            widths[column] = std::max(widths[column], Width(line[column]));
        }
    }
    for (const auto& line : table) {
        std::string text;
        for (std::size_t column = 0; column < line.size(); ++column) {
            text += Printable(line[column]);
            if (column + 1 < line.size()) {
                text.append(widths[column] - Width(line[column]) + 2, ' ');
            }
        }
        std::printf("%s\n", text.c_str());
    }
}

void PrintTotal(std::size_t thumbnails, std::uintmax_t bytes) {
    std::printf("%zu thumbnail%s, %ju bytes, %.2f %% of %ju\n", thumbnails,
                thumbnails == 1 ? "" : "s", bytes,
                100.0 * static_cast<double>(bytes) / static_cast<double>(kCacheCeiling),
                kCacheCeiling);
}

void ShowProgress(const std::string& text) {
    if (isatty(STDERR_FILENO) == 1) {
        PrintError("\r\033[K" + Printable(text));
    }
}

void ReportFailure(const std::string& what, const std::string& why) {
    ShowProgress("");
    PrintError("zel-thumbnail-cache: " + Printable(what + ": " + why) + "\n");
}
