#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <exception>
#include <string>
#include <string_view>
#include <tuple>

#include "file_descriptor.h"
#include "log.h"
#include "replacement_file.h"
#include "thumb_file_record.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

constexpr mode_t newFileMode = 0666;

enum class AppendResult { Appended, NotOpened, Short };

// Whether a process that was killed while it appended has left a part of a record at the end.
bool EndsWithTornRecord(const CZELFileDescriptor& file, off_t size) {
    char last = '\n';
    return size > 0 && pread(file.Get(), &last, 1, size - 1) == 1 && last != '\n';
}

// Appends a record, or nothing.
AppendResult AppendRecord(const std::string& path, std::string_view record) {
    CZELFileDescriptor file(
        open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, newFileMode));
    if (!file.IsOpen()) {
        return AppendResult::NotOpened;
    }
    struct stat before {};
    const bool bRegular = fstat(file.Get(), &before) == 0 && S_ISREG(before.st_mode);
    // The end of a record is put behind a torn one, which would swallow the new one otherwise.
    const bool bRepaired =
        !bRegular || !EndsWithTornRecord(file, before.st_size) || file.WriteAll(">\r\n");
    if (!bRepaired || !file.WriteAll(record)) {
        if (bRegular) {
            // A torn record that stays after all is skipped by the loader.
            std::ignore = ftruncate(file.Get(), before.st_size);
        }
        return AppendResult::Short;
    }
    return file.Close() ? AppendResult::Appended : AppendResult::Short;
}

}  // namespace

bool CZELThumbFlashCache::m_RefreshThumbFile() try {
    ZEL_LOG_INFO("m_RefreshThumbFile...\n");
    CZELReplacementFile file(m_strCachePath);
    if (!file.Open()) {
        ZEL_LOG_INFO("Failed to create %s  file.\n", m_strCachePath.c_str());
        return false;
    }
    for (const auto& folder : m_ThumbFolderList) {
        if (folder->Sid.empty() || folder->Path.empty()) {
            ZEL_LOG_INFO("strSid or strPath is empty###\n");
            continue;
        }
        const CZELThumbFileRecord record(*folder);
        if (!record.Fits()) {
            ZEL_LOG_INFO("m_RefreshThumbFile folder record is too long\n");
        } else if (!file.Append(record.Text())) {
            ZEL_LOG_INFO("m_RefreshThumbFile fwrite failed...\n");
            return true;
        }
    }
    for (const auto& item : m_ThumbItemList) {
        if (item->Path.empty()) {
            continue;
        }
        const CZELThumbFileRecord record(*item);
        if (!record.Fits()) {
            ZEL_LOG_INFO("m_RefreshThumbFile thumbnail record is too long\n");
        } else if (!file.Append(record.Text())) {
            ZEL_LOG_INFO("m_AddItemToThumbFile fwrite failed...\n");
            return true;
        }
    }
    if (!file.Commit()) {
        ZEL_LOG_INFO("m_RefreshThumbFile fwrite failed...\n");
    }
    return true;
} catch (const std::exception& error) {
    ZEL_LOG_WARN("m_RefreshThumbFile failed: %s", error.what());
    return false;
}

bool CZELThumbFlashCache::m_AddItemToThumbFile(
    boost::intrusive_ptr<CZELFlashCacheItem> pThumbItem) {
    if (!pThumbItem) {
        ZEL_LOG_INFO("m_AddItemToThumbFile pThumbItem is NULL\n");
        return false;
    }
    if (pThumbItem->Path.empty() || pThumbItem->Size < 0) {
        ZEL_LOG_INFO("m_AddItemToThumbFile strPath is empty or Size < 0\n");
        return false;
    }
    const CZELThumbFileRecord record(*pThumbItem);
    if (!record.Fits()) {
        ZEL_LOG_INFO("m_AddItemToThumbFile record is too long\n");
        return false;
    }
    const AppendResult result = AppendRecord(m_strCachePath, record.Text());
    if (result == AppendResult::NotOpened) {
        ZEL_LOG_INFO("Failed to create %s\tfile.\n", m_strCachePath.c_str());
        return false;
    }
    if (result == AppendResult::Short) {
        ZEL_LOG_INFO("m_AddItemToThumbFile fwrite failed...\n");
    }
    return true;
}

bool CZELThumbFlashCache::m_AddFolderItemToThumbFile(
    boost::intrusive_ptr<CZELFlashCacheFolderItem> pThumbFolderItem) {
    if (!pThumbFolderItem) {
        ZEL_LOG_INFO("pThumbFolderItem == NULL\n");
        return false;
    }
    if (pThumbFolderItem->Sid.empty() || pThumbFolderItem->Path.empty()) {
        ZEL_LOG_INFO("m_AddFolderItemToThumbFile strSid or strPath is empty\n");
        return false;
    }
    const CZELThumbFileRecord record(*pThumbFolderItem);
    if (!record.Fits()) {
        ZEL_LOG_INFO("m_AddFolderItemToThumbFile record is too long\n");
        return false;
    }
    const AppendResult result = AppendRecord(m_strCachePath, record.Text());
    if (result == AppendResult::NotOpened) {
        ZEL_LOG_INFO("Failed to create %s\tfile.\n", m_strCachePath.c_str());
        return false;
    }
    if (result == AppendResult::Short) {
        ZEL_LOG_WARN("m_AddFolderItemToThumbFile fwrite failed...\n");
    }
    return true;
}
