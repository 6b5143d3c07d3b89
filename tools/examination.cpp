#include "examination.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "jpeg_structure.h"
#include "report.h"

namespace fs = std::filesystem;

namespace {

std::string LastComponent(const std::string& path) { return path.substr(path.rfind('/') + 1); }

bool IsRelative(const std::string& path) { return path.substr(0, 1) != "/"; }

std::string Message(int error) { return std::generic_category().message(error); }

std::string InBytes(std::uintmax_t bytes) { return CountText(bytes, "byte"); }

// The name of an image that lies directly in the folder of its record, or an empty text.
std::string NameInFolder(const ThumbnailRecord& record) {
    const std::string start = record.Path + "/";
    const bool is_below =
        IsFolderPath(record.Path) && record.URL.compare(0, start.size(), start) == 0;
    const std::string name = is_below ? record.URL.substr(start.size()) : "";
    return name.find('/') == name.npos && name != "." && name != ".." ? name : "";
}

// Nothing but a save that was interrupted leaves an empty file of such a name.
bool IsImage(const std::string& name, const std::string& beginning) {
    constexpr std::string_view extension = ".jpg";
    return BeginsAsJpeg(beginning) ||
           (beginning.empty() && name.size() > extension.size() &&
            name.compare(name.size() - extension.size(), extension.size(), extension) == 0);
}

// The beginning of an image, or all of a file that is none. What follows an image may be large.
std::optional<std::string> ReadToEndOfImage(const DeviceFolder& folder, const std::string& name) {
    std::size_t most = std::size_t{256} * 1024;
    std::optional<std::string> content = folder.Read(name, most);
    while (content && content->size() == most && !ReadJpegStructure(*content).is_complete) {
        most *= 4;
        content = folder.Read(name, most);
    }
    return content;
}

}  // namespace

Examination::Examination(const std::string& index) : file_(index) {
    ExamineText(index);
    ExamineFolders();
    ExamineThumbnails();
    AddMissingFolders();
    ExamineTotal();
    FindStrays();
}

void Examination::ExamineText(const std::string& index) {
    for (const IndexFault& fault : file_.Faults()) {
        FindInIndex(index, "at byte " + std::to_string(fault.offset) + ", " +
                               InBytes(fault.length) + ": " + fault.what);
    }
    const std::string unfinished = fs::canonical(index).string() + ".new";
    if (fs::exists(fs::symlink_status(unfinished))) {
        FindInIndex(unfinished, "a new index that was not finished");
    }
}

void Examination::ExamineFolders() {
    std::set<std::string> paths;
    for (const auto& folder : file_.Folders()) {
        const std::string& path = folder->Path;
        if (!IsFolderPath(path) || LastComponent(path) != folder->Sid) {
            FindInIndex(path, "a folder record of the id " + folder->Sid +
                                  ", which the path does not end in");
            continue;
        }
        if (!paths.insert(path).second) {
            FindInIndex(path, "a second record of the folder");
            continue;
        }
        const int error = Open(path).Error();
        if (error == ENOENT && !IsRelative(path)) {
            FindInIndex(path, "the record of a folder that is missing");
            continue;
        }
        ReportFolder(path, error);
        folders_.push_back(folder);
    }
}

// From the newest to the oldest, as the newest record of an image is the one that stays.
void Examination::ExamineThumbnails() {
    std::vector<Judgement> judgements;
    for (auto item = file_.Thumbnails().rbegin(); item != file_.Thumbnails().rend(); ++item) {
        judgements.push_back(Judge(**item));
    }
    auto judgement = judgements.rbegin();
    for (const auto& item : file_.Thumbnails()) {
        const auto& [verdict, trouble] = *judgement++;
        if (verdict != Verdict::kWrong) {
            thumbnails_.push_back(item);
        }
        if (!trouble.empty() && verdict == Verdict::kUnknown) {
            Find(item->URL, trouble);
        } else if (!trouble.empty()) {
            FindInIndex(item->URL, trouble);
        }
    }
}

Examination::Judgement Examination::Judge(ThumbnailRecord& record) {
    const std::string name = NameInFolder(record);
    if (name.empty()) {
        return {Verdict::kWrong,
                "the record of an image that is not in its folder, " + record.Path};
    }
    const DeviceFolder& folder = Open(record.Path);
    if (folder.Error() == ENOENT && !IsRelative(record.Path)) {
        return {Verdict::kWrong, "the image is missing"};
    }
    if (folder.Error() != 0) {
        ReportFolder(record.Path, folder.Error());
        return {Verdict::kUnknown, ""};
    }
    if (!named_images_.emplace(folder.Id(), name).second) {
        return {Verdict::kWrong, "a newer record names the same image"};
    }
    return JudgeImage(record, name);
}

