/**
 * @file
 * Storage events of the storage service for a plain Linux machine. The library itself does not call
 * these functions: whoever hosts it registers the engine's callback, with the engine as user data.
 */
#ifndef ZEL_PLATFORM_STORAGE_EVENTS_H
#define ZEL_PLATFORM_STORAGE_EVENTS_H

#include "zel_platform_storage.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Called for each storage that comes or goes, on the service's own thread.
 * @param user_data  as given at registration
 * @param event      what happened
 * @param storage    the storage, valid during this call only
 */
#ifdef __cplusplus
typedef void (*zel_storage_event_cb)(void* user_data, enum zel_storage_event_e event,
                                     struct _zel_storage_s*& storage);
#else
typedef void (*zel_storage_event_cb)(void* user_data, enum zel_storage_event_e event,
                                     struct _zel_storage_s** storage);
#endif

/**
 * Starts a thread that reports USB storages as they are mounted and unmounted, from those mounted
 * at this call on. One callback is registered at a time.
 * @return 0; another value when a callback is registered already, callback is null, the mount table
 *         cannot be watched or no thread can be started
 */
int zel_storage_register_event_cb(zel_storage_event_cb callback, void* user_data);

/**
 * Ends the reports: when it returns the callback has returned and is not called again. Must not be
 * called from the callback.
 * @return 0; another value when no callback is registered
 */
int zel_storage_unregister_event_cb(void);

#ifdef __cplusplus
}
#endif

#endif
