#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <exception>

#include "util/log.h"
#include "util/release.h"
#include "util/tree_removal.h"
#include "zel_thumbnail_flash_cache_internal.h"

constexpr mode_t newDirectoryMode = 0777;

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
    if (const CZELHandle<DIR, closedir> directory{opendir(strDir.c_str())}) {
        ZEL_LOG_INFO("CZELThumbFlashCache::m_CreateDir [%s] alread exist###\n", strDir.c_str());
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
