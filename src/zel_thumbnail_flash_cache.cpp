#include "zel_thumbnail_flash_cache.h"

#include <cstdlib>
#include <cstring>
#include <exception>

#include "zel_thumbnail_flash_cache_internal.h"
#include "zel_thumbnail_flash_cache_internal/util/log.h"

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
    if (out == nullptr) {
        ZEL_LOG_WARN("Invalid param.");
        return 0;
    }
    *out = new _zel_thumbnail_flash_cache_param_s{};
    return 1;
} catch (const std::exception&) {
    ZEL_LOG_WARN("Out of memory.");
    return 0;
}

int zel_destroy_thumbnail_flash_cache_param(zel_thumbnail_flash_cache_param_h param) {
    if (param == nullptr) {
        ZEL_LOG_WARN("Invalid param.");
        return 0;
    }
    std::free(param->filename);
    std::free(param->url);
    delete param;
    return 1;
}

int zel_set_thumbnail_flash_cache_filename(zel_thumbnail_flash_cache_param_h param,
                                           const char* filename) {
    if (param == nullptr || filename == nullptr || *filename == '\0') {
        ZEL_LOG_WARN("Invalid param.");
        return 0;
    }
    if (!ReplaceCopy(param->filename, filename)) {
        ZEL_LOG_WARN("Out of memory.");
        return 0;
    }
    return 1;
}

int zel_set_thumbnail_flash_cache_url(zel_thumbnail_flash_cache_param_h param, const char* url) {
    if (param == nullptr || url == nullptr || *url == '\0') {
        ZEL_LOG_WARN("Invalid param.");
        return 0;
    }
    if (!ReplaceCopy(param->url, url)) {
        ZEL_LOG_WARN("Out of memory.");
        return 0;
    }
    return 1;
}

int zel_set_thumbnail_flash_cache_xsize(zel_thumbnail_flash_cache_param_h param, int xsize) {
    if (param == nullptr) {
        ZEL_LOG_WARN("Invalid param.");
        return 0;
    }
    param->xsize = xsize;
    return 1;
}

int zel_set_thumbnail_flash_cache_ysize(zel_thumbnail_flash_cache_param_h param, int ysize) {
    if (param == nullptr) {
        ZEL_LOG_WARN("Invalid param.");
        return 0;
    }
    param->ysize = ysize;
    return 1;
}

int zel_get_thumbnail_flash_cache_filename(zel_thumbnail_flash_cache_param_h param, char** out) {
    if (param == nullptr || out == nullptr || param->filename == nullptr) {
        ZEL_LOG_WARN("Invalid param.");
        return 0;
    }
    *out = strdup(param->filename);
    if (*out == nullptr) {
        ZEL_LOG_WARN("Out of memory.");
        return 0;
    }
    return 1;
}

int zel_get_thumbnail_flash_cache_url(zel_thumbnail_flash_cache_param_h param, char** out) {
    if (param == nullptr || out == nullptr || param->url == nullptr) {
        ZEL_LOG_WARN("Invalid param.");
        return 0;
    }
    *out = strdup(param->url);
    if (*out == nullptr) {
        ZEL_LOG_WARN("Out of memory.");
        return 0;
    }
    return 1;
}

int zel_get_thumbnail_flash_cache_xsize(zel_thumbnail_flash_cache_param_h param, int* out) {
    if (param == nullptr || out == nullptr) {
        ZEL_LOG_WARN("Invalid param.");
        return 0;
    }
    *out = param->xsize;
    return 1;
}

int zel_get_thumbnail_flash_cache_ysize(zel_thumbnail_flash_cache_param_h param, int* out) {
    if (param == nullptr || out == nullptr) {
        ZEL_LOG_WARN("Invalid param.");
        return 0;
    }
    *out = param->ysize;
    return 1;
}

int zel_thumbnail_flash_cache_init(const char* strCachePath) try {
    ZEL_LOG_INFO("zel_thumbnail_flash_cache_init");
    return Engine::GetInstance()->Create(strCachePath) ? 1 : 0;
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
    if (param == nullptr) {
        ZEL_LOG_WARN("Invalid param.");
        return 0;
    }
    return Engine::GetInstance()->SaveFlashFile(buffer, param->xsize, param->ysize, param->filename,
                                                param->url, bufferPreset)
               ? 1
               : 0;
} catch (const std::exception& error) {
    ZEL_LOG_WARN("no engine: %s", error.what());
    return 0;
}
