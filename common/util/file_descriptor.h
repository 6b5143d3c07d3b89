/**
 * @file
 * An open file descriptor with an owner.
 */
#ifndef ZEL_FILE_DESCRIPTOR_H
#define ZEL_FILE_DESCRIPTOR_H

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string_view>
#include <tuple>
#include <utility>

/** The permission bits of a new file, of which the process takes some away. */
constexpr mode_t newFileMode = 0666;

/** Owns an open file descriptor, or none. */
class CZELFileDescriptor {
public:
    CZELFileDescriptor() = default;
    /** Takes over a descriptor; a negative one is none. */
    explicit CZELFileDescriptor(int descriptor) : m_Descriptor(descriptor) {}
    ~CZELFileDescriptor() { std::ignore = Close(); }  // whoever needs the result calls Close()

    CZELFileDescriptor(CZELFileDescriptor&& other) noexcept
        : m_Descriptor(std::exchange(other.m_Descriptor, -1)) {}
    CZELFileDescriptor& operator=(CZELFileDescriptor&& other) noexcept {
        std::swap(m_Descriptor, other.m_Descriptor);
        return *this;
    }

    [[nodiscard]] bool IsOpen() const { return m_Descriptor >= 0; }
    [[nodiscard]] int Get() const { return m_Descriptor; }

    /** Writes a text; the bytes written, fewer than its length when the device is full or fails. */
    [[nodiscard]] std::size_t Write(std::string_view text) {
        std::size_t written = 0;
        while (written < text.size()) {
            const ssize_t count = write(m_Descriptor, text.data() + written, text.size() - written);
            if (count > 0) {
                written += static_cast<std::size_t>(count);
            } else if (count == 0 || errno != EINTR) {
                break;
            }
        }
        return written;
    }

    /**
     * Reads until the buffer of that many bytes is full or nothing more comes.
     * @param held  receives the number of bytes read, also on failure
     * @return false when the device fails
     */
    [[nodiscard]] bool ReadUpTo(char* buffer, std::size_t size, std::size_t& held) {
        held = 0;
        while (held < size) {
            const ssize_t count = read(m_Descriptor, buffer + held, size - held);
            if (count > 0) {
                held += static_cast<std::size_t>(count);
            } else if (count == 0) {
                break;
            } else if (errno != EINTR) {
                return false;
            }
        }
        return true;
    }

    /** Closes the descriptor if it is open; false when a failed write is reported only now. */
    [[nodiscard]] bool Close() {
        return m_Descriptor < 0 || close(std::exchange(m_Descriptor, -1)) == 0;
    }

private:
    int m_Descriptor = -1;
};

#endif
