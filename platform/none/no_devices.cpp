// A media-content database and a storage service that know no device, for programs that need the
// library without a platform.
#include "zel_platform_media_content.h"
#include "zel_platform_storage.h"

extern "C" {

int media_content_connect(void) { return 0; }
int media_content_disconnect(void) { return 0; }
int media_filter_create(media_filter_h*) { return -1; }
int media_filter_destroy(media_filter_h) { return 0; }
int media_storage_foreach_storage_from_db(media_filter_h, media_storage_cb, void*) { return -1; }
int media_storage_clone(media_storage_h*, media_storage_h) { return -1; }
int media_storage_destroy(media_storage_h) { return 0; }
int media_storage_get_path(media_storage_h, char**) { return -1; }
int media_storage_get_storage_id(media_storage_h, char**) { return -1; }

int zel_get_usb_list(enum zel_storage_device_type, void**) { return -1; }
int zel_storage_get_list_count(void*) { return 0; }
struct _zel_storage_s* zel_storage_get_storage(int, void*) {
    return nullptr;
}
const char* zel_storage_get_mountpath(struct _zel_storage_s*) { return nullptr; }
const char* zel_storage_get_serialnumber(struct _zel_storage_s*) { return nullptr; }
int zel_storage_list_destory(void*) { return 0; }
}
