#include "cache_session.h"

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <tuple>

#include "util/release.h"
#include "zel_thumbnail_flash_cache.h"

namespace {

using namespace std::chrono_literals;

using Param =
    CZELHandle<_zel_thumbnail_flash_cache_param_s, zel_destroy_thumbnail_flash_cache_param>;

bool WaitUntilReady(const CacheSession& session) {
    Pixels probe = {{1, 1}, {0, 0, 0, 0}};
    const auto give_up = std::chrono::steady_clock::now() + 30s;
    while (!session.Save("/dev/null", "probe:", probe)) {
        if (std::chrono::steady_clock::now() >= give_up) {
            return false;
        }
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

void Stop() {
    std::ignore = zel_thumbnail_flash_cache_clear();  // always succeeds
}

}  // namespace

CacheSession::CacheSession(const std::string& index) {
    const auto path = std::filesystem::absolute(index);
    if (std::filesystem::is_directory(path)) {
        throw std::runtime_error("the index " + index + " is a directory");
    }
    const bool is_started = zel_thumbnail_flash_cache_init(path.c_str()) == 1;
    if (!is_started || !WaitUntilReady(*this)) {
        Stop();
        throw std::runtime_error(is_started ? "the cache was not ready after 30 seconds; does the "
                                              "media-content database answer?"
                                            : "the cache cannot be started");
    }
}

CacheSession::~CacheSession() { Stop(); }

bool CacheSession::Save(const std::string& file, const std::string& url, Pixels& pixels) const {
    zel_thumbnail_flash_cache_param_h handle = nullptr;
    if (zel_create_thumbnail_flash_cache_param(&handle) != 1) {
        return false;
    }
    const Param param(handle);
    return zel_set_thumbnail_flash_cache_filename(handle, file.c_str()) == 1 &&
           zel_set_thumbnail_flash_cache_url(handle, url.c_str()) == 1 &&
           zel_set_thumbnail_flash_cache_xsize(handle, pixels.size.width) == 1 &&
           zel_set_thumbnail_flash_cache_ysize(handle, pixels.size.height) == 1 &&
           zel_thumbnail_flash_cache_save_file(handle, pixels.bytes.data(), nullptr) == 1;
}
