#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>

#include "bmp_header.h"
#include "image_file.h"
#include "jpeg_encoder.h"
#include "util/log.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

constexpr std::size_t presetSize = 4096;

// From the bottom up. What a full disk cuts short shows in the size of the file.
void AppendBmpRows(CZELImageFile& file, const unsigned char* buffer, int xsize, int ysize) {
    if (xsize <= 0) {
        return;
    }
    const std::size_t stride = bytesPerPixel * static_cast<std::size_t>(xsize);
    for (int row = ysize - 1; row >= 0; --row) {
        file.Append(buffer + static_cast<std::size_t>(row) * stride, stride);
    }
}

}  // namespace

bool CZELThumbFlashCache::m_SaveThumb(unsigned char* buffer, char* bufferPreset, int xsize,
                                      int ysize, const char* filename) {
    return m_JpegSave(buffer, bufferPreset, xsize, ysize, filename);
}

bool CZELThumbFlashCache::m_JpegSave(unsigned char* buffer, char* bufferPreset, int xsize,
                                     int ysize, const char* filename) {
    if (xsize < 1 || xsize > maxJpegSide || ysize < 1 || ysize > maxJpegSide) {
        ZEL_LOG_INFO("m_JpegSave [%s] failed: %d x %d is outside 1 to %d pixels\n",
                     filename == nullptr ? "" : filename, xsize, ysize, maxJpegSide);
        return false;
    }
    CZELImageFile file(filename);
    if (!file.IsOpen()) {
        ZEL_LOG_INFO("can't open filename[%s] errno=%d\n", filename == nullptr ? "" : filename,
                     errno);
        return false;
    }
    JpegError error{};
    if (!EncodeJpeg(file, buffer, xsize, ysize, error)) {
        ZEL_LOG_INFO("m_JpegSave [%s] failed: %s\n", filename, error.data());
        file.Remove();
        return false;
    }
    if (bufferPreset != nullptr) {
        ZEL_LOG_INFO("m_JpegSave bufferPreset : [%s]###\n", bufferPreset);
        file.Append(bufferPreset, presetSize);  // what is cut off shows in the size of the file
    }
    return true;
}

bool CZELThumbFlashCache::m_BmpSave(unsigned char* buffer, char* bufferPreset, int xsize, int ysize,
                                    const char* filename) try {
    const BmpHeader header = MakeBmpHeader(xsize, ysize);
    const char* slash = filename == nullptr ? nullptr : std::strrchr(filename, '/');
    if (slash == nullptr) {
        ZEL_LOG_INFO("can not find / in path:%s", filename == nullptr ? "" : filename);
        return false;
    }
    const std::string directory(filename, slash);
    if (access(directory.c_str(), F_OK) != 0) {
        ZEL_LOG_INFO("fail to access dir path:%s", directory.c_str());
        return false;
    }
    CZELImageFile file(filename);
    if (!file.IsOpen()) {
        ZEL_LOG_INFO("fopen fail");
        return false;
    }
    file.Append(header.data(), header.size());
    if (!file.Flush()) {  // a full device shows here or nowhere
        ZEL_LOG_INFO("fwrite error");
        return false;
    }
    AppendBmpRows(file, buffer, xsize, ysize);
    if (bufferPreset != nullptr) {
        ZEL_LOG_INFO("bmp_write bufferPreset : [%s]###\n", bufferPreset);
        file.Append(bufferPreset, presetSize);  // what is cut off shows in the size of the file
    }
    return true;
} catch (const std::exception& error) {
    ZEL_LOG_WARN("m_BmpSave failed: %s", error.what());
    return false;
}
