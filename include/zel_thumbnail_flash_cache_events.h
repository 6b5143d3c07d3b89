/**
 * @file
 * Storage events for the thumbnail cache, for C++ hosts: one inline function for the callback that
 * a host registers with the storage service of its device.
 *
 * The order of calls: zel_thumbnail_flash_cache_init(), then the registration; at the end the
 * registration is taken back, and no callback runs any more, before
 * zel_thumbnail_flash_cache_clear().
 */
#ifndef ZEL_THUMBNAIL_FLASH_CACHE_EVENTS_H
#define ZEL_THUMBNAIL_FLASH_CACHE_EVENTS_H

/** One storage of the storage service. */
struct _zel_storage_s;

#ifdef __cplusplus

class CZELThumbFlashCache;

/* The engine's own, under their names in the library: the instance, null when there is none, and
 * what it does with an event. */
extern CZELThumbFlashCache* zel_thumbnail_flash_cache_engine __asm__(
    "_ZN13CZELSingletonI19CZELThumbFlashCacheE6m_pObjE");
void zel_thumbnail_flash_cache_take_event(void* engine, int event, _zel_storage_s*& storage) __asm__(
    "_ZN19CZELThumbFlashCache24s_ZELUSBConnctedCallbackEPv19zel_storage_event_eRP14_zel_storage_s");

/**
 * Hands an event to the cache, which drops what belongs to a storage that has been removed, and
 * lets all other events pass. Does nothing before the cache's first call and after its clear. May
 * be called from any thread, also by several at once, but not while
 * zel_thumbnail_flash_cache_clear() runs. Takes as long as the removal, behind a save or a start
 * that is in progress. Throws nothing.
 * @param event    2 when the storage has been removed; a zel_storage_event_e is taken as it is
 * @param storage  the storage, valid during the call, as the service has it in its event
 */
inline void zel_thumbnail_flash_cache_storage_event(int event, _zel_storage_s*& storage) {
    if (zel_thumbnail_flash_cache_engine != nullptr) {
        zel_thumbnail_flash_cache_take_event(zel_thumbnail_flash_cache_engine, event, storage);
    }
}

#endif

#endif
