/**
 * @file
 * The cache engine: all state of the cache and everything that is done with it.
 */
#ifndef ZEL_THUMBNAIL_FLASH_CACHE_INTERNAL_H
#define ZEL_THUMBNAIL_FLASH_CACHE_INTERNAL_H

#include <glib.h>

#include <atomic>
#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <condition_variable>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "util/zel_intrusive_ptr_base.h"
#include "zel_platform_storage.h"
#include "zel_thumbnail_flash_cache_internal/thumb_file.h"
#include "zel_thumbnail_flash_cache_internal/util/mutex_guard.h"
#include "zel_thumbnail_flash_cache_internal/util/thread_annotations.h"

/** The ceiling of the accounted cache size in bytes; a total of exactly this is allowed. */
constexpr int ZEL_FLASH_CACHE_MAX = 104857600;

/** The kind of device that a thumbnail or a folder belongs to, as it stands in the thumb file. */
enum { DEVICE_TYPE_USB = 0, DEVICE_TYPE_PTP = 1 };

/** Holds the one instance of T. Not synchronised: see the public header for who may call when. */
template <class T>
class __attribute__((visibility("default"))) CZELSingleton {
public:
    /** The instance, made on first use. Throws what making it throws. */
    static T* GetInstance() {
        if (m_pObj == nullptr) {
            m_pObj = new T();
        }
        return m_pObj;
    }

    /** Deletes the instance if there is one. */
    static void DestroyInstance() {
        delete m_pObj;
        m_pObj = nullptr;
    }

    static T* m_pObj;
};

template <class T>
T* CZELSingleton<T>::m_pObj = nullptr;

/**
 * The engine. Each member says whether it is called with the lock held (ZEL_REQUIRES) or takes it
 * itself (ZEL_EXCLUDES); one that says neither needs no lock and may be called from any thread.
 * Results are true for success; every failure is explained by one line of log. Hidden members are
 * not exported, as no test and no host needs them.
 */
