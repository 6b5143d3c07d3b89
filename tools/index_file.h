/**
 * @file
 * An index as the library reads and writes it, with the places in it that are not as they should
 * be.
 */
#ifndef ZEL_TOOLS_INDEX_FILE_H
#define ZEL_TOOLS_INDEX_FILE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "zel_thumbnail_flash_cache_internal.h"

using ThumbnailRecord = CZELThumbFlashCache::CZELFlashCacheItem;
using FolderRecord = CZELThumbFlashCache::CZELFlashCacheFolderItem;

/** A part of the text of an index. */
struct IndexFault {
    std::size_t offset; /**< in bytes from the beginning of the file */
    std::size_t length; /**< in bytes */
    std::string what;   /**< what is wrong with it */
};

/** The records of an index, which a start of the library would load. */
class IndexFile {
public:
    /** Loads it. Throws std::runtime_error when it is missing or cannot be read to its end. */
    explicit IndexFile(const std::string& path);

    /** The parts of the text that are no record, or not what the library would write for it, in
     * their order. */
    [[nodiscard]] const std::vector<IndexFault>& Faults() const { return faults_; }

    /** The thumbnails, oldest first. */
    [[nodiscard]] const CZELThumbFlashCache::ItemList& Thumbnails() const {
        return engine_.m_ThumbItemList;
    }
    [[nodiscard]] const CZELThumbFlashCache::FolderList& Folders() const {
        return engine_.m_ThumbFolderList;
    }

    /**
     * Lets the library write these records in place of the old ones, whole or not at all.
     * @return false when it cannot; true does not prove that it did: load the file again
     */
    [[nodiscard]] bool Rewrite(const CZELThumbFlashCache::ItemList& thumbnails,
                               const CZELThumbFlashCache::FolderList& folders);

private:
    struct Place {
        std::size_t offset;
        std::size_t length;
        boost::intrusive_ptr<ThumbnailRecord> record;
    };

    void Take(char* start, int length, std::size_t offset, std::vector<Place>& places);
    void AddText(std::string_view text, std::size_t begin, std::size_t end);
    void AddRecordsTakenBack(const std::vector<Place>& places);

    // Never started, it loads and writes. One thread uses it, so its lock is not needed.
    CZELThumbFlashCache engine_;
    std::vector<IndexFault> faults_;
};

#endif
