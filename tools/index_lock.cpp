#include "index_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <tuple>

namespace fs = std::filesystem;

namespace {

// Also of an index that does not exist yet, so that the link to it is followed here.
fs::path DirectoryOf(const std::string& index) {
    std::error_code error;
    fs::path file = fs::absolute(index);
    for (int links = 0; links < 40 && fs::is_symlink(file, error); ++links) {
        file = file.parent_path() / fs::read_symlink(file, error);
    }
    return file.parent_path();
}

int OpenDirectory(const std::string& index) {
    const int directory = open(DirectoryOf(index).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory == -1) {
        throw std::runtime_error(errno == ENOENT
                                     ? "the directory of the index " + index + " does not exist"
                                     : "the directory of the index " + index + ": " +
                                           std::generic_category().message(errno));
    }
    return directory;
}

// The name of a file in the kernel's table of locks.
std::string NameInTable(int file) {
    struct stat status = {};
    char name[64] = "";
    if (fstat(file, &status) == 0) {
        std::ignore = std::snprintf(name, sizeof name, "%02x:%02x:%ju", major(status.st_dev),
                                    minor(status.st_dev), std::uintmax_t{status.st_ino});
    }
    return name;
}

std::string DescribeHolder(int file) {
    const std::string name = NameInTable(file);
    std::ifstream table("/proc/locks");
    for (std::string line; std::getline(table, line);) {
        std::istringstream fields(line);
        std::string number, type, mode, access, process, locked, command;
        fields >> number >> type >> mode >> access >> process >> locked;
        if (type == "FLOCK" && locked == name &&
            std::getline(std::ifstream("/proc/" + process + "/comm"), command)) {
            return command + " (process " + process + ")";
        }
    }
    return "another process";
}

}  // namespace

IndexLock::IndexLock(const std::string& index) : directory_(OpenDirectory(index)) {
    if (flock(directory_.Get(), LOCK_EX | LOCK_NB) == 0) {
        return;
    }
    const int error = errno;
    const std::string reason = error == EWOULDBLOCK
                                   ? "is in use by " + DescribeHolder(directory_.Get())
                                   : "cannot be locked: " + std::generic_category().message(error);
    throw std::runtime_error("the directory of the index " + index + " " + reason);
}

bool IndexLock::SyncDirectory() const { return fsync(directory_.Get()) == 0; }

std::string DescribeIndexUser(const std::string& index) try {
    // Taken for a moment, and beside others that only look.
    const CZELFileDescriptor directory(OpenDirectory(index));
    const bool is_used = flock(directory.Get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    return is_used ? DescribeHolder(directory.Get()) : "";
} catch (const std::runtime_error&) {
    return "";
}
