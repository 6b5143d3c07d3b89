/**
 * @file
 * A persistent cache of thumbnails on internal flash, for pictures on removable storage.
 *
 * A media browser decodes the thumbnail of a picture on a USB stick or a PTP camera once and hands
 * it to this library. The library keeps it as a JPEG file, records it in a text index (the thumb
 * file) that survives a restart, and deletes the thumbnails of a device that is gone. Before a save
 * whose uncompressed size would take all thumbnails together above 104857600 bytes, it deletes the
 * oldest.
 *
 * @code
 *   zel_thumbnail_flash_cache_init("/var/cache/thumbs/index");
 *
 *   zel_thumbnail_flash_cache_param_h param;
 *   zel_create_thumbnail_flash_cache_param(&param);
 *   zel_set_thumbnail_flash_cache_filename(param, "/var/cache/thumbs/ID/picture.jpg");
 *   zel_set_thumbnail_flash_cache_url(param, "/opt/storage/usb/sda1/DCIM/picture.png");
 *   zel_set_thumbnail_flash_cache_xsize(param, 160);
 *   zel_set_thumbnail_flash_cache_ysize(param, 120);
 *   zel_thumbnail_flash_cache_save_file(param, pixels, NULL);
 *   zel_destroy_thumbnail_flash_cache_param(param);
 *
 *   zel_thumbnail_flash_cache_clear();
 * @endcode
 *
 * Results: every function returns 1 for success and 0 for failure. A failure is explained by one
 * line in the platform's log. No function throws, and none ends the process. A thread is not
 * cancelled (pthread_cancel) while it is in one of them: that can end the process.
 *
 * Ownership: strings are copied in and copied out. A string that a getter hands out belongs to the
 * caller, who releases it with free().
 *
 * Threads: a record is used by one thread at a time. Saves may run on any number of threads, each
 * with a record of its own; they are carried out one after another. The first call of
 * zel_thumbnail_flash_cache_init() (or of the first save) and every call of
 * zel_thumbnail_flash_cache_clear() are made while no other call of this interface runs.
 *
 * Devices that go while the cache runs: their thumbnails are deleted at the next start, or at once
 * where the program that hosts the library hands the platform's storage events to the engine.
 *
 * Stack: a save uses about 28 KiB of the calling thread's stack, and the platform's log what it
 * needs.
 *
 * One process at a time uses one thumb file, and the file of its name with ".new" at the end
 * belongs to the library. After a fork the child makes no call.
 *
 * Signals: a write beyond a limit on the size of files (SIGXFSZ) or into a pipe without a reader
 * (SIGPIPE) ends a process that does not ignore these signals.
 */
#ifndef ZEL_THUMBNAIL_FLASH_CACHE_H
#define ZEL_THUMBNAIL_FLASH_CACHE_H

#if defined(__GNUC__)
#define ZEL_THUMBNAIL_FLASH_CACHE_API __attribute__((visibility("default")))
#else
#define ZEL_THUMBNAIL_FLASH_CACHE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** A cache parameter record: the description of one thumbnail. The caller owns it. */
typedef struct _zel_thumbnail_flash_cache_param_s* zel_thumbnail_flash_cache_param_h;

/**
 * Makes a record with no file name, no URL and a size of 0 x 0 pixels.
 * @param out  receives the record, to be released with zel_destroy_thumbnail_flash_cache_param();
 *             unchanged on failure
 * @return 1; 0 when out is null or memory is short
 */
ZEL_THUMBNAIL_FLASH_CACHE_API int zel_create_thumbnail_flash_cache_param(
    zel_thumbnail_flash_cache_param_h* out);

/**
 * Releases a record with its strings. Thumbnails saved with it stay.
 * @return 1; 0 when param is null
 */
ZEL_THUMBNAIL_FLASH_CACHE_API int zel_destroy_thumbnail_flash_cache_param(
    zel_thumbnail_flash_cache_param_h param);

/**
 * Sets the full path of the image file to write. Its last directory is the device's folder in the
 * cache and is named after the device: the id of the storage in the platform's media-content
 * database, or the serial number of the camera. The folder exists before the save, and the folder,
 * with everything in it, is deleted when the device is found to be gone.
 *
 * The path holds neither a double quote nor ">", and path and folder together stay below 950 bytes:
 * the thumb file cannot hold another record, so the thumbnail is refused and its file removed.
 *
 * @param filename  copied; an earlier file name of the record is released
 * @return 1; 0 when an argument is null or the file name empty (the record is unchanged), or when
 *         memory is short (the record has no file name then)
 */
ZEL_THUMBNAIL_FLASH_CACHE_API int zel_set_thumbnail_flash_cache_filename(
    zel_thumbnail_flash_cache_param_h param, const char* filename);

/**
 * Sets the location of the picture that the thumbnail shows: a path that contains
 * "/opt/storage/usb/" and, after it, a device directory of two characters or more and "/" for USB
 * mass storage, or a URL that contains "ptp://" for a camera.
 * @param url  copied; an earlier URL of the record is released
 * @return as for zel_set_thumbnail_flash_cache_filename()
 */
ZEL_THUMBNAIL_FLASH_CACHE_API int zel_set_thumbnail_flash_cache_url(
    zel_thumbnail_flash_cache_param_h param, const char* url);

