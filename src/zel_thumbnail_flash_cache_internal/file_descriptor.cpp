#include "file_descriptor.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

CZELFileDescriptor::CZELFileDescriptor(CZELFileDescriptor&& other) noexcept
    : m_Descriptor(std::exchange(other.m_Descriptor, -1)) {}

CZELFileDescriptor& CZELFileDescriptor::operator=(CZELFileDescriptor&& other) noexcept {
    std::swap(m_Descriptor, other.m_Descriptor);
    return *this;
}

std::size_t CZELFileDescriptor::Write(std::string_view text) {
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

bool CZELFileDescriptor::ReadUpTo(char* buffer, std::size_t size, std::size_t& held) {
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

bool CZELFileDescriptor::Close() {
    return m_Descriptor < 0 || close(std::exchange(m_Descriptor, -1)) == 0;
}
