/**
 * @file
 * The storage service that the library expects of its platform: the storages that are attached now.
 *
 * All functions may be called from any thread; one list is used by one thread at a time.
 */
#ifndef ZEL_PLATFORM_STORAGE_H
#define ZEL_PLATFORM_STORAGE_H

#ifdef __cplusplus
extern "C" {
#endif

/**
 * The kinds of storage that can be listed. The first and the last are never used: they give the
 * type the range of an int.
 */
enum zel_storage_device_type {
    ZEL_STORAGE_DEVICE_TYPE_MIN = -1,
    ZEL_STORAGE_DEVICE_TYPE_USB = 1, /**< USB mass storage, mounted */
    ZEL_STORAGE_DEVICE_TYPE_PTP = 2, /**< PTP camera */
    ZEL_STORAGE_DEVICE_TYPE_MAX = 0x7fffffff,
};

/**
 * What happened to a storage. The first and the last are never used: they give the type the range
 * of an int.
 */
enum zel_storage_event_e {
    ZEL_STORAGE_EVENT_MIN = -1,
    ZEL_STORAGE_EVENT_CONNECTED = 1, /**< the storage has come */
    ZEL_STORAGE_EVENT_REMOVED = 2,   /**< the storage is gone */
    ZEL_STORAGE_EVENT_MAX = 0x7fffffff,
};

/** One storage; it belongs to the list, or to the event, that it came from. */
struct _zel_storage_s;

/**
 * Lists the storages of one kind that are attached now.
 * @param type  the kind
 * @param list  receives the list, to be released with zel_storage_list_destory(); null before the
 *              call, and after a failed one
 * @return 0 for success, another value for failure
 */
int zel_get_usb_list(enum zel_storage_device_type type, void** list);

/** The number of storages in a list. */
int zel_storage_get_list_count(void* list);

/** The storage at an index from 0 on, or null. It stays valid until the list is released. */
struct _zel_storage_s* zel_storage_get_storage(int index, void* list);

/** The directory at which the storage is mounted, owned by the storage; empty for a camera. */
const char* zel_storage_get_mountpath(struct _zel_storage_s* storage);

/** The serial number of the device, owned by the storage; null or empty when it has none. */
const char* zel_storage_get_serialnumber(struct _zel_storage_s* storage);

/** Releases a list with its storages; null is accepted. */
int zel_storage_list_destory(void* list);

#ifdef __cplusplus
}
#endif

#endif
