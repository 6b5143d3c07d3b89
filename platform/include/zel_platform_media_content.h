/**
 * @file
 * The media-content database that the library expects of its platform: the index of the storages
 * that were ever attached, each with an id that survives re-attachment.
 *
 * Every function returns 0 for success and another value for failure. Apart from the connection,
 * which is counted by the service, the functions keep no state and may be called from any thread
 * between media_content_connect() and media_content_disconnect().
 */
#ifndef ZEL_PLATFORM_MEDIA_CONTENT_H
#define ZEL_PLATFORM_MEDIA_CONTENT_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/** One storage of the database. */
typedef void* media_storage_h;

/** A selection of storages; without a condition it selects every storage. */
typedef void* media_filter_h;

/**
 * Called once for each storage.
 * @param storage    valid during this call only; media_storage_clone() keeps it longer
 * @param user_data  as given to media_storage_foreach_storage_from_db()
 * @return true to go on with the next storage, false to stop
 */
typedef bool (*media_storage_cb)(media_storage_h storage, void* user_data);

/**
 * Connects the process to the database; it may take seconds. Each success is undone by one
 * disconnect.
 *
 * Fails when it cannot be known which storages and cameras are there. As long as the connection
 * lasts, what neither service lists is taken to be gone and loses its thumbnails, so a service that
 * cannot list its devices for a moment answers with those of the last time.
 */
int media_content_connect(void);

/** Ends one connection. */
int media_content_disconnect(void);

/** Makes a filter in *filter. The caller destroys it. On failure *filter is unchanged. */
int media_filter_create(media_filter_h* filter);

/** Destroys a filter; null is accepted. */
int media_filter_destroy(media_filter_h filter);

/** Calls the callback for each selected storage, on this thread, before it returns. */
int media_storage_foreach_storage_from_db(media_filter_h filter, media_storage_cb callback,
                                          void* user_data);

/** Makes an independent copy of source in *out. The caller destroys it. On failure *out is
 * unchanged. */
int media_storage_clone(media_storage_h* out, media_storage_h source);

/** Destroys a storage made by media_storage_clone(). */
int media_storage_destroy(media_storage_h storage);

/** Stores a copy of the storage's root path in *path, to be released with free(); null when it has
 * none. */
int media_storage_get_path(media_storage_h storage, char** path);

/** Stores a copy of the storage's id in *storage_id, to be released with free(); null when it has
 * none. */
int media_storage_get_storage_id(media_storage_h storage, char** storage_id);

#ifdef __cplusplus
}
#endif

#endif