/**
 * Sets the width of the thumbnail in pixels, 1 to 65500. A save with another width makes room for
 * it and then writes nothing.
 * @return 1; 0 when param is null
 */
ZEL_THUMBNAIL_FLASH_CACHE_API int zel_set_thumbnail_flash_cache_xsize(
    zel_thumbnail_flash_cache_param_h param, int xsize);

/**
 * Sets the height of the thumbnail in pixels, 1 to 65500. A save with another height makes room for
 * it and then writes nothing.
 * @return 1; 0 when param is null
 */
ZEL_THUMBNAIL_FLASH_CACHE_API int zel_set_thumbnail_flash_cache_ysize(
    zel_thumbnail_flash_cache_param_h param, int ysize);

/**
 * Gets a copy of the file name.
 * @param out  receives the copy, to be released with free(); null when memory is short
 * @return 1; 0 when an argument is null or the file name was never set (*out is unchanged), or when
 *         memory is short
 */
ZEL_THUMBNAIL_FLASH_CACHE_API int zel_get_thumbnail_flash_cache_filename(
    zel_thumbnail_flash_cache_param_h param, char** out);

/**
 * Gets a copy of the URL.
 * @param out  receives the copy, to be released with free(); null when memory is short
 * @return as for zel_get_thumbnail_flash_cache_filename()
 */
ZEL_THUMBNAIL_FLASH_CACHE_API int zel_get_thumbnail_flash_cache_url(
    zel_thumbnail_flash_cache_param_h param, char** out);

/**
 * Gets the width in pixels.
 * @return 1; 0 when an argument is null (*out is unchanged)
 */
ZEL_THUMBNAIL_FLASH_CACHE_API int zel_get_thumbnail_flash_cache_xsize(
    zel_thumbnail_flash_cache_param_h param, int* out);

/**
 * Gets the height in pixels.
 * @return 1; 0 when an argument is null (*out is unchanged)
 */
ZEL_THUMBNAIL_FLASH_CACHE_API int zel_get_thumbnail_flash_cache_ysize(
    zel_thumbnail_flash_cache_param_h param, int* out);

/**
 * Starts the cache and returns at once. A worker thread connects to the platform's media-content
 * database, reads the thumb file, asks which devices are there and deletes the thumbnails of those
 * that are not; this may take seconds. Until it is done a save answers 0 or waits. Call it when the
 * devices are mounted and listed: what is not there then is taken to be gone.
 *
 * How to know that the cache is ready: save a picture of one pixel with the file name "/dev/null"
 * and a URL that is neither USB nor camera, "probe:" say. Nothing is kept of it, and it answers 1
 * as soon as the cache is ready. A caller asks again after a pause of its choice, and gives up
 * after a time of its choice: the cache stays unready when the database refused the connection, and
 * this function may be called again to try once more.
 *
 * A call on a ready cache only changes the path that later records are written to.
 *
 * @param strCachePath  path of the thumb file, copied; the file need not exist, its directory must
 * @return 1 when the worker was started; 0 when the path is null, memory is short or no thread can
 *         be started
 */
ZEL_THUMBNAIL_FLASH_CACHE_API int zel_thumbnail_flash_cache_init(const char* strCachePath);

/**
 * Saves one thumbnail: writes it as a JPEG file of quality 100 at the record's file name, replacing
 * a file of that name, and records it in the thumb file. When the cache is full the oldest
 * thumbnails are deleted first. The call returns when the file is written.
 *
 * A second save to a name adds a second record, which counts like the first: when the older one is
 * evicted, the file goes, and the newer names a file that is gone. A caller that wants to replace a
 * thumbnail chooses a new name.
 *
 * @param param         the record, with file name, URL and size set; it is only read and may be
 *                      released or changed as soon as the call returns
 * @param buffer        xsize x ysize pixels, rows from top to bottom without gaps, 4 bytes a pixel:
 *                      blue, green, red and one byte that is ignored (4 * xsize * ysize bytes);
 *                      only read
 * @param bufferPreset  null, or 4096 readable bytes with a text that ends with a zero byte within
 *                      them; the 4096 bytes are written to the file after the image;
 *                      a full device that cuts them short is not reported
 * @return for a USB or camera URL: 1 when the request was taken, even when the file or its record
 *         could not be written (the log says so). For any other URL: 1 when the file was written,
 *         else 0; such a file is not part of the cache and never deleted. 0 in every other case:
 *         the cache is not ready, an argument is null, the record lacks a string, the file name has
 *         no device folder, a USB URL has no "/" after its device directory, or memory is short.
 */
ZEL_THUMBNAIL_FLASH_CACHE_API int zel_thumbnail_flash_cache_save_file(
    zel_thumbnail_flash_cache_param_h param, unsigned char* buffer, char* bufferPreset);

#ifdef __cplusplus
}

/**
 * Stops the cache: waits until workers that zel_thumbnail_flash_cache_init() started have finished,
 * closes the connection to the database and releases all memory. Files stay for the next start.
 * @return 1, also when there is no cache
 */
ZEL_THUMBNAIL_FLASH_CACHE_API int zel_thumbnail_flash_cache_clear();
#else
/** As above; the name of the symbol is that of a C++ function. */
ZEL_THUMBNAIL_FLASH_CACHE_API int zel_thumbnail_flash_cache_clear(void) __asm__(
    "_Z31zel_thumbnail_flash_cache_clearv");
#endif

#endif
