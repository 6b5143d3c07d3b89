#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "commands.h"
#include "examination.h"
#include "index_lock.h"
#include "report.h"

namespace {

enum Status { kSound = 0, kMended = 1, kNotMended = 4 };

void PrintLine(const std::string& line) { std::printf("%s\n", Printable(line).c_str()); }

void PrintLines(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        PrintLine(line);
    }
}

void PrintSound(const std::string& index, const Examination& examination) {
    PrintLine(index + ": sound, " + CountText(examination.Thumbnails(), "thumbnail") + ", " +
              SizeText(examination.Bytes()));
}

// What stays is left to the next look at the cache to tell.
void RemoveStrays(const std::vector<StrayImage>& strays) {
    for (const StrayImage& stray : strays) {
        const DeviceFolder folder(stray.folder);
        const std::string path = stray.folder + "/" + stray.name;
        if (folder.Error() == 0 && folder.Id() == stray.id && folder.Remove(stray.name)) {
            PrintLine("removed " + path);
        } else {
            ReportFailure(
                path, "it cannot be removed: " + std::generic_category().message(
                                                     folder.Error() != 0 ? folder.Error() : errno));
        }
    }
}

int ReportRepair(const std::string& index, std::size_t findings, const Examination& after) {
    if (after.IsSound()) {
        PrintLine(index + ": " + CountText(findings, "finding") + ", all mended");
        PrintSound(index, after);
        return kMended;
    }
    PrintLine(index + ": not mended:");
    PrintLines(after.Findings());
    return kNotMended;
}

// The index comes first: whenever the process is killed, what is left to do is found again. What
// the index on the device does not name may go.
int Repair(const std::string& index, const IndexLock& lock, Examination& examination) {
    if (examination.NeedsRewrite()) {
        const bool is_rewritten = examination.RewriteIndex() && lock.SyncDirectory();
        const Examination rewritten(index);
        if (!is_rewritten || rewritten.NeedsRewrite()) {
            throw std::runtime_error("the index " + index +
                                     " cannot be rewritten (ZEL_LOG_LEVEL=info shows why)");
        }
        PrintLine("rewrote " + index + " with the records of " +
                  CountText(rewritten.Thumbnails(), "thumbnail"));
        RemoveStrays(rewritten.Strays());
    } else {
        RemoveStrays(examination.Strays());
    }
    return ReportRepair(index, examination.Findings().size(), Examination(index));
}

int Mend(const std::string& index) {
    const IndexLock lock(index);
    Examination examination(index);
    PrintLines(examination.Findings());
    PrintLines(examination.Notes());
    if (examination.IsSound()) {
        PrintSound(index, examination);
        return kSound;
    }
    return Repair(index, lock, examination);
}

int Look(const std::string& index) {
    const std::string user = DescribeIndexUser(index);
    const Examination examination(index);
    PrintLines(examination.Findings());
    PrintLines(examination.Notes());
    if (!user.empty()) {
        ReportFailure(index, "in use by " + user + ", so that what was found may be of a moment");
    }
    if (examination.IsSound()) {
        PrintSound(index, examination);
        return kSound;
    }
    PrintLine(index + ": " + CountText(examination.Findings().size(), "finding") +
              "; --repair mends what can be mended");
    return kNotMended;
}

}  // namespace

int CheckIndex(const Options& options) {
    return options.repair ? Mend(options.index) : Look(options.index);
}
