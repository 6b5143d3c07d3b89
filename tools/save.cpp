#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "cache_session.h"
#include "commands.h"
#include "index_lock.h"
#include "picture_location.h"
#include "picture_search.h"
#include "picture_stream.h"
#include "report.h"
#include "save_report.h"
#include "stop_signals.h"
#include "storages.h"
#include "thumbnail_store.h"

namespace fs = std::filesystem;

namespace {

// The pictures that the operands name; what cannot be searched is reported.
std::vector<std::string> ListPictures(const Options& options, const fs::path& cache,
                                      SaveReport& report) {
    std::vector<std::string> pictures;
    for (const std::string& operand : options.operands) {
        FoundPictures found = FindPictures(operand, cache, FolderOrder::kByName);
        pictures.insert(pictures.end(), found.pictures.begin(), found.pictures.end());
        for (const FoundPictures::Failure& failure : found.failures) {
            report.AddFailure(failure.path, failure.reason);
        }
    }
    return pictures;
}

PictureStream::Locate MakeLocator(const Options& options) {
    if (!options.device.empty()) {
        return [&options](const fs::path& picture) { return LocateOnDevice(options, picture); };
    }
    return [locator = StorageLocator(ListStorages())](const fs::path& picture) {
        return locator.Locate(picture);
    };
}

void SaveOne(ReadyPicture& picture, ThumbnailStore& store, SaveReport& report) {
    if (!picture.failure.empty()) {
        report.AddFailure(picture.path, picture.failure);
        return;
    }
    try {
        const bool is_saved =
            !picture.pixels.bytes.empty() && store.Save(picture.thumbnail, picture.pixels);
        report.Add(picture.path, picture.thumbnail, is_saved);
    } catch (const std::exception& error) {
        report.AddFailure(picture.path, error.what());
    }
}

// The signal that ended it early, or 0.
int SaveAll(const std::vector<std::string>& pictures, const fs::path& cache, const Options& options,
            SaveReport& report) {
    const CacheSession session(options.index);
    ThumbnailStore store(session, options.index, cache, options.size);
    const StopSignals signals;
    PictureStream stream(pictures, MakeLocator(options), store, options.jobs, options.size);
    std::size_t done = 0;
    for (; done < pictures.size() && signals.Received() == 0; ++done) {
        report.ShowProgress(done, pictures);
        if (std::optional<ReadyPicture> picture = stream.Next()) {
            SaveOne(*picture, store, report);
        }
    }
    ShowProgress("");
    if (done < pictures.size()) {
        ReportFailure("stopped", std::to_string(done) + " of " + std::to_string(pictures.size()) +
                                     " pictures are done");
    }
    return done < pictures.size() ? signals.Received() : 0;
}

}  // namespace

int SavePictures(const Options& options) {
    const IndexLock lock(options.index);
    const fs::path cache = MakeFolder(options.cache);
    SaveReport report;
    const std::vector<std::string> pictures = ListPictures(options, cache, report);
    const int signal = SaveAll(pictures, cache, options, report);
    report.Print(options.verbose);
    if (signal != 0) {
        return 128 + signal;
    }
    return report.HasFailures() ? 1 : 0;
}
