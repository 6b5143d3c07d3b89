/**
 * @file
 * An image file that is being written.
 */
#ifndef ZEL_IMAGE_FILE_H
#define ZEL_IMAGE_FILE_H

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdio>

#include "file_descriptor.h"

/**
 * A stream into an image file, new or emptied, that writes the file in few large pieces. It takes
 * some 16 KiB of the stack. An object that is destroyed keeps what was written, and has the system
 * begin to write it to the device, without waiting for it. Not for use by several threads.
 */
class CZELImageFile {
public:
    /** Opens the file; the name stays valid as long as the object. */
    explicit CZELImageFile(const char* filename);
    ~CZELImageFile();

    CZELImageFile(const CZELImageFile&) = delete;
    CZELImageFile& operator=(const CZELImageFile&) = delete;

    /** The stream; null, with the reason in errno, right after an opening that has failed. */
    std::FILE* Stream() const { return m_pStream; }

    /**
     * Whether the file holds all that has left the stream's buffer; after a flush, all that was
     * written. The stream itself reports no failure of the device, and after one nothing more
     * reaches the file.
     */
    bool IsWhole() const { return m_bIsWhole; }

    /**
     * Removes a file that cannot be completed. Only a regular file goes, never a device node;
     * behind a link it is the file that was begun, not the link.
     */
    void Remove();

private:
    static ssize_t s_Write(void* file, const char* text, std::size_t size);

    const char* const m_Filename;
    CZELFileDescriptor m_File;
    bool m_bIsWhole = true;
    std::array<char, 16384> m_Buffer;
    std::FILE* m_pStream = nullptr;
};

#endif
