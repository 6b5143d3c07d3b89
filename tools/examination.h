/**
 * @file
 * The comparison of an index with the folders that it names.
 */
#ifndef ZEL_TOOLS_EXAMINATION_H
#define ZEL_TOOLS_EXAMINATION_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "device_folder.h"
#include "index_file.h"

/** An image in a device's folder. */
struct StrayImage {
    std::string folder;        /**< path of the folder */
    DeviceFolder::Identity id; /**< of the folder */
    std::string name;
};

/**
 * What is not as it should be in a cache, each as a line that begins with the path that it is
 * about. Nothing is changed but by RewriteIndex().
 */
class Examination {
public:
    /** Looks at everything. Throws std::runtime_error when the index cannot be read. */
    explicit Examination(const std::string& index);

    /** What is wrong, in the order of the index. */
    [[nodiscard]] const std::vector<std::string>& Findings() const { return findings_; }
    [[nodiscard]] bool IsSound() const { return findings_.empty(); }

    /** What lies in the folders, is no image of the cache and harms nobody. */
    [[nodiscard]] const std::vector<std::string>& Notes() const { return notes_; }

    /** The images that no record names. */
    [[nodiscard]] const std::vector<StrayImage>& Strays() const { return strays_; }

    /** Whether another text of the index would be right. */
    [[nodiscard]] bool NeedsRewrite() const { return needs_rewrite_; }

    /** The thumbnails that are as they should be, or will be once the index is rewritten. */
    [[nodiscard]] std::size_t Thumbnails() const { return thumbnails_.size(); }
    [[nodiscard]] std::uintmax_t Bytes() const { return bytes_; }

    /**
     * Rewrites the index with what is right.
     * @return false when it cannot be; true does not prove that it was: examine it again
     */
    [[nodiscard]] bool RewriteIndex() { return file_.Rewrite(thumbnails_, folders_); }

private:
    enum class Verdict { kRight, kWrong, kUnknown };
    struct Judgement {
        Verdict verdict;
        std::string trouble; /**< empty when there is none */
    };

    void ExamineText(const std::string& index);
    void ExamineFolders();
    void ExamineThumbnails();
    Judgement Judge(ThumbnailRecord& record);
    Judgement JudgeImage(ThumbnailRecord& record, const std::string& name);
    void AddMissingFolders();
    void ExamineTotal();
    void FindStrays();
    void LookAt(const std::string& folder, const std::string& name);

    const DeviceFolder& Open(const std::string& path);
    void ReportFolder(const std::string& path, int error);
    void Find(const std::string& subject, const std::string& what);
    void FindInIndex(const std::string& subject, const std::string& what);

    IndexFile file_;
    bool needs_rewrite_ = false;
    std::uintmax_t bytes_ = 0;
    std::vector<std::string> findings_;
    std::vector<std::string> notes_;
    std::vector<StrayImage> strays_;
    // What a rewritten index holds.
    CZELThumbFlashCache::ItemList thumbnails_;
    CZELThumbFlashCache::FolderList folders_;
    // The folder that was looked at last, as most images lie in the same as the one before.
    std::string open_path_;
    std::optional<DeviceFolder> open_folder_;
    std::set<std::string> reported_folders_;
    std::set<std::pair<DeviceFolder::Identity, std::string>> named_images_;
};

#endif
