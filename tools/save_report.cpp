#include "save_report.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "report.h"
#include "table.h"

namespace {

constexpr std::size_t kMostRows = 20;

std::string PixelsText(PixelSize size) {
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

}  // namespace

void SaveReport::AddFailure(const std::string& picture, const std::string& why) {
    ++failures_;
    ReportFailure(picture, why);
}

void SaveReport::Add(const std::string& picture, const Thumbnail& thumbnail, bool is_saved) {
    rows_.push_back({picture, thumbnail, is_saved});
}

void SaveReport::ShowProgress(std::size_t done, const std::vector<std::string>& pictures) const {
    const std::string rate = std::to_string(std::lround(static_cast<double>(done) / Seconds()));
    ::ShowProgress(std::to_string(done + 1) + "/" + std::to_string(pictures.size()) + " (" + rate +
                   " per second) " + pictures[done]);
}

void SaveReport::Print(bool is_verbose) const {
    Table table({{"SOURCE"},
                 {"THUMBNAIL"},
                 {"PIXELS", Alignment::kRight},
                 {"BYTES", Alignment::kRight},
                 {"STATE"}});
    std::size_t saved = 0, kept = 0;
    std::uintmax_t total = 0;
    for (const Row& row : rows_) {
        std::error_code error;
        const std::uintmax_t bytes = std::filesystem::file_size(row.thumbnail.file, error);
        if (!error) {
            ++(row.is_saved ? saved : kept);
            total += bytes;
        }
        const char* state = row.is_saved ? "saved" : "kept";
        table.AddRow({row.picture, row.thumbnail.file, PixelsText(row.thumbnail.size),
                      error ? "-" : std::to_string(bytes), error ? "evicted" : state});
    }
    if (is_verbose || rows_.size() <= kMostRows) {
        table.Print();
    }
    std::printf("%zu saved, %zu kept, %zu failed, %zu evicted in %.1f seconds\n", saved, kept,
                failures_, rows_.size() - saved - kept, Seconds());
    PrintTotal(saved + kept, total);
}

double SaveReport::Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}
