#include <boost/bind/bind.hpp>
#include <boost/thread/thread.hpp>
#include <exception>
#include <tuple>
#include <utility>

#include "util/log.h"
#include "zel_platform_media_content.h"
#include "zel_thumbnail_flash_cache_internal.h"

template CZELThumbFlashCache* CZELSingleton<CZELThumbFlashCache>::m_pObj;

CZELThumbFlashCache::CZELThumbFlashCache() : m_EvictionHeadroom(ZEL_EVICTION_HEADROOM) {
    ZEL_LOG_INFO("constuct...");
    g_mutex_init(&m_Mutex);
}

CZELThumbFlashCache::~CZELThumbFlashCache() {
    m_AwaitWorkers();
    m_Destroy();
}

bool CZELThumbFlashCache::Create(const char* strCachePath) try {
    if (strCachePath == nullptr) {
        ZEL_LOG_INFO("strCachePath is null");
        return false;
    }
    m_SetCachePath(strCachePath);
    ZEL_LOG_INFO("start CZELThumbFlashCache::Create()");
    {
        const std::lock_guard<std::mutex> lock(m_WorkerMutex);
        ++m_WorkerCount;
    }
    try {
        boost::thread(boost::bind(&CZELThumbFlashCache::m_RunCreate, this)).detach();
    } catch (...) {
        m_FinishWorker();
        throw;
    }
    ZEL_LOG_INFO("end CZELThumbFlashCache::Create()");
    return true;
} catch (const std::exception& error) {
    ZEL_LOG_WARN("failed to start the worker: %s", error.what());
    return false;
}

void CZELThumbFlashCache::m_SetCachePath(std::string strCachePath) {
    {
        const std::lock_guard<std::mutex> lock(m_WorkerMutex);
        m_strNextCachePath = std::move(strCachePath);
    }
    // Whoever holds the lock works with the earlier path, perhaps for seconds: the worker that
    // comes after takes the new one over.
    if (m_Lock.TryAcquire()) {
        m_TakeNextCachePath();
        m_Lock.Release();
    }
}

void CZELThumbFlashCache::m_TakeNextCachePath() {
    const std::lock_guard<std::mutex> lock(m_WorkerMutex);
    if (m_strNextCachePath && *m_strNextCachePath != m_strCachePath) {
        m_strCachePath.swap(*m_strNextCachePath);
        m_ThumbFile.Forget();
    }
    m_strNextCachePath.reset();
}

void CZELThumbFlashCache::m_RunCreate() {
    std::ignore = m_Create();  // FlagCreate() tells
    m_FinishWorker();
}

void CZELThumbFlashCache::m_FinishWorker() {
    const std::lock_guard<std::mutex> lock(m_WorkerMutex);
    --m_WorkerCount;
    // Still under the lock: as soon as it is released, the destructor may go on.
    m_WorkerFinished.notify_all();
}

void CZELThumbFlashCache::m_AwaitWorkers() {
    std::unique_lock<std::mutex> lock(m_WorkerMutex);
    m_WorkerFinished.wait(lock, [this] { return m_WorkerCount == 0; });
}

bool CZELThumbFlashCache::m_Create() {
    ZEL_LOG_INFO("start CZELThumbFlashCache::Create...\n");
    {
        const CZELMutexGuard guard(m_Lock);
        m_TakeNextCachePath();
        if (m_bIsCreated) {
            ZEL_LOG_INFO("Create m_bIsCreated is true###\n");
            return true;
        }
        ZEL_LOG_INFO("start CZELThumbFlashCache::Create111...\n");
        m_ResetState();
        if (media_content_connect() != 0) {
            ZEL_LOG_INFO("failed to Media_content_connect");
            return false;
        }
        ZEL_LOG_INFO("start usb_device_init...\n");
        ZEL_LOG_INFO("zel usb....\n");
        ZEL_LOG_INFO("end usb_device_init2222...\n");
        try {
            // What cannot be loaded or learnt is logged there; the engine works with the rest.
            std::ignore = m_LoadThumbFile();
            ZEL_LOG_INFO("end m_LoadThumbFile...\n");
            std::ignore = m_InitDeviceList();
        } catch (const std::exception& error) {
            // What was read stops anywhere then, and so do the known devices: working on would
            // throw away the data of devices that are there.
            ZEL_LOG_WARN("creation failed: %s", error.what());
            m_ResetState();
            m_ThumbFile.ForgetUnread();
            std::ignore = media_content_disconnect();  // nothing depends on it any more
            return false;
        }
        m_bIsCreated = true;
    }
    ZEL_LOG_INFO("end FlashCache Create...\n");
    return true;
}

void CZELThumbFlashCache::m_ResetState() {
    m_MountPathMap.clear();
    m_PtpDeviceMap.clear();
    m_CacheSize = 0;
    m_ThumbItemList.clear();
    m_ThumbFolderList.clear();
    m_DamagedSizes = 0;
    m_ThumbFile.Forget();
}

void CZELThumbFlashCache::m_Destroy() {
    m_MountPathMap.clear();
    g_mutex_clear(&m_Mutex);
    if (m_bIsCreated && media_content_disconnect() != 0) {
        ZEL_LOG_INFO("failed to Media_content_disconnect");
    }
    m_bIsCreated = false;
}

bool CZELThumbFlashCache::FlagCreate() { return m_bIsCreated; }
