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

/** The bytes that writing a record may touch: one that is too long is found out only once it is
 * written. */
constexpr std::size_t thumbFileRecordRoom = thumbFileRecordMaxLength + 128;

/** The length of a record whose texts hold a double quote or a ">", which would end it, or a NUL,
 * behind which nothing is read. */
constexpr std::size_t thumbFileRecordUnreadable = static_cast<std::size_t>(-1);

/**
 * Writes the record of a thumbnail or of a folder, CR LF included.
 * @param text  receives it; has room for thumbFileRecordRoom bytes
 * @return its length; 0 when it is too long for the file, or thumbFileRecordUnreadable when it
 * could not be read back as it is
 */
[[nodiscard]] std::size_t FormatThumbFileRecord(const CZELThumbFlashCache::CZELFlashCacheItem& item,
                                                char* text);
[[nodiscard]] std::size_t FormatThumbFileRecord(
    const CZELThumbFlashCache::CZELFlashCacheFolderItem& folder, char* text);

/**
 * Reads the type of a record, which is in base 10 and held to 32 bits.
 * @param text  the record without its "<" and ">"
 * @param rest  receives what follows the comma behind the type
 * @return null, or the line of log that tells what is not as expected
 */
[[nodiscard]] const char* ReadThumbFileRecordType(std::string_view text, int& type,
                                                  std::string_view& rest);

/**
 * Reads the fields of a record. A size below 0 is taken for 0.
 * @param text  what follows the comma behind the type, without the ">"
 * @return null, or the line of log that tells the first field that is not as expected, in which
 *         case those of the object may be anything
 */
[[nodiscard]] const char* ReadThumbFileRecord(std::string_view text,
                                              CZELThumbFlashCache::CZELFlashCacheItem& item);
[[nodiscard]] const char* ReadThumbFileRecord(
    std::string_view text, CZELThumbFlashCache::CZELFlashCacheFolderItem& folder);

#endif
