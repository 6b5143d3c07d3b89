/**
 * @file
 * An image file that is being written.
 */
#ifndef ZEL_IMAGE_FILE_H
#define ZEL_IMAGE_FILE_H

#include <array>
#include <cstddef>

#include "util/file_descriptor.h"

/**
 * An image file, new or emptied, that is written in few large pieces. It takes some 16 KiB of the
 * stack. An object that is destroyed writes what waits in its buffer, and has the system begin to
 * write the file to the device, without waiting for it. Not for use by several threads.
 */
class CZELImageFile {
public:
    using Buffer = std::array<unsigned char, 16384>;

    /** Opens the file; the name stays valid as long as the object. */
    explicit CZELImageFile(const char* filename);
    ~CZELImageFile();

    /** False, with the reason in errno, right after an opening that has failed. */
    [[nodiscard]] bool IsOpen() const { return m_File.IsOpen(); }

    /** For an encoder to fill, as long as nothing that was appended waits in it. */
    [[nodiscard]] Buffer& GetBuffer() { return m_Buffer; }

    /** Writes that many bytes that an encoder has put into the buffer; false as for Flush(). */
    [[nodiscard]] bool WriteBuffer(std::size_t size) { return m_Write(m_Buffer.data(), size); }

    /** Adds bytes through the buffer. Whether the device takes them shows with the next Flush(). */
    void Append(const void* bytes, std::size_t size);

    /**
     * Writes what waits in the buffer.
     * @return false when the device did not take all that was written so far; then nothing more
     *         reaches the file
     */
    [[nodiscard]] bool Flush();

    /**
     * Removes a file that cannot be completed. Only a regular file goes, never a device node;
     * behind a link it is the file that was begun, not the link.
     */
    void Remove();

private:
    [[nodiscard]] bool m_Write(const void* bytes, std::size_t size);

    const char* const m_Filename;
    CZELFileDescriptor m_File;
    bool m_bIsWhole = true;
    std::size_t m_Waiting = 0;
    Buffer m_Buffer;
};

#endif
