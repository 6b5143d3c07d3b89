#include "image_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <tuple>

namespace {

constexpr mode_t newFileMode = 0666;

// Removes what a descriptor was opened for, if it is a regular file; behind a link the file, not
// the link.
void RemoveFile(int descriptor, const char* filename) {
    struct stat status {};
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        const std::unique_ptr<char, decltype(&std::free)> target(realpath(filename, nullptr),
                                                                 &std::free);
        // A file that cannot be removed stays; the caller has learnt that it is of no use.
        std::ignore = std::remove(target ? target.get() : filename);
    }
}

}  // namespace

CZELImageFile::CZELImageFile(const char* filename) : m_Filename(filename) {
    // Without O_NONBLOCK a named pipe that nobody reads would stop every save here.
    const int descriptor =
        open(filename, O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_CLOEXEC, newFileMode);
    if (descriptor < 0) {
        return;
    }
    m_pStream = fdopen(descriptor, "wb");
    if (m_pStream == nullptr) {
        const int error = errno;
        RemoveFile(descriptor, filename);
        std::ignore = close(descriptor);  // nothing was written
        errno = error;
        return;
    }
    // A stream that does not take the buffer has its own.
    std::ignore = std::setvbuf(m_pStream, m_Buffer.data(), _IOFBF, m_Buffer.size());
}

CZELImageFile::~CZELImageFile() {
    if (m_pStream != nullptr) {
        std::ignore = std::fclose(m_pStream);  // what is cut off shows in the size of the file
    }
}

void CZELImageFile::Remove() { RemoveFile(fileno(m_pStream), m_Filename); }
