#include "image_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <tuple>

namespace {

constexpr mode_t newFileMode = 0666;

}  // namespace

CZELImageFile::CZELImageFile(const char* filename)
    : m_Filename(filename),
      // Without O_NONBLOCK a named pipe that nobody reads would stop every save here.
      m_File(open(filename, O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_CLOEXEC, newFileMode)) {
    if (!m_File.IsOpen()) {
        return;
    }
    m_pStream = fopencookie(this, "wb", {nullptr, s_Write, nullptr, nullptr});
    if (m_pStream == nullptr) {
        const int error = errno;
        Remove();
        errno = error;
        return;
    }
    // A stream that does not take the buffer has its own.
    std::ignore = std::setvbuf(m_pStream, m_Buffer.data(), _IOFBF, m_Buffer.size());
}

CZELImageFile::~CZELImageFile() {
    if (m_pStream != nullptr) {
        std::ignore = std::fclose(m_pStream);  // what is cut off shows in the size of the file
        // On its way to the device before a record names it; where that cannot be, the system's own
        // write-back takes it.
        std::ignore = sync_file_range(m_File.Get(), 0, 0, SYNC_FILE_RANGE_WRITE);
    }
}

// The stream hears of no failure: C libraries differ in what they make of one, from an error of the
// next flush to an endless loop.
ssize_t CZELImageFile::s_Write(void* file, const char* text, std::size_t size) {
    auto& image = *static_cast<CZELImageFile*>(file);
    image.m_bIsWhole = image.m_bIsWhole && image.m_File.Write({text, size}) == size;
    return static_cast<ssize_t>(size);
}

void CZELImageFile::Remove() {
    struct stat status {};
    if (fstat(m_File.Get(), &status) == 0 && S_ISREG(status.st_mode)) {
        const std::unique_ptr<char, decltype(&std::free)> target(realpath(m_Filename, nullptr),
                                                                 &std::free);
        // A file that cannot be removed stays; the caller has learnt that it is of no use.
        std::ignore = std::remove(target ? target.get() : m_Filename);
    }
}
