/* Calls every function of the library, as C and as C++, in the empty folder given. */
#define _POSIX_C_SOURCE 200809L

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include "zel_thumbnail_flash_cache.h"
#include "zel_thumbnail_flash_cache_events.h"

enum { kWidth = 160, kHeight = 120, kPathSize = 512, kReadySeconds = 20, kTriesASecond = 100 };

#define CHECK(condition)                                                    \
    do {                                                                    \
        if (!(condition)) {                                                 \
            fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
            exit(EXIT_FAILURE);                                             \
        }                                                                   \
    } while (0)

static zel_thumbnail_flash_cache_param_h make_param(const char* filename, const char* url,
                                                    int xsize, int ysize) {
    zel_thumbnail_flash_cache_param_h param = NULL;
    CHECK(zel_create_thumbnail_flash_cache_param(&param) == 1);
    CHECK(zel_set_thumbnail_flash_cache_filename(param, filename) == 1);
    CHECK(zel_set_thumbnail_flash_cache_url(param, url) == 1);
    CHECK(zel_set_thumbnail_flash_cache_xsize(param, xsize) == 1);
    CHECK(zel_set_thumbnail_flash_cache_ysize(param, ysize) == 1);
    return param;
}

static void check_record(void) {
    zel_thumbnail_flash_cache_param_h param = make_param("/cache/ID/a.jpg", "ptp://ID/a.png", 3, 2);
    char* filename = NULL;
    char* url = NULL;
    int xsize = 0;
    int ysize = 0;
    CHECK(zel_get_thumbnail_flash_cache_filename(param, &filename) == 1);
    CHECK(zel_get_thumbnail_flash_cache_url(param, &url) == 1);
    CHECK(zel_get_thumbnail_flash_cache_xsize(param, &xsize) == 1);
    CHECK(zel_get_thumbnail_flash_cache_ysize(param, &ysize) == 1);
    CHECK(strcmp(filename, "/cache/ID/a.jpg") == 0 && strcmp(url, "ptp://ID/a.png") == 0);
    CHECK(xsize == 3 && ysize == 2);
    free(filename);
    free(url);
    CHECK(zel_destroy_thumbnail_flash_cache_param(param) == 1);
}

static void check_refusals(void) {
    CHECK(zel_create_thumbnail_flash_cache_param(NULL) == 0);
    CHECK(zel_destroy_thumbnail_flash_cache_param(NULL) == 0);
    CHECK(zel_set_thumbnail_flash_cache_xsize(NULL, 1) == 0);
    CHECK(zel_thumbnail_flash_cache_init(NULL) == 0);
}

/* A save of one pixel to nowhere answers 1 as soon as the cache is ready. */
static void wait_until_ready(void) {
    const struct timespec pause = {0, 1000000000 / kTriesASecond};
    unsigned char pixel[4] = {0, 0, 0, 0};
    zel_thumbnail_flash_cache_param_h probe = make_param("/dev/null", "probe:", 1, 1);
    int tries = kReadySeconds * kTriesASecond;
    while (zel_thumbnail_flash_cache_save_file(probe, pixel, NULL) != 1) {
        CHECK(--tries > 0);
        nanosleep(&pause, NULL);
    }
    CHECK(zel_destroy_thumbnail_flash_cache_param(probe) == 1);
}

static void check_jpeg(const char* path) {
    unsigned char start[2] = {0, 0};
    FILE* file = fopen(path, "rb");
    CHECK(file != NULL);
    CHECK(fread(start, 1, sizeof start, file) == sizeof start);
    CHECK(start[0] == 0xFF && start[1] == 0xD8);
    fclose(file);
}

static void check_index(const char* path, const char* thumbnail) {
    char text[4 * kPathSize] = "";
    FILE* file = fopen(path, "rb");
    CHECK(file != NULL);
    CHECK(fread(text, 1, sizeof text - 1, file) > 0);
    CHECK(strstr(text, thumbnail) != NULL);
    fclose(file);
}

/* Does nothing where there is no engine. */
static void hand_over_event(void) {
#ifdef __cplusplus
    _zel_storage_s* nothing = NULL;
    zel_thumbnail_flash_cache_storage_event(1, nothing);
#endif
}

static void check_cache(const char* folder) {
    static unsigned char pixels[4 * kWidth * kHeight];
    char index[kPathSize];
    char device[kPathSize];
    char thumbnail[kPathSize + sizeof "/picture.jpg"];
    snprintf(index, sizeof index, "%s/index", folder);
    snprintf(device, sizeof device, "%s/DEVICE", folder);
    snprintf(thumbnail, sizeof thumbnail, "%s/picture.jpg", device);
    CHECK(mkdir(device, 0777) == 0);

    hand_over_event();
    CHECK(zel_thumbnail_flash_cache_init(index) == 1);
    hand_over_event();
    wait_until_ready();
    zel_thumbnail_flash_cache_param_h param =
        make_param(thumbnail, "/opt/storage/usb/sda1/picture.png", kWidth, kHeight);
    CHECK(zel_thumbnail_flash_cache_save_file(param, pixels, NULL) == 1);
    CHECK(zel_thumbnail_flash_cache_save_file(param, NULL, NULL) == 0);
    CHECK(zel_destroy_thumbnail_flash_cache_param(param) == 1);
    CHECK(zel_thumbnail_flash_cache_clear() == 1);
    hand_over_event();
    CHECK(zel_thumbnail_flash_cache_clear() == 1);

    check_jpeg(thumbnail);
    check_index(index, thumbnail);
}

int main(int argc, char** argv) {
    CHECK(argc == 2);
    check_record();
    check_refusals();
    check_cache(argv[1]);
    return EXIT_SUCCESS;
}
