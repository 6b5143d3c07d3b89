#include "image_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <tuple>
#include <utility>

#include "util/release.h"

namespace {

int OpenNew(const char* filename) {
    if (filename == nullptr) {  // answered as the system would: open() itself must not get null
        errno = EFAULT;
        return -1;
    }
    // Without O_NONBLOCK a named pipe that nobody reads would stop every save here.
    return open(filename, O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_CLOEXEC, newFileMode);
}

}  // namespace

CZELImageFile::CZELImageFile(const char* filename)
    : m_Filename(filename), m_File(OpenNew(filename)) {}

CZELImageFile::~CZELImageFile() {
    if (IsOpen()) {
        std::ignore = Flush();  // what is cut off shows in the size of the file
        // On its way to the device before a record names it; where that cannot be, the system's own
        // write-back takes it.
        std::ignore = sync_file_range(m_File.Get(), 0, 0, SYNC_FILE_RANGE_WRITE);
    }
}

void CZELImageFile::Append(const void* bytes, std::size_t size) {
    if (size > m_Buffer.size() - m_Waiting) {
        std::ignore = Flush();  // the next one tells as well
    }
    if (size > m_Buffer.size()) {
        std::ignore = m_Write(bytes, size);  // likewise
        return;
    }
    std::memcpy(m_Buffer.data() + m_Waiting, bytes, size);
    m_Waiting += size;
}

bool CZELImageFile::Flush() { return m_Write(m_Buffer.data(), std::exchange(m_Waiting, 0)); }

bool CZELImageFile::m_Write(const void* bytes, std::size_t size) {
    m_bIsWhole = m_bIsWhole && m_File.Write({static_cast<const char*>(bytes), size}) == size;
    return m_bIsWhole;
}

void CZELImageFile::Remove() {
    struct stat status {};
    if (fstat(m_File.Get(), &status) == 0 && S_ISREG(status.st_mode)) {
        const CZELHandle<char, std::free> target(realpath(m_Filename, nullptr));
        // A file that cannot be removed stays; the caller has learnt that it is of no use.
        std::ignore = std::remove(target ? target.get() : m_Filename);
    }
}
