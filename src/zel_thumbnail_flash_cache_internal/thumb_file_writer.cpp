#include <array>
#include <exception>
#include <string_view>
#include <tuple>

#include "thumb_file_record.h"
#include "util/file_descriptor.h"
#include "util/log.h"
#include "util/replacement_file.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

static_assert(thumbFileRecordMaxLength <= CZELReplacementFile::maxPiece);

// Puts a record into the new text of the index; one that could not be read back is left out. False
// when the device is full or fails.
template <class Record>
bool PutRecord(const Record& record, CZELReplacementFile& file, const char* kind,
               const char* writer) {
    const std::size_t length = FormatThumbFileRecord(record, file.Room());
    if (length == 0) {
        ZEL_LOG_INFO("m_RefreshThumbFile %s record is too long\n", kind);
    } else if (length == thumbFileRecordUnreadable) {
        ZEL_LOG_INFO("m_RefreshThumbFile %s record holds \" or > or NUL\n", kind);
    } else if (!file.Append(length)) {
        ZEL_LOG_INFO("%s fwrite failed...\n", writer);
        return false;
    }
    return true;
}

bool PutFolders(const CZELThumbFlashCache::FolderList& folders, CZELReplacementFile& file) {
    for (const auto& folder : folders) {
        if (folder->Sid.empty() || folder->Path.empty()) {
            ZEL_LOG_INFO("strSid or strPath is empty###\n");
        } else if (!PutRecord(*folder, file, "folder", "m_RefreshThumbFile")) {
            return false;
        }
    }
    return true;
}

bool PutItems(const CZELThumbFlashCache::ItemList& items, CZELReplacementFile& file) {
    for (const auto& item : items) {
        if (!item->Path.empty() && !PutRecord(*item, file, "thumbnail", "m_AddItemToThumbFile")) {
            return false;
        }
    }
    return true;
}

bool Publish(CZELReplacementFile& file) {
    if (!file.Commit()) {
        ZEL_LOG_INFO("m_RefreshThumbFile fwrite failed...\n");
        return false;
    }
    return true;
}

}  // namespace

CZELThumbFlashCache::AppendResult CZELThumbFlashCache::m_AppendRecord(std::string_view record) {
    if (m_ThumbFile.NeedsRewrite()) {
        std::ignore = m_RefreshThumbFile();  // the file knows whether it has succeeded
    }
    return m_ThumbFile.Append(record);
}

bool CZELThumbFlashCache::m_RefreshThumbFile() try {
    using Result = CZELThumbFile::RewriteResult;
    ZEL_LOG_INFO("m_RefreshThumbFile...\n");
    const Result result =
        m_ThumbFile.Rewrite([this](CZELReplacementFile& file) ZEL_REQUIRES(m_Lock) {
            return PutFolders(m_ThumbFolderList, file) && PutItems(m_ThumbItemList, file) &&
                   Publish(file);
        });
    if (result == Result::NotOpened) {
        ZEL_LOG_INFO("Failed to create %s  file.\n", m_strCachePath.c_str());
    } else if (result == Result::Unread) {
        ZEL_LOG_INFO("m_RefreshThumbFile keeps what could not be read\n");
    }
    return result == Result::Tried;
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
    std::array<char, thumbFileRecordMaxLength> text;
    const std::size_t length = FormatThumbFileRecord(*pThumbItem, text.data());
    if (length == 0) {
        ZEL_LOG_INFO("m_AddItemToThumbFile record is too long\n");
        return false;
    }
    if (length == thumbFileRecordUnreadable) {
        ZEL_LOG_INFO("m_AddItemToThumbFile record holds \" or > or NUL\n");
        return false;
    }
    const AppendResult result = m_AppendRecord({text.data(), length});
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
    std::array<char, thumbFileRecordMaxLength> text;
    const std::size_t length = FormatThumbFileRecord(*pThumbFolderItem, text.data());
    if (length == 0) {
        ZEL_LOG_INFO("m_AddFolderItemToThumbFile record is too long\n");
        return false;
    }
    if (length == thumbFileRecordUnreadable) {
        ZEL_LOG_INFO("m_AddFolderItemToThumbFile record holds \" or > or NUL\n");
        return false;
    }
    const AppendResult result = m_AppendRecord({text.data(), length});
    if (result == AppendResult::NotOpened) {
        ZEL_LOG_INFO("Failed to create %s\tfile.\n", m_strCachePath.c_str());
        return false;
    }
    if (result == AppendResult::Short) {
        ZEL_LOG_WARN("m_AddFolderItemToThumbFile fwrite failed...\n");
    }
    return true;
}
