#include "replacement_file.h"

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <tuple>

#include "util/release.h"

namespace {

constexpr mode_t permissionBits = 07777;

// Whether a directory that gives this error takes no new file, or keeps the old one, though the old
// one can be written.
bool RefusesReplacement(int error) {
    return error == EACCES || error == EPERM || error == EROFS || error == EBUSY ||
           error == ENAMETOOLONG || error == EEXIST || error == ENOENT;
}

// Gives a new file the permission bits and the owner of another one. Only a privileged process can
// give a file away, others can give it to their groups, and some file systems have no such things:
// what is refused matters less than the text.
void CopyAttributes(const CZELFileDescriptor& file, const struct stat& from) {
    std::ignore = fchmod(file.Get(), from.st_mode & permissionBits);
    if (fchown(file.Get(), from.st_uid, from.st_gid) != 0) {
        std::ignore = fchown(file.Get(), static_cast<uid_t>(-1), from.st_gid);
    }
}

}  // namespace

CZELReplacementFile::~CZELReplacementFile() {
    if (!m_Temporary.empty()) {
        std::ignore = std::remove(m_Temporary.c_str());  // the next replacement overwrites it
    }
}

bool CZELReplacementFile::Open() {
    m_Buffer.reset(new char[bufferSize + maxPiece]);
    // Without O_NONBLOCK a named pipe that nobody reads would stop the process here.
    m_Old = CZELFileDescriptor(
        open(m_Path.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC, newFileMode));
    if (!m_Old.IsOpen() || fstat(m_Old.Get(), &m_OldStatus) != 0) {
        return false;
    }
    m_pFile = &m_Old;
    if (S_ISREG(m_OldStatus.st_mode)) {
        m_OpenTemporary();
    }
    return true;
}

void CZELReplacementFile::m_OpenTemporary() {
    const CZELHandle<char, std::free> target(realpath(m_Path.c_str(), nullptr));
    if (target) {
        m_Target = target.get();
        std::string temporary = m_Target + ".new";
        std::ignore = unlink(temporary.c_str());  // what a killed process left, if anything
        m_New = CZELFileDescriptor(
            open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
        if (m_New.IsOpen()) {
            m_Temporary = std::move(temporary);
            m_pFile = &m_New;
            CopyAttributes(m_New, m_OldStatus);
            return;
        }
    }
    if (!RefusesReplacement(errno)) {
        m_pFile = nullptr;
    }
}

bool CZELReplacementFile::m_Flush() {
    const std::string_view text(m_Buffer.get(), m_Buffered);
    m_Written += m_Buffered;
    m_Buffered = 0;
    return m_pFile != nullptr && m_pFile->Write(text) == text.size();
}

bool CZELReplacementFile::Commit() {
    if (!m_Flush()) {
        return false;
    }
    if (m_pFile == &m_Old) {
        return m_EndInPlace();
    }
    if (fdatasync(m_New.Get()) != 0) {
        return false;
    }
    if (std::rename(m_Temporary.c_str(), m_Target.c_str()) == 0) {
        m_Temporary.clear();
        return true;
    }
    return RefusesReplacement(errno) && m_CopyInPlace();
}

// For a file that may be written and not replaced: one that is mounted by itself, or one of another
// user in a sticky directory.
bool CZELReplacementFile::m_CopyInPlace() {
    off_t offset = 0;
    while (offset < static_cast<off_t>(m_Written)) {
        const ssize_t count = sendfile(m_Old.Get(), m_New.Get(), &offset,
                                       m_Written - static_cast<std::size_t>(offset));
        if (count <= 0) {
            return false;
        }
    }
    return m_EndInPlace();
}

// The rest of the old text goes last: too many records do less harm than too few.
bool CZELReplacementFile::m_EndInPlace() {
    return (!S_ISREG(m_OldStatus.st_mode) ||
            (ftruncate(m_Old.Get(), static_cast<off_t>(m_Written)) == 0 &&
             fdatasync(m_Old.Get()) == 0)) &&
           m_Old.Close();
}
