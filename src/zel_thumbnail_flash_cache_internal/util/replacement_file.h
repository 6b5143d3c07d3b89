/**
 * @file
 * A new text for a file that takes the place of the old one as a whole.
 */
#ifndef ZEL_REPLACEMENT_FILE_H
#define ZEL_REPLACEMENT_FILE_H

#include <sys/stat.h>

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "util/file_descriptor.h"

/**
 * Collects the new text of a file in a temporary file beside it, "NAME.new", and puts it in place
 * of the old one at the end, so that neither a killed process nor a power failure leaves a part of
 * it. An object that is destroyed before Commit() has succeeded leaves the old text as it was, and
 * no temporary file.
 *
 * A link stays a link: the file that it leads to is replaced. Permission bits are kept, and owner
 * and group where that is permitted.
 *
 * Where the directory takes no new file, or the path names something else than a regular file, the
 * text is written over the old one, and a failure in the middle leaves the beginning of the new
 * text with the rest of the old.
 *
 * One object at a time works on one path. Not for use by several threads.
 */
class CZELReplacementFile {
public:
    explicit CZELReplacementFile(std::string path) : m_Path(std::move(path)) {}
    ~CZELReplacementFile();

    /**
     * Begins; creates an empty file where there is none. Throws std::bad_alloc.
     * @return false when the path cannot be opened for writing
     */
    [[nodiscard]] bool Open();

    static constexpr std::size_t maxPiece = 4096;

    /** Where the next piece of the text is to be put, of at most maxPiece bytes. Only after Open()
     * has succeeded. */
    [[nodiscard]] char* Room() { return m_Buffer.get() + m_Buffered; }

    /** Adds the piece of that size to the text; false when the device is full or fails. */
    [[nodiscard]] bool Append(std::size_t size) {
        m_Buffered += size;
        return m_Buffered <= bufferSize || m_Flush();
    }

    /** Publishes the text; false when the device is full or fails. Once, after the last Append().
     */
    [[nodiscard]] bool Commit();

private:
    static constexpr std::size_t bufferSize = std::size_t{256} * 1024;

    void m_OpenTemporary();
    [[nodiscard]] bool m_Flush();
    [[nodiscard]] bool m_CopyInPlace();
    [[nodiscard]] bool m_EndInPlace();

    const std::string m_Path;
    std::string m_Target;                   // the path with all links resolved
    std::string m_Temporary;                // empty when there is no temporary file
    CZELFileDescriptor m_Old;               // the file to be replaced
    CZELFileDescriptor m_New;               // the temporary file
    CZELFileDescriptor* m_pFile = nullptr;  // the one to write to; null where there is no room
    struct stat m_OldStatus {};
    std::unique_ptr<char[]> m_Buffer;
    std::size_t m_Buffered = 0;
    std::size_t m_Written = 0;
};

#endif
