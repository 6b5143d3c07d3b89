/**
 * @file
 * An open file descriptor with an owner.
 */
#ifndef ZEL_FILE_DESCRIPTOR_H
#define ZEL_FILE_DESCRIPTOR_H

#include <cstddef>
#include <string_view>
#include <tuple>

class CZELFileDescriptor {
public:
    CZELFileDescriptor() = default;
    /** Takes over a descriptor; a negative one is none. */
    explicit CZELFileDescriptor(int descriptor) : m_Descriptor(descriptor) {}
    ~CZELFileDescriptor() { std::ignore = Close(); }  // who cares for the result has closed it

    CZELFileDescriptor(CZELFileDescriptor&& other) noexcept;
    CZELFileDescriptor& operator=(CZELFileDescriptor&& other) noexcept;

    bool IsOpen() const { return m_Descriptor >= 0; }
    int Get() const { return m_Descriptor; }

    /** Writes a text; the bytes written, fewer than its length when the device is full or fails. */
    std::size_t Write(std::string_view text);

    /**
     * Reads until the buffer of that many bytes is full or nothing more comes.
     * @param held  receives the number of bytes read, also on failure
     * @return false when the device fails
     */
    bool ReadUpTo(char* buffer, std::size_t size, std::size_t& held);

    /** Closes the descriptor if it is open; false when the system reports a failed write only now.
     */
    bool Close();

private:
    int m_Descriptor = -1;
};

#endif
