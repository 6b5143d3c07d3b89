/**
 * @file
 * Thumbnails of storages that come.
 */
#ifndef ZEL_TOOLS_STORAGE_SAVER_H
#define ZEL_TOOLS_STORAGE_SAVER_H

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cache_session.h"
#include "options.h"
#include "picture_stream.h"
#include "storages.h"
#include "thumbnail_store.h"

/**
 * A thread that makes the thumbnails of all attached USB storages. The storage that was connected
 * last comes first, and of a storage the folder that was modified last. Thumbnails that are in the
 * cache are kept. It ends where the next thumbnail would take the place of one that it has just
 * made or kept.
 */
class StorageSaver {
public:
    /**
     * Starts nothing yet.
     * @param options  the index, the size and the number of jobs; outlives the object
     * @param cache    the folder of the cache, a canonical path
     * @param session  the cache, ready; outlives the object
     */
    StorageSaver(const Options& options, std::filesystem::path cache, const CacheSession& session);

    /** Ends the thread, once the pictures that are being decoded are done with. */
    ~StorageSaver();

    StorageSaver(const StorageSaver&) = delete;
    StorageSaver& operator=(const StorageSaver&) = delete;

    /** Starts with the storages that are attached. Throws std::system_error. */
    void Start();

    /** Goes on with a storage that has been connected. Any thread may call it. */
    void Connect(const std::string& mount);

    /**
     * Leaves a storage that is gone. Any thread may call it; it waits for one thumbnail at most
     * that is being saved, never for a picture that is being read.
     * @param mount   its mount path
     * @param forget  removes its thumbnails from the cache; none is saved during the call or later
     */
    void Remove(const std::string& mount, const std::function<void()>& forget);

private:
    /** What is known of a mount path. */
    struct Mount {
        std::uint64_t connected = 0; /**< the later, the larger */
        std::uint64_t removals = 0;  /**< how often a storage was removed from it */
        std::size_t saved = 0;       /**< of the storage that is there */
        bool is_done = false;        /**< likewise */
        bool is_cut_short = false;   /**< likewise; the cache has no room for the rest */
    };

    /** A storage, and how often one had been removed from its mount path before it was seen. */
    struct Attached {
        Storage storage;
        std::uint64_t connected;
        std::uint64_t removals;
    };

    void Run();
    [[nodiscard]] bool WaitForStorages();
    void SaveAll();
    [[nodiscard]] std::vector<Attached> ListUnfinished();
    void Save(const Attached& attached, std::uintmax_t& bytes);
    [[nodiscard]] bool MayBegin(const Attached& attached);
    [[nodiscard]] std::vector<std::string> ListPictures(const Attached& attached);
    [[nodiscard]] ThumbnailStore ReadStore();
    [[nodiscard]] bool SaveNext(const Attached& attached, PictureStream& pictures,
                                ThumbnailStore& store, std::uintmax_t& bytes);
    [[nodiscard]] bool MayGoOn(const Attached& attached);

    const Options& options_;
    const CacheSession& session_;
    const std::filesystem::path cache_;
    std::thread thread_;

    /** Held while a thumbnail is saved. */
    std::mutex mutex_;

    // Under the mutex.
    std::map<std::string, Mount> mounts_;
    std::uint64_t connections_ = 0;
    bool has_changed_ = true;
    bool is_ending_ = false;
    std::condition_variable changed_;
};

#endif