Examination::Judgement Examination::JudgeImage(ThumbnailRecord& record, const std::string& name) {
    const std::optional<std::string> content = ReadToEndOfImage(*open_folder_, name);
    const std::optional<std::uintmax_t> size = content ? open_folder_->Size(name) : std::nullopt;
    if (!size) {
        const int error = errno;
        if (error == ENOENT) {
            return {Verdict::kWrong, "the image is missing"};
        }
        if (error == EINVAL) {
            return {Verdict::kWrong, "it is not a regular file"};
        }
        return {Verdict::kUnknown, "the image cannot be read: " + Message(error)};
    }
    if (content->empty()) {
        return {Verdict::kWrong, "the image is empty"};
    }
    if (!BeginsAsJpeg(*content)) {
        return {Verdict::kWrong, "it is not a JPEG image"};
    }
    if (!ReadJpegStructure(*content).is_complete) {
        return {Verdict::kWrong, "the image is cut short"};
    }
    const long recorded = std::exchange(record.Size, static_cast<long>(*size));
    if (recorded != record.Size) {
        return {Verdict::kRight, "the image has " + InBytes(*size) + ", its record says " +
                                     std::to_string(recorded)};
    }
    return {Verdict::kRight, ""};
}

// The record of a folder follows that of its first thumbnail, and may have been prevented. A start
// of the library may remove what has one, so that only what looks like a device's folder gets it.
void Examination::AddMissingFolders() {
    std::set<std::string> paths;
    for (const auto& folder : folders_) {
        paths.insert(folder->Path);
    }
    for (const auto& item : thumbnails_) {
        if (!paths.insert(item->Path).second || Open(item->Path).Error() != 0) {
            continue;
        }
        if (!open_folder_->HoldsOnlyFiles()) {
            Find(item->Path,
                 "the folder has thumbnails, and no record; with more than files in it, "
                 "it gets none");
            continue;
        }
        boost::intrusive_ptr<FolderRecord> folder(new FolderRecord);
        folder->Sid = LastComponent(item->Path);
        folder->Path = item->Path;
        folder->Devicetype = item->Devicetype;
        folders_.push_back(folder);
        FindInIndex(item->Path, "the folder has thumbnails, and no record");
    }
}

// Counted is what the images have, as their records are to say.
void Examination::ExamineTotal() {
    for (const auto& item : thumbnails_) {
        bytes_ += static_cast<std::uintmax_t>(item->Size);
    }
    if (bytes_ > kCacheCeiling) {
        FindInIndex("all thumbnails together",
                    InBytes(bytes_) + ", more than the ceiling of " + InBytes(kCacheCeiling));
    }
    while (bytes_ > kCacheCeiling) {
        bytes_ -= static_cast<std::uintmax_t>(thumbnails_.front()->Size);
        thumbnails_.pop_front();
    }
}

void Examination::FindStrays() {
    std::set<DeviceFolder::Identity> seen;
    for (const auto& folder : folders_) {
        const DeviceFolder& opened = Open(folder->Path);
        if (opened.Error() == 0 && seen.insert(opened.Id()).second) {
            for (const std::string& name : opened.Names()) {
                LookAt(folder->Path, name);
            }
        }
    }
}

void Examination::LookAt(const std::string& folder, const std::string& name) {
    if (named_images_.count({open_folder_->Id(), name}) > 0) {
        return;
    }
    const std::string path = folder + "/" + name;
    const std::optional<std::string> beginning = open_folder_->Read(name, 3);
    if (beginning && IsImage(name, *beginning)) {
        Find(path, "an image that no record names");
        strays_.push_back({folder, open_folder_->Id(), name});
    } else {
        notes_.push_back(path + ": no image of the cache");
    }
}

const DeviceFolder& Examination::Open(const std::string& path) {
    if (!open_folder_ || open_path_ != path) {
        open_folder_.emplace(path);
        open_path_ = path;
    }
    return *open_folder_;
}

void Examination::ReportFolder(const std::string& path, int error) {
    if (error == 0 || !reported_folders_.insert(path).second) {
        return;
    }
    std::string why = "the folder cannot be looked into: " + Message(error);
    if (error == ENOENT) {
        why += "; its path is relative to the working directory of the host";
    }
    Find(path, why);
}

void Examination::Find(const std::string& subject, const std::string& what) {
    findings_.push_back(subject + ": " + what);
}

void Examination::FindInIndex(const std::string& subject, const std::string& what) {
    Find(subject, what);
    needs_rewrite_ = true;
}
