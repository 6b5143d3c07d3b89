#include <array>
#include <exception>
#include <string_view>
#include <tuple>

#include "thumb_file_record.h"
#include "util/log.h"
#include "util/replacement_file.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

static_assert(thumbFileRecordRoom <= CZELReplacementFile::maxPiece);

// Writes a record to where there is room for one, and returns it; nothing when it could not be read
// back as it is.
template <class Record>
std::string_view Format(const Record& record, char* room, const char* user) {
    const std::size_t length = FormatThumbFileRecord(record, room);
    if (length == 0) {
        ZEL_LOG_INFO("%s record is too long\n", user);
        return {};
    }
    if (length == thumbFileRecordUnreadable) {
        ZEL_LOG_INFO("%s record holds \" or > or NUL\n", user);
        return {};
    }
    return {room, length};
}

// Puts a record into the new text of the index, or leaves it out. False when the device is full or
// fails.
template <class Record>
bool PutRecord(const Record& record, CZELReplacementFile& file, const char* user,
               const char* writer) {
    const std::string_view text = Format(record, file.Room(), user);
    if (!text.empty() && !file.Append(text.size())) {
        ZEL_LOG_INFO("%s fwrite failed...\n", writer);
        return false;
    }
    return true;
}

bool PutFolders(const CZELThumbFlashCache::FolderList& folders, CZELReplacementFile& file) {
    for (const auto& folder : folders) {
        if (folder->Sid.empty() || folder->Path.empty()) {
            ZEL_LOG_INFO("strSid or strPath is empty###\n");
        } else if (!PutRecord(*folder, file, "m_RefreshThumbFile folder", "m_RefreshThumbFile")) {
            return false;
        }
    }
    return true;
}

bool PutItems(const CZELThumbFlashCache::ItemList& items, CZELReplacementFile& file) {
    for (const auto& item : items) {
        if (!item->Path.empty() &&
            !PutRecord(*item, file, "m_RefreshThumbFile thumbnail", "m_AddItemToThumbFile")) {
            return false;
        }
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
    ZEL_LOG_INFO("m_RefreshThumbFile...\n");
    return m_ThumbFile.Rewrite([this](CZELReplacementFile& file) ZEL_REQUIRES(m_Lock) {
        return PutFolders(m_ThumbFolderList, file) && PutItems(m_ThumbItemList, file);
    });
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
    std::array<char, thumbFileRecordRoom> room;
    const std::string_view record = Format(*pThumbItem, room.data(), "m_AddItemToThumbFile");
    if (record.empty()) {
        return false;
    }
    const AppendResult result = m_AppendRecord(record);
    if (result == AppendResult::Short) {
        ZEL_LOG_INFO("m_AddItemToThumbFile fwrite failed...\n");
    }
    return result != AppendResult::NotOpened;
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
    std::array<char, thumbFileRecordRoom> room;
    const std::string_view record =
        Format(*pThumbFolderItem, room.data(), "m_AddFolderItemToThumbFile");
    if (record.empty()) {
        return false;
    }
    const AppendResult result = m_AppendRecord(record);
    if (result == AppendResult::Short) {
        ZEL_LOG_WARN("m_AddFolderItemToThumbFile fwrite failed...\n");
    }
    return result != AppendResult::NotOpened;
}
