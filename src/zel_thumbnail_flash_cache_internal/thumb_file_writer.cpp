#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <exception>
#include <string>
#include <string_view>
#include <tuple>

#include "thumb_file_record.h"
#include "util/file_descriptor.h"
#include "util/log.h"
#include "util/replacement_file.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

constexpr mode_t newFileMode = 0666;

static_assert(thumbFileRecordMaxLength <= CZELReplacementFile::maxPiece);

// Cuts off the zero bytes at the end of a file, which a power failure may leave in place of what
// was written last, and behind which the loader would see nothing. False when that fails.
bool CutZeros(const CZELFileDescriptor& file, off_t& size) {
    std::array<char, 4096> block;
    constexpr auto blockSize = static_cast<off_t>(block.size());
    off_t end = size;
    while (end > 0) {
        const off_t start = (end - 1) / blockSize * blockSize;
        const auto length = static_cast<std::size_t>(end - start);
        if (pread(file.Get(), block.data(), length, start) != end - start) {
            return false;
        }
        while (end > start && block[static_cast<std::size_t>(end - start - 1)] == '\0') {
            --end;
        }
        if (end > start) {
            break;
        }
    }
    const bool bCut = end == size || ftruncate(file.Get(), end) == 0;
    size = end;
    return bCut;
}

// Puts the end of a record behind a part of one that a process left when it was killed, and that
// would swallow the next record otherwise. A line feed alone is no end: a file name may hold one.
// False when the end of the file cannot be made sure of.
bool EndTornRecord(CZELFileDescriptor& file) {
    struct stat status {};
    if (fstat(file.Get(), &status) != 0) {
        return false;
    }
    off_t size = status.st_size;
    if (!S_ISREG(status.st_mode) || size == 0) {
        return true;
    }
    if (!CutZeros(file, size)) {
        return false;
    }
    constexpr std::string_view end = ">\r\n";
    std::array<char, end.size()> last;
    const std::size_t length = std::min(last.size(), static_cast<std::size_t>(size));
    const ssize_t count = pread(file.Get(), last.data(), length, size - static_cast<off_t>(length));
    if (count != static_cast<ssize_t>(length)) {
        return false;
    }
    const bool bIsWhole = size == 0 || std::string_view(last.data(), length) == end;
    return bIsWhole || file.Write(end) == end.size();
}

// Takes back the part of a record that was written.
void CutBack(CZELFileDescriptor& file, std::size_t written) {
    struct stat status {};
    if (written > 0 && fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode)) {
        // A part that stays after all is ended before the next append.
        std::ignore = ftruncate(file.Get(), status.st_size - static_cast<off_t>(written));
    }
}

// Puts the records of folders, or of thumbnails, into the new text of the index; those that could
// not be read back are left out. False when the device is full or fails.
bool PutFolders(const CZELThumbFlashCache::FolderList& folders, CZELReplacementFile& file) {
    for (const auto& folder : folders) {
        if (folder->Sid.empty() || folder->Path.empty()) {
            ZEL_LOG_INFO("strSid or strPath is empty###\n");
            continue;
        }
        const std::size_t length = FormatThumbFileRecord(*folder, file.Room());
        if (length == 0) {
            ZEL_LOG_INFO("m_RefreshThumbFile folder record is too long\n");
        } else if (length == thumbFileRecordUnreadable) {
            ZEL_LOG_INFO("m_RefreshThumbFile folder record holds \" or > or NUL\n");
        } else if (!file.Append(length)) {
            ZEL_LOG_INFO("m_RefreshThumbFile fwrite failed...\n");
            return false;
        }
    }
    return true;
}

bool PutItems(const CZELThumbFlashCache::ItemList& items, CZELReplacementFile& file) {
    for (const auto& item : items) {
        if (item->Path.empty()) {
            continue;
        }
        const std::size_t length = FormatThumbFileRecord(*item, file.Room());
        if (length == 0) {
            ZEL_LOG_INFO("m_RefreshThumbFile thumbnail record is too long\n");
        } else if (length == thumbFileRecordUnreadable) {
            ZEL_LOG_INFO("m_RefreshThumbFile thumbnail record holds \" or > or NUL\n");
        } else if (!file.Append(length)) {
            ZEL_LOG_INFO("m_AddItemToThumbFile fwrite failed...\n");
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
    ZELThumbFileState& state = m_ThumbFileState;
    if (state.bNeedsRewrite && state.bIsRead) {
        std::ignore = m_RefreshThumbFile();  // tells by the state whether it has succeeded
    }
    CZELFileDescriptor file(open(
        m_strCachePath.c_str(), O_RDWR | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, newFileMode));
    if (!file.IsOpen()) {
        return AppendResult::NotOpened;
    }
    if (state.bNeedsRewrite && state.bIsRead) {
        return AppendResult::Short;  // the rewrite to come has the record from the lists
    }
    state.strMissing += record;
    // Looked at once: what this process appends afterwards is whole.
    const bool bEndIsWhole = state.bEndIsWhole || EndTornRecord(file);
    state.bEndIsWhole = false;
    if (!bEndIsWhole) {
        return AppendResult::Short;
    }
    const std::size_t written = file.Write(state.strMissing);
    if (written < state.strMissing.size()) {
        CutBack(file, written);
        return AppendResult::Short;
    }
    state.strMissing.clear();
    if (!file.Close()) {
        return AppendResult::Short;
    }
    state.bEndIsWhole = true;
    return AppendResult::Appended;
}

bool CZELThumbFlashCache::m_RefreshThumbFile() try {
    ZEL_LOG_INFO("m_RefreshThumbFile...\n");
    CZELReplacementFile file(m_strCachePath);
    if (!file.Open()) {
        ZEL_LOG_INFO("Failed to create %s  file.\n", m_strCachePath.c_str());
        return false;
    }
    ZELThumbFileState& state = m_ThumbFileState;
    state.bEndIsWhole = false;
    if (!state.bIsRead) {
        ZEL_LOG_INFO("m_RefreshThumbFile keeps what could not be read\n");
        return false;
    }
    if (PutFolders(m_ThumbFolderList, file) && PutItems(m_ThumbItemList, file) && Publish(file)) {
        state.bEndIsWhole = true;
        state.bNeedsRewrite = false;
    } else if (!state.strMissing.empty()) {
        // Some of the missing records may be of thumbnails that are gone.
        state.bNeedsRewrite = true;
    }
    state.strMissing.clear();
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
