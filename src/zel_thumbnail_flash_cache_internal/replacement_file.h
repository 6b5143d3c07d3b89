/**
 * @file
 * A new text for a file that appears whole or not at all.
 */
#ifndef ZEL_REPLACEMENT_FILE_H
#define ZEL_REPLACEMENT_FILE_H

#include <sys/stat.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "file_descriptor.h"

/**
 * Collects the new text of a file in a temporary file beside it, "NAME.new", and puts it in place
 * of the old one at the end, so that neither a killed process nor a power failure leaves a part of
 * it. An object that is destroyed before Commit() has succeeded leaves the old text as it was, and
 * no temporary file.
 *
 * A link stays a link: the file that it leads to is replaced. Permission bits are kept, and the
 * owner where that is permitted. Where the directory takes no new file, or the path names something
 * else than a regular file, the text is written in place.
 *
 * One object at a time works on one path. Not for use by several threads. Memory shortage is
 * reported as a failure, or as std::bad_alloc by Open().
 */
class CZELReplacementFile {
public:
    explicit CZELReplacementFile(std::string path) : m_Path(std::move(path)) {}
    ~CZELReplacementFile();

    CZELReplacementFile(const CZELReplacementFile&) = delete;
    CZELReplacementFile& operator=(const CZELReplacementFile&) = delete;

    /** Begins; false when the path cannot be opened for writing. Creates an empty file if missing.
     */
    bool Open();

    /** Adds to the text; false when the device is full or fails. Only after Open() has succeeded.
     */
    bool Append(std::string_view text);

    /** Publishes the text; false when the device is full or fails. Once, after the last Append().
     */
    bool Commit();

private:
    bool m_OpenTemporary(const struct stat& old);
    bool m_Flush();

    const std::string m_Path;
    std::string m_Target;     // the path with all links resolved
    std::string m_Temporary;  // empty when there is no temporary file
    CZELFileDescriptor m_File;
    bool m_bRegular = false;
    std::unique_ptr<char[]> m_Buffer;
    std::size_t m_Buffered = 0;
    std::size_t m_Written = 0;
};

#endif
