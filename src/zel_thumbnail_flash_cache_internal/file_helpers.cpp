#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <exception>
#include <filesystem>
#include <system_error>
#include <tuple>

#include "log.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

constexpr mode_t newDirectoryMode = 0777;

// Removes what stands at a path: a tree without following links, a file, or a link itself. Refuses
// the root, "." and "..", and with them every path that leads to the root by its own text.
bool RemoveTree(const std::string& path) try {
    const std::size_t last = path.find_last_not_of('/');
    if (last == std::string::npos || std::strlen(path.c_str()) != path.size()) {
        return false;
    }
    // Without its trailing "/", which would make a link the directory that it leads to.
    const std::filesystem::path target = path.substr(0, last + 1);
    if (target.filename() == "." || target.filename() == "..") {
        return false;
    }
    std::error_code error;
    std::filesystem::remove_all(target, error);
    return !error;
} catch (const std::exception&) {
    return false;
}

}  // namespace

bool CZELThumbFlashCache::FileExist(const char* fileName) {
    if (fileName == nullptr) {
        ZEL_LOG_INFO("FileExist fileName is null");
        return false;
    }
    return access(fileName, R_OK) == 0;
}

bool CZELThumbFlashCache::CreateDir(const char* dirName) try {
    return dirName != nullptr && m_CreateDir(dirName);
} catch (const std::exception& error) {
    ZEL_LOG_WARN("CreateDir failed: %s", error.what());
    return false;
}

bool CZELThumbFlashCache::m_CreateDir(std::string strDir) {
    if (DIR* directory = opendir(strDir.c_str())) {
        ZEL_LOG_INFO("CZELThumbFlashCache::m_CreateDir [%s] alread exist###\n", strDir.c_str());
        std::ignore = closedir(directory);  // nothing was read from it
        return true;
    }
    if (mkdir(strDir.c_str(), newDirectoryMode) != 0) {
        ZEL_LOG_INFO("CZELThumbFlashCache::m_CreateDir [%s] failed###\n", strDir.c_str());
        return false;
    }
    ZEL_LOG_INFO("CZELThumbFlashCache::m_CreateDir [%s] success###\n", strDir.c_str());
    return true;
}

bool CZELThumbFlashCache::RemoveDir(const char* dirName) try {
    if (dirName == nullptr) {
        ZEL_LOG_INFO("in RemoveDir dirName is NULL\n");
        return false;
    }
    return m_RemoveDir(dirName);
} catch (const std::exception& error) {
    ZEL_LOG_WARN("RemoveDir failed: %s", error.what());
    return false;
}

bool CZELThumbFlashCache::m_RemoveDir(std::string strDir) {
    if (strDir.empty()) {
        ZEL_LOG_INFO("in m_RemoveDir strDir empty...\n");
        return false;
    }
    if (access(strDir.c_str(), F_OK) != 0) {
        ZEL_LOG_INFO("in m_RemoveDir strDir[%s] not exist...\n", strDir.c_str());
        return false;
    }
    if (!RemoveTree(strDir)) {
        ZEL_LOG_INFO("[m_RemoveDir][rm -rf():%s\tfailed]\n", strDir.c_str());
        return false;
    }
    ZEL_LOG_INFO("m_RemoveDir [%s] success###\n", strDir.c_str());
    return true;
}
