#include "report.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <tuple>

namespace {

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

void PrintError(const std::string& text) {
    std::ignore = std::fputs(text.c_str(), stderr);  // there is no other place to report it
}

}  // namespace

std::string Printable(std::string text, char replacement) {
    std::replace_if(text.begin(), text.end(), IsControl, replacement);
    return text;
}

std::string SizeText(std::uintmax_t bytes, SizeStyle style) {
    if (style == SizeStyle::kBytes) {
        return std::to_string(bytes);
    }
    static constexpr const char* units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (value >= 1023.5 && unit + 1 < std::size(units)) {
        value /= 1024;
        ++unit;
    }
    const int decimals = unit > 0 && value < 9.95 ? 1 : 0;
    char text[32];
    std::ignore = std::snprintf(text, sizeof text, "%.*f %s", decimals, value,
                                units[unit]);  // it fits
    return text;
}

std::string CountText(std::size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

double ShareOfCache(std::uintmax_t bytes) {
    return 100.0 * static_cast<double>(bytes) / static_cast<double>(kCacheCeiling);
}

void PrintTotal(std::size_t thumbnails, std::uintmax_t bytes, SizeStyle style) {
    const char* unit = style == SizeStyle::kBytes ? " bytes" : "";
    std::printf("%s, %s%s, %.2f %% of %s\n", CountText(thumbnails, "thumbnail").c_str(),
                SizeText(bytes, style).c_str(), unit, ShareOfCache(bytes),
                SizeText(kCacheCeiling, style).c_str());
}

void PrintLine(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::ignore = std::fflush(stdout);  // main() reports a standard output that failed
}

void ShowProgress(const std::string& text) {
    if (isatty(STDERR_FILENO) == 1) {
        // Not wrapped at the edge: a line can be erased, several cannot.
        const std::string line = text.empty() ? "" : "\033[?7l" + Printable(text) + "\033[?7h";
        PrintError("\r\033[K" + line);
    }
}

void ReportFailure(const std::string& what, const std::string& why) {
    ShowProgress("");
    PrintError("zel-thumbnail-cache: " + Printable(what + ": " + why) + "\n");
}
