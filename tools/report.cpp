#include "report.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <tuple>

namespace {

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

void PrintError(const std::string& text) {
    std::ignore = std::fputs(text.c_str(), stderr);  // there is no other place to report it
}

}  // namespace

std::string Printable(std::string text) {
    std::replace_if(text.begin(), text.end(), IsControl, '?');
    return text;
}

void PrintTotal(std::size_t thumbnails, std::uintmax_t bytes) {
    std::printf("%zu thumbnail%s, %ju bytes, %.2f %% of %ju\n", thumbnails,
                thumbnails == 1 ? "" : "s", bytes,
                100.0 * static_cast<double>(bytes) / static_cast<double>(kCacheCeiling),
                kCacheCeiling);
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
