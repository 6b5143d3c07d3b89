#include "thumb_file_end.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace {

// Cuts off the zero bytes at the end of a file, which a power failure may leave in place of what
// was written last, and behind which the loader would see nothing. False when that fails.
bool CutZeros(const CZELFileDescriptor& file, off_t& size) {
    std::array<char, 4096> block;
    constexpr auto blockSize = static_cast<off_t>(block.size());
    off_t start = size;
    off_t end = size;
    while (start == end && start > 0) {
        start = (start - 1) / blockSize * blockSize;
        const auto length = static_cast<std::size_t>(end - start);
        if (pread(file.Get(), block.data(), length, start) != end - start) {
            return false;
        }
        const std::string_view text(block.data(), length);
        end = start + static_cast<off_t>(text.find_last_not_of('\0') + 1);  // also for zeros alone
    }
    const bool bCut = end == size || ftruncate(file.Get(), end) == 0;
    size = end;
    return bCut;
}

}  // namespace

bool EndTornRecord(CZELFileDescriptor& file) {
    struct stat status {};
    if (fstat(file.Get(), &status) != 0) {
        return false;
    }
    off_t size = status.st_size;
    if (!S_ISREG(status.st_mode) || size == 0) {
        return true;
    }
    if (!CutZeros(file, size)) {
        return false;
    }
    constexpr std::string_view end = ">\r\n";
    std::array<char, end.size()> last;
    const std::size_t length = std::min(last.size(), static_cast<std::size_t>(size));
    const ssize_t count = pread(file.Get(), last.data(), length, size - static_cast<off_t>(length));
    if (count != static_cast<ssize_t>(length)) {
        return false;
    }
    // A line feed alone is no end: a file name may hold one.
    const bool bIsWhole = size == 0 || std::string_view(last.data(), length) == end;
    return bIsWhole || file.Write(end) == end.size();
}
