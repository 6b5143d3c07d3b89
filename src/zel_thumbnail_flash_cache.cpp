#include "zel_thumbnail_flash_cache.h"

#include <cstdlib>
#include <cstring>
#include <exception>

#include "zel_thumbnail_flash_cache_internal.h"
#include "zel_thumbnail_flash_cache_internal/util/log.h"

// Ends a call that cannot be served. The line of log names the function that it stands in.
#define ZEL_REFUSE_IF(condition, reason) \
    do {                                 \
        if (condition) {                 \
            ZEL_LOG_WARN(reason);        \
            return 0;                    \
        }                                \
    } while (false)

struct _zel_thumbnail_flash_cache_param_s {
    char* filename;
    char* url;
    int xsize;
    int ysize;
};

namespace {

using Engine = CZELSingleton<CZELThumbFlashCache>;

// Gives a field a copy of a text, or null when there is no memory. The earlier copy is released
// last: the text may be a part of it.
bool ReplaceCopy(char*& field, const char* text) {
    char* earlier = field;
    field = strdup(text);
    std::free(earlier);
    return field != nullptr;
}

}  // namespace

int zel_create_thumbnail_flash_cache_param(zel_thumbnail_flash_cache_param_h* out) try {
    ZEL_REFUSE_IF(out == nullptr, "Invalid param.");
    *out = new _zel_thumbnail_flash_cache_param_s{};
    return 1;
} catch (const std::exception&) {
    ZEL_LOG_WARN("Out of memory.");
    return 0;
}

int zel_destroy_thumbnail_flash_cache_param(zel_thumbnail_flash_cache_param_h param) {
    ZEL_REFUSE_IF(param == nullptr, "Invalid param.");
    std::free(param->filename);
    std::free(param->url);
    delete param;
    return 1;
}

int zel_set_thumbnail_flash_cache_filename(zel_thumbnail_flash_cache_param_h param,
                                           const char* filename) {
    ZEL_REFUSE_IF(param == nullptr || filename == nullptr || *filename == '\0', "Invalid param.");
    ZEL_REFUSE_IF(!ReplaceCopy(param->filename, filename), "Out of memory.");
    return 1;
}

int zel_set_thumbnail_flash_cache_url(zel_thumbnail_flash_cache_param_h param, const char* url) {
    ZEL_REFUSE_IF(param == nullptr || url == nullptr || *url == '\0', "Invalid param.");
    ZEL_REFUSE_IF(!ReplaceCopy(param->url, url), "Out of memory.");
    return 1;
}

int zel_set_thumbnail_flash_cache_xsize(zel_thumbnail_flash_cache_param_h param, int xsize) {
    ZEL_REFUSE_IF(param == nullptr, "Invalid param.");
    param->xsize = xsize;
    return 1;
}

int zel_set_thumbnail_flash_cache_ysize(zel_thumbnail_flash_cache_param_h param, int ysize) {
    ZEL_REFUSE_IF(param == nullptr, "Invalid param.");
    param->ysize = ysize;
    return 1;
}

int zel_get_thumbnail_flash_cache_filename(zel_thumbnail_flash_cache_param_h param, char** out) {
    ZEL_REFUSE_IF(param == nullptr || out == nullptr || param->filename == nullptr,
                  "Invalid param.");
    *out = strdup(param->filename);
    ZEL_REFUSE_IF(*out == nullptr, "Out of memory.");
    return 1;
}

int zel_get_thumbnail_flash_cache_url(zel_thumbnail_flash_cache_param_h param, char** out) {
    ZEL_REFUSE_IF(param == nullptr || out == nullptr || param->url == nullptr, "Invalid param.");
    *out = strdup(param->url);
    ZEL_REFUSE_IF(*out == nullptr, "Out of memory.");
    return 1;
}

int zel_get_thumbnail_flash_cache_xsize(zel_thumbnail_flash_cache_param_h param, int* out) {
    ZEL_REFUSE_IF(param == nullptr || out == nullptr, "Invalid param.");
    *out = param->xsize;
    return 1;
}

int zel_get_thumbnail_flash_cache_ysize(zel_thumbnail_flash_cache_param_h param, int* out) {
    ZEL_REFUSE_IF(param == nullptr || out == nullptr, "Invalid param.");
    *out = param->ysize;
    return 1;
}

int zel_thumbnail_flash_cache_init(const char* strCachePath) try {
    ZEL_LOG_INFO("zel_thumbnail_flash_cache_init");
    return Engine::GetInstance()->Create(strCachePath);
} catch (const std::exception& error) {
    ZEL_LOG_WARN("no engine: %s", error.what());
    return 0;
}

int zel_thumbnail_flash_cache_clear() {
    ZEL_LOG_INFO("zel_thumbnail_flash_cache_clear");
    Engine::DestroyInstance();
    return 1;
}

int zel_thumbnail_flash_cache_save_file(zel_thumbnail_flash_cache_param_h param,
                                        unsigned char* buffer, char* bufferPreset) try {
    ZEL_LOG_INFO("zel_thumbnail_flash_cache_save_file");
    ZEL_REFUSE_IF(param == nullptr, "Invalid param.");
    return Engine::GetInstance()->SaveFlashFile(buffer, param->xsize, param->ysize, param->filename,
                                                param->url, bufferPreset);
} catch (const std::exception& error) {
    ZEL_LOG_WARN("no engine: %s", error.what());
    return 0;
}
