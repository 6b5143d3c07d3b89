#include "replacement_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <tuple>

namespace {

constexpr std::size_t bufferSize = 256 * 1024;
constexpr mode_t newFileMode = 0666;
constexpr mode_t permissionBits = 07777;

// Whether a directory that gives this error takes no new file, though its files can be written.
bool RefusesNewFile(int error) {
    return error == EACCES || error == EPERM || error == ENAMETOOLONG || error == EEXIST;
}

}  // namespace

CZELReplacementFile::~CZELReplacementFile() {
    if (!m_Temporary.empty()) {
        std::ignore = std::remove(m_Temporary.c_str());  // the next replacement overwrites it
    }
}

bool CZELReplacementFile::Open() {
    m_Buffer.reset(new (std::nothrow) char[bufferSize]);
    if (!m_Buffer) {
        return false;
    }
    // Without O_NONBLOCK a named pipe that nobody reads would stop the process here.
    m_File = CZELFileDescriptor(
        open(m_Path.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC, newFileMode));
    struct stat status {};
    if (!m_File.IsOpen() || fstat(m_File.Get(), &status) != 0) {
        return false;
    }
    m_bRegular = S_ISREG(status.st_mode);
    return !m_bRegular || m_OpenTemporary(status);
}

// Goes over to a temporary file, or leaves everything as it is where the text goes in place.
bool CZELReplacementFile::m_OpenTemporary(const struct stat& old) {
    const std::unique_ptr<char, decltype(&std::free)> target(realpath(m_Path.c_str(), nullptr),
                                                             &std::free);
    if (!target) {
        return RefusesNewFile(errno);
    }
    m_Target = target.get();
    std::string temporary = m_Target + ".new";
    std::ignore = unlink(temporary.c_str());  // what a killed process left, if anything
    CZELFileDescriptor file(
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file.IsOpen()) {
        return RefusesNewFile(errno);
    }
    m_Temporary = std::move(temporary);
    // Only a privileged process can keep a foreign owner, and some file systems have no permission
    // bits; the new text matters more.
    std::ignore = fchown(file.Get(), old.st_uid, old.st_gid);
    std::ignore = fchmod(file.Get(), old.st_mode & permissionBits);
    m_File = std::move(file);
    return true;
}

bool CZELReplacementFile::Append(std::string_view text) {
    while (!text.empty()) {
        if (m_Buffered == bufferSize && !m_Flush()) {
            return false;
        }
        const std::size_t part = text.copy(m_Buffer.get() + m_Buffered, bufferSize - m_Buffered);
        m_Buffered += part;
        text.remove_prefix(part);
    }
    return true;
}

bool CZELReplacementFile::m_Flush() {
    const std::string_view text(m_Buffer.get(), m_Buffered);
    m_Written += m_Buffered;
    m_Buffered = 0;
    return m_File.WriteAll(text);
}

bool CZELReplacementFile::Commit() {
    if (!m_Flush()) {
        return false;
    }
    if (m_Temporary.empty()) {
        // In place the rest of the old text goes last: too many records do less harm than too few.
        return (!m_bRegular || ftruncate(m_File.Get(), static_cast<off_t>(m_Written)) == 0) &&
               m_File.Close();
    }
    if (fdatasync(m_File.Get()) != 0 || !m_File.Close() ||
        std::rename(m_Temporary.c_str(), m_Target.c_str()) != 0) {
        return false;
    }
    m_Temporary.clear();
    return true;
}
