/**
 * @file
 * The format of the thumb file, the cache's index.
 *
 * The file is a sequence of records of 8-bit text, each followed by CR LF. A thumbnail record
 * (Type 0) and a folder record (Type 1) look like this:
 *
 *     <Type=0,Path="/cache/dev0",URL="/cache/dev0/a.jpg",Size=5120,Devicetype=0>
 *     <Type=1,Sid="dev0",Path="/cache/dev0",Devicetype=0>
 *
 * Keys come in exactly this order. Nothing is escaped: a value ends at the next double quote and a
 * record at the next ">", so no text holds one. A record with its CR LF has at most 1,023
 * characters. Records of both kinds may stand in any order; that of the thumbnail records is the
 * order of their age, oldest first.
 */
#ifndef ZEL_THUMB_FILE_RECORD_H
#define ZEL_THUMB_FILE_RECORD_H

#include <cstddef>
#include <string_view>

#include "zel_thumbnail_flash_cache_internal.h"

/** The most bytes of a record, CR LF included. */
constexpr std::size_t thumbFileRecordMaxLength = 1023;

/** The length of a record whose texts hold a double quote or a ">", which would end it, or a NUL,
 * behind which nothing is read. */
constexpr std::size_t thumbFileRecordUnreadable = static_cast<std::size_t>(-1);

/**
 * Writes the record of a thumbnail or of a folder, CR LF included.
 * @param text  receives it; has room for thumbFileRecordMaxLength bytes
 * @return its length; 0 when it is too long for the file, or thumbFileRecordUnreadable when it
 * could not be read back as it is
 */
[[nodiscard]] std::size_t FormatThumbFileRecord(const CZELThumbFlashCache::CZELFlashCacheItem& item,
                                                char* text);
[[nodiscard]] std::size_t FormatThumbFileRecord(
    const CZELThumbFlashCache::CZELFlashCacheFolderItem& folder, char* text);

/**
 * Reads the text of a record from left to right. Looks at nothing but the text it is given, which
 * is the record without its ">", and stays where it is when something is not as expected.
 */
class CZELThumbFileCursor {
public:
    explicit CZELThumbFileCursor(std::string_view text) : m_Rest(text) {}

    /** Steps over a text that must come next; false when it does not. */
    [[nodiscard]] bool Step(std::string_view expected) {
        if (m_Rest.substr(0, expected.size()) != expected) {
            return false;
        }
        m_Rest.remove_prefix(expected.size());
        return true;
    }

    /** Steps over any one character. */
    void StepOne() { m_Rest.remove_prefix(m_Rest.empty() ? 0 : 1); }

    /**
     * Takes the characters up to a closing one, which must follow, and steps over both.
     * @param value  receives at least one character; valid as long as the record
     */
    [[nodiscard]] bool TakeUntil(char end, std::string_view& value) {
        const std::size_t length = m_Rest.find(end);
        if (length == std::string_view::npos || length == 0) {
            return false;
        }
        value = m_Rest.substr(0, length);
        m_Rest.remove_prefix(length + 1);
        return true;
    }

    /**
     * Takes the text of a number up to a closing character, which must follow, and steps over both.
     * The number is in base 10; leading blanks and a sign are allowed, it ends at the first
     * non-digit, is 0 without digits and is held to 32 bits.
     * @return false when the text is empty or has more than 10 characters
     */
    [[nodiscard]] bool TakeNumber(char end, int& number);

    /** What is still to be read. */
    [[nodiscard]] std::string_view Rest() const { return m_Rest; }

private:
    std::string_view m_Rest;
};

/**
 * Converts the text of a device type, of which only the first character counts.
 * @param text  not empty
 * @return false when that is neither "0" nor "1"
 */
[[nodiscard]] bool ParseThumbFileDeviceType(std::string_view text, int& type);

#endif