class __attribute__((visibility("default"))) CZELThumbFlashCache
    : public CZELSingleton<CZELThumbFlashCache> {
public:
    /** One cached thumbnail. */
    class CZELFlashCacheItem : public ZEL_IntrusivePtr_Base<CZELFlashCacheItem> {
    public:
        std::string Path;    ///< the device folder that holds the image file
        std::string URL;     ///< full path of the image file
        long Size = 0;       ///< bytes accounted for it, within 32 bits
        int Devicetype = 0;  ///< DEVICE_TYPE_USB or DEVICE_TYPE_PTP
    };

    /** One folder of the cache, with the thumbnails of one device. */
    class CZELFlashCacheFolderItem : public ZEL_IntrusivePtr_Base<CZELFlashCacheFolderItem> {
    public:
        std::string Sid;     ///< id of the device, the last component of Path
        std::string Path;    ///< full path of the folder
        int Devicetype = 0;  ///< DEVICE_TYPE_USB or DEVICE_TYPE_PTP
    };

    using ItemList = std::list<boost::intrusive_ptr<CZELFlashCacheItem>>;
    using DeviceMap = std::map<std::string, std::string>;
    using FolderList = std::list<boost::intrusive_ptr<CZELFlashCacheFolderItem>>;

    /** An idle engine: saves are refused until Create() has done its work. */
    CZELThumbFlashCache();

    /** Waits for the workers that Create() started, then releases everything. Files stay. */
    virtual ~CZELThumbFlashCache();

    CZELThumbFlashCache(const CZELThumbFlashCache&) = delete;
    CZELThumbFlashCache& operator=(const CZELThumbFlashCache&) = delete;

    /**
     * Sets the path of the thumb file and starts a worker thread that makes the engine ready. While
     * an earlier worker or a save holds the lock, the path is set when the new worker has it.
     * @return false when the path is null or no thread can be started
     */
    [[nodiscard]] bool Create(const char* strCachePath) ZEL_EXCLUDES(m_Lock);

    /** Whether the engine is ready. */
    [[nodiscard]] bool FlagCreate();

    /**
     * Stores one thumbnail, all within one hold of the lock.
     * @param buffer        xsize * ysize pixels of 4 bytes (blue, green, red, ignored), only read
     * @param filename      full path of the image file to write; its directory exists
     * @param url           location of the picture
     * @param bufferPreset  null, or 4096 bytes that hold a zero-terminated text, only read
     * @return false when the engine is not ready, the request is invalid or memory is short; for a
     *         URL that is neither USB nor camera whether the file was written; otherwise true
     */
    [[nodiscard]] bool SaveFlashFile(unsigned char* buffer, int xsize, int ysize,
                                     const char* filename, char* url, char* bufferPreset)
        ZEL_EXCLUDES(m_Lock);

    /**
     * Drops everything that belongs to the USB storage that was mounted there: its folder with all
     * files, its thumbnails, their records and the storage itself. Of several storages known at
     * that path the first by id goes.
     * @return false when no USB storage is known at all
     */
    [[nodiscard]] bool m_RemoveStorage(std::string strMountPath) ZEL_EXCLUDES(m_Lock);

    /**
     * To be registered for storage events with the engine as user data: on event 2 drops what
     * belongs to the storage. Called on any thread. The engine outlives the registration.
     */
    static void s_ZELUSBConnctedCallback(void* userData, zel_storage_event_e event,
                                         _zel_storage_s*& storage);

    /** Whether the process may read the file or directory of that name. */
    [[nodiscard]] bool FileExist(const char* fileName);

    /** Makes one directory with mode 0777; true when it is there afterwards. */
    [[nodiscard]] bool CreateDir(const char* dirName);

    /** Removes a directory with everything in it, or a file. */
    [[nodiscard]] bool RemoveDir(const char* dirName);

    /**
     * Finds the known USB storages, as creation does.
     * @param deviceMap  is emptied and filled when USB storages are listed: id to mount path
     * @return false when the database gives no filter
     */
    [[nodiscard]] bool m_GetStorageList(DeviceMap& deviceMap);

    /**
     * Writes an uncompressed 32-bit BMP file.
     * @return false when the directory is missing or the file cannot be opened or its header not be
     *         written; a pixel row or preset block that is cut short goes unnoticed
     */
    [[nodiscard]] bool m_BmpSave(unsigned char* buffer, char* bufferPreset, int xsize, int ysize,
                                 const char* filename);

    // ---- The engine's own ----

    // Start and stop (engine.cpp)
    [[nodiscard]] bool m_Create() ZEL_EXCLUDES(m_Lock);  ///< makes the engine ready
    /** The first half of destruction; nobody else has the object any more. */
    void m_Destroy() ZEL_NO_THREAD_SAFETY_ANALYSIS;
    void m_ResetState() ZEL_REQUIRES(m_Lock);  ///< back to an empty cache
    /** Sets the path of the thumb file, now or when the next worker has the lock. */
    void m_SetCachePath(std::string strCachePath) ZEL_EXCLUDES(m_Lock);
    /** Sets the path that could not be set at once. */
    void m_TakeNextCachePath() ZEL_REQUIRES(m_Lock);
    void m_RunCreate() ZEL_EXCLUDES(m_Lock);  ///< the body of a worker thread
    void m_FinishWorker();                    ///< counts a worker as finished
    void m_AwaitWorkers();                    ///< returns when no worker is left

    // One save (save_request.cpp)
    /**
     * Classifies a request: 0 for USB, 1 for a camera, 2 for neither, 3 for an invalid one. Fills
     * the folder and the device id for 0 and 1, and the mount path for 0.
     */
    [[nodiscard]] int m_CheckUrl(unsigned char* buffer, const char* filename, char* url,
                                 std::string& strFolder, std::string& strId,
                                 std::string& strMountPath);

    // Storing one thumbnail (insertion.cpp)
    /**
     * Adds a new thumbnail's estimate to the accounted size. Above the ceiling evicts the oldest
     * until m_EvictionHeadroom bytes are free below it.
     */
    void m_ReserveSpace(long size) ZEL_REQUIRES(m_Lock);
    /**
     * Writes the image, corrects the accounted size to the size of the file, and appends the
     * records of the item and, for a folder not seen before, of the folder.
     * @param pThumbItem  loses its URL when its record cannot be written, as the image goes then
     * @param filename    the same as the item's URL
     * @return true when the image and the item's record were written
     */
    [[nodiscard]] bool m_InsertItem(boost::intrusive_ptr<CZELFlashCacheItem> pThumbItem,
                                    std::string strId, unsigned char* buffer, int xsize, int ysize,
                                    const char* filename, char* bufferPreset) ZEL_REQUIRES(m_Lock);
    /**
     * Appends the record of an item whose image was written, or deletes the image. Then appends
     * that of its folder, if that is new, and puts it with the others.
     * @param newFolder  holds the folder, or nothing; empty afterwards if the item was recorded
     */
    [[gnu::visibility("hidden"), nodiscard]] bool m_RecordItem(CZELFlashCacheItem& item,
                                                               FolderList& newFolder)
        ZEL_REQUIRES(m_Lock);
    /** Deletes the image file of an item. */
    [[nodiscard]] bool m_DeleteItem(boost::intrusive_ptr<CZELFlashCacheItem> pThumbItem)
        ZEL_REQUIRES(m_Lock);
    /** Deletes one file. */
    [[nodiscard]] bool m_RemoveThumb(std::string strFile);

    // The index (thumb_file_writer.cpp)
    /**
     * Writes the thumb file anew from both lists, but for the records that could not be read back
     * as they are. A short write is logged and answers true.
     * @return false when the file cannot be opened, or when it could not be read whole before and
     *         would lose what was not read
     */
    [[nodiscard]] bool m_RefreshThumbFile() ZEL_REQUIRES(m_Lock);
    using AppendResult = CZELThumbFile::AppendResult;
    /** Appends the text of a record to the thumb file, after a rewrite where that is needed. */
    [[nodiscard]] AppendResult m_AppendRecord(std::string_view record) ZEL_REQUIRES(m_Lock);
    /**
     * Appends an item's record. A short write is logged, undone and answers true: the record
     * follows with the next one, or with a rewrite.
     * @return false when the record could not be read back as it is, or the file not be opened
     */
    [[nodiscard]] bool m_AddItemToThumbFile(boost::intrusive_ptr<CZELFlashCacheItem> pThumbItem)
        ZEL_REQUIRES(m_Lock);
    /** Appends a folder's record, in the same way. */
    [[nodiscard]] bool m_AddFolderItemToThumbFile(
        boost::intrusive_ptr<CZELFlashCacheFolderItem> pThumbFolderItem) ZEL_REQUIRES(m_Lock);

    // Reading the index (thumb_file_loader.cpp)
    /**
     * Reads the thumb file into the lists. Where it has to stop before the end of the file, the
     * next append is preceded by a rewrite.
     * @return false when it cannot be opened or there is no memory for the buffer
     * Throws std::bad_alloc when there is none for a record; those before it are in the lists.
     */
    [[nodiscard]] bool m_LoadThumbFile() ZEL_REQUIRES(m_Lock);
    /** Reads one record from its "<" at pStart to its ">" at pStart + len. */
    [[nodiscard]] bool m_Parse(char* pStart, int len) ZEL_REQUIRES(m_Lock);
    /**
     * Reads a thumbnail record from the comma after its type at pStart to its ">" at pStart + len.
     * One whose size takes the accounted size out of 32 bits is refused, or costs one that was read
     * before and claims more than the whole cache.
     */
    [[nodiscard]] bool m_ParseItem(char* pStart, int len) ZEL_REQUIRES(m_Lock);
    /** Reads a folder record from the comma after its type at pStart to its ">" at pStart + len. */
    [[nodiscard]] bool m_ParseFolderItem(char* pStart, int len) ZEL_REQUIRES(m_Lock);

    // What the platform knows (known_devices.cpp)
    /** Learns the known devices and drops the data of all others. Always true. */
    [[nodiscard]] bool m_InitDeviceList() ZEL_REQUIRES(m_Lock);
    /**
     * Finds the known devices of one kind.
     * @param deviceMap  is emptied and filled: storage id to mount path, or serial number to "ptp";
     *                   stays as it is when no USB storage is listed or the kind is unknown
     * @return false when the kind is unknown, there is no camera, or the database gives no filter
     */
    [[nodiscard]] bool m_GetDeciveList(DeviceMap& deviceMap, zel_storage_device_type type)
        ZEL_REQUIRES(m_Lock);
    /** Keeps a clone of each storage of the database in the std::vector<void*> at userData. */
    [[nodiscard]] static bool s_GetStorageCallback(void* storage, void* userData);

    // What is gone (stale_data.cpp)
    /** Drops every folder, with its thumbnails, whose device is in neither map. Always true. */
    [[nodiscard]] bool m_DelUnvalidData(DeviceMap& usbFlashMap, DeviceMap& ptpFlashMap)
        ZEL_REQUIRES(m_Lock);
    /** Drops every folder and every thumbnail. */
    [[gnu::visibility("hidden")]] void m_RemoveAllFolders() ZEL_REQUIRES(m_Lock);
    /** Drops the folders, with their thumbnails, whose id is in neither map. */
    [[gnu::visibility("hidden")]] void m_RemoveUnknownFolders(const DeviceMap& usbFlashMap,
                                                              const DeviceMap& ptpFlashMap)
        ZEL_REQUIRES(m_Lock);

    // Directories (directories.cpp)
    [[nodiscard]] bool m_CreateDir(std::string strDir);  ///< as CreateDir()
    [[nodiscard]] bool m_RemoveDir(std::string strDir);  ///< as RemoveDir()

    // Images (image_writers.cpp); arguments as for m_BmpSave
    /** Writes a thumbnail in the format of the cache, which is JPEG. */
    [[nodiscard]] bool m_SaveThumb(unsigned char* buffer, char* bufferPreset, int xsize, int ysize,
                                   const char* filename);
    /**
     * Writes a JPEG file of quality 100. A regular file that cannot be completed is removed; a
     * width or height outside 1 to 65,500 pixels is refused before the file is touched.
     */
    [[nodiscard]] bool m_JpegSave(unsigned char* buffer, char* bufferPreset, int xsize, int ysize,
                                  const char* filename);

    // Written under the lock, read by FlagCreate() without it.
    std::atomic<bool> m_bIsCreated{false};

    // The one lock of the engine, never taken twice on one path, and its name in the analysis.
    GMutex m_Mutex;
    CZELLock m_Lock{m_Mutex};

    // Known USB storages, id to mount path, and known cameras, serial number to "ptp".
    DeviceMap m_MountPathMap ZEL_GUARDED_BY(m_Lock);
    DeviceMap m_PtpDeviceMap ZEL_GUARDED_BY(m_Lock);
    // Path of the thumb file.
    std::string m_strCachePath ZEL_GUARDED_BY(m_Lock);
    // The sum of the sizes of the items, and of the save's in progress.
    int m_CacheSize ZEL_GUARDED_BY(m_Lock) = 0;
    // Every thumbnail, oldest first, and every device folder. The lock guards their fields as well.
    ItemList m_ThumbItemList ZEL_GUARDED_BY(m_Lock);
    FolderList m_ThumbFolderList ZEL_GUARDED_BY(m_Lock);
    // How many thumbnails were read that claim more than the whole cache.
    int m_DamagedSizes ZEL_GUARDED_BY(m_Lock) = 0;
    CZELThumbFile m_ThumbFile ZEL_GUARDED_BY(m_Lock){m_strCachePath};

    // Guarded by m_WorkerMutex, which the analysis does not know.
    std::mutex m_WorkerMutex;
    std::condition_variable m_WorkerFinished;
    int m_WorkerCount = 0;                          ///< workers that still use this object
    std::optional<std::string> m_strNextCachePath;  ///< to become m_strCachePath

    // The bytes below the ceiling that an eviction leaves free, once one is needed.
    int m_EvictionHeadroom ZEL_GUARDED_BY(m_Lock);
};

extern template CZELThumbFlashCache* CZELSingleton<CZELThumbFlashCache>::m_pObj;

#endif
