#include "thumb_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <tuple>

#include "thumb_file_end.h"
#include "thumb_file_record.h"
#include "thumb_file_scan.h"
#include "util/file_descriptor.h"
#include "util/log.h"
#include "util/replacement_file.h"

namespace {

constexpr std::ptrdiff_t bufferSize = 1048577;
constexpr std::ptrdiff_t firstReadSize = 1048576;
constexpr std::ptrdiff_t nextReadSize = 1048575;

// Whether a zero byte stands before the end of a text, other than the zeros that a power failure
// leaves there.
bool HidesItsEnd(std::string_view text) {
    const std::size_t end = text.find_last_not_of('\0') + 1;  // also for zeros alone
    return text.find('\0') < end;
}

// Takes back the part of a record that was written.
void CutBack(CZELFileDescriptor& file, std::size_t written) {
    struct stat status {};
    if (written > 0 && fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode)) {
        // A part that stays after all is ended before the next append.
        std::ignore = ftruncate(file.Get(), status.st_size - static_cast<off_t>(written));
    }
}

}  // namespace

bool CZELThumbFile::Load(const TakeRecord& takeRecord) {
    ForgetUnread();
    // Without O_NONBLOCK a named pipe that nobody writes to would stop the start here.
    CZELFileDescriptor file(open(m_Path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file.IsOpen()) {
        m_State.bIsRead = errno == ENOENT;
        ZEL_LOG_INFO("open %s fail , error =%d \n", m_Path.c_str(), errno);
        return false;
    }
    const std::unique_ptr<char[]> pBuf(new (std::nothrow) char[bufferSize]);
    if (!pBuf) {
        ZEL_LOG_INFO("malloc pBuf failed...\n");
        return false;
    }
    std::size_t offset = 0;
    std::ptrdiff_t carried = 0;
    std::ptrdiff_t readSize = firstReadSize;
    while (readSize > 0) {
        std::size_t count = 0;
        m_State.bIsRead =
            file.ReadUpTo(pBuf.get() + carried, static_cast<std::size_t>(readSize), count);
        if (count == 0) {
            break;
        }
        const std::ptrdiff_t held = carried + static_cast<std::ptrdiff_t>(count);
        CZELThumbFileScan records(pBuf.get(), held);
        char* start = nullptr;
        int length = 0;
        while (records.Next(start, length)) {
            takeRecord(start, length, offset + static_cast<std::size_t>(start - pBuf.get()));
        }
        carried = std::max<std::ptrdiff_t>(held - records.Position(), 0);
        offset += static_cast<std::size_t>(held - carried);
        std::memmove(pBuf.get(), pBuf.get() + (held - carried), static_cast<std::size_t>(carried));
        readSize = nextReadSize - carried;
    }
    // A buffer that is full ends the reading before the end.
    m_State.bNeedsRewrite =
        readSize <= 0 || HidesItsEnd({pBuf.get(), static_cast<std::size_t>(carried)});
    return true;
}

CZELThumbFile::AppendResult CZELThumbFile::Append(std::string_view record) {
    CZELFileDescriptor file(
        open(m_Path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, newFileMode));
    if (!file.IsOpen()) {
        ZEL_LOG_INFO("Failed to create %s\tfile.\n", m_Path.c_str());
        return AppendResult::NotOpened;
    }
    if (NeedsRewrite()) {
        return AppendResult::Short;  // the rewrite to come has the record from the lists
    }
    m_State.strMissing += record;
    // Looked at once: what this process appends afterwards is whole.
    const bool bEndIsWhole = m_State.bEndIsWhole || EndTornRecord(file);
    m_State.bEndIsWhole = false;
    if (!bEndIsWhole) {
        return AppendResult::Short;
    }
    const std::size_t written = file.Write(m_State.strMissing);
    if (written < m_State.strMissing.size()) {
        CutBack(file, written);
        return AppendResult::Short;
    }
    m_State.strMissing.clear();
    m_State.bEndIsWhole = file.Close();
    return m_State.bEndIsWhole ? AppendResult::Appended : AppendResult::Short;
}

void CZELThumbFile::ReserveAppends(std::size_t count) {
    m_State.strMissing.reserve(m_State.strMissing.size() + count * thumbFileRecordMaxLength);
}

bool CZELThumbFile::Rewrite(const WriteRecords& writeRecords) {
    CZELReplacementFile file(m_Path);
    if (!file.Open()) {
        ZEL_LOG_INFO("Failed to create %s  file.\n", m_Path.c_str());
        return false;
    }
    m_State.bEndIsWhole = false;
    if (!m_State.bIsRead) {
        ZEL_LOG_INFO("m_RefreshThumbFile keeps what could not be read\n");
        return false;
    }
    bool bWritten = writeRecords(file);
    if (bWritten && !file.Commit()) {
        ZEL_LOG_INFO("m_RefreshThumbFile fwrite failed...\n");
        bWritten = false;
    }
    m_State.bEndIsWhole = bWritten;
    // Some of the missing records may be of thumbnails that are gone.
    m_State.bNeedsRewrite = !bWritten && (m_State.bNeedsRewrite || !m_State.strMissing.empty());
    m_State.strMissing.clear();
    return true;
}
