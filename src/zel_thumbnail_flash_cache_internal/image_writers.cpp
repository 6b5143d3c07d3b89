#include <unistd.h>

#include <array>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <tuple>

// Relies on <cstdio> before it.
#include <jpeglib.h>

#include "image_file.h"
#include "log.h"
#include "size_arithmetic.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

constexpr std::size_t presetSize = 4096;
constexpr std::size_t bytesPerPixel = 4;
constexpr int jpegQuality = 100;

struct JpegErrorManager {
    jpeg_error_mgr base;  // first, so that the library's pointer to it is a pointer to the whole
    std::jmp_buf recovery;
    char message[JMSG_LENGTH_MAX];
};

extern "C" {

[[noreturn]] static void RecoverFromJpegError(j_common_ptr codec) {
    auto* errors = reinterpret_cast<JpegErrorManager*>(codec->err);
    codec->err->format_message(codec, errors->message);
    std::longjmp(errors->recovery, 1);
}

static void DiscardJpegMessage(j_common_ptr) {}
}

// Encodes a picture into a stream and flushes it. On failure the reason is in errors.message. An
// error of the library jumps back here, past everything below: it has no destructor and changes
// nothing that is used afterwards but through the references.
bool EncodeJpeg(jpeg_compress_struct& codec, JpegErrorManager& errors, unsigned char* buffer,
                int xsize, int ysize, FILE* stream) {
    codec.err = jpeg_std_error(&errors.base);
    errors.base.error_exit = RecoverFromJpegError;
    errors.base.output_message = DiscardJpegMessage;
    if (setjmp(errors.recovery) != 0) {
        jpeg_destroy_compress(&codec);
        return false;
    }
    jpeg_create_compress(&codec);
    jpeg_stdio_dest(&codec, stream);
    codec.image_width = static_cast<JDIMENSION>(xsize);
    codec.image_height = static_cast<JDIMENSION>(ysize);
    codec.in_color_space = JCS_EXT_BGRX;
    codec.input_components = bytesPerPixel;
    jpeg_set_defaults(&codec);
    jpeg_set_quality(&codec, jpegQuality, TRUE);
    jpeg_start_compress(&codec, TRUE);
    const std::size_t stride = bytesPerPixel * codec.image_width;
    while (codec.next_scanline < codec.image_height) {
        JSAMPROW row = buffer + codec.next_scanline * stride;
        std::ignore = jpeg_write_scanlines(&codec, &row, 1);  // a file takes every row, or fails
    }
    jpeg_finish_compress(&codec);
    jpeg_destroy_compress(&codec);
    return true;
}

// Adds the preset block to a file that is complete but for it. What a full device cuts off here
// goes unnoticed; it shows in the size of the file.
void AppendPreset(CZELImageFile& file, const char* bufferPreset) {
    std::ignore = std::fwrite(bufferPreset, 1, presetSize, file.Stream());
}

using BmpHeader = std::array<unsigned char, 54>;

void PutLittleEndian32(BmpHeader& header, std::size_t offset, int value) {
    const auto bits = static_cast<unsigned>(value);
    for (unsigned byte = 0; byte < 4; ++byte) {
        header[offset + byte] = static_cast<unsigned char>(bits >> (8 * byte));
    }
}

// The fields that are not named are 0.
BmpHeader MakeBmpHeader(int xsize, int ysize) {
    BmpHeader header{'B', 'M'};
    PutLittleEndian32(header, 2, BmpFileSize(xsize, ysize));
    PutLittleEndian32(header, 10, static_cast<int>(header.size()));  // offset of the pixels
    PutLittleEndian32(header, 14, 40);                               // size of the info header
    PutLittleEndian32(header, 18, xsize);
    PutLittleEndian32(header, 22, ysize);
    header[26] = 1;                  // planes
    header[28] = 8 * bytesPerPixel;  // bits per pixel
    return header;
}

}  // namespace

bool CZELThumbFlashCache::m_SaveThumb(unsigned char* buffer, char* bufferPreset, int xsize,
                                      int ysize, const char* filename) {
    return m_JpegSave(buffer, bufferPreset, xsize, ysize, filename);
}

bool CZELThumbFlashCache::m_JpegSave(unsigned char* buffer, char* bufferPreset, int xsize,
                                     int ysize, const char* filename) {
    constexpr int maxSide = JPEG_MAX_DIMENSION;
    if (xsize < 1 || xsize > maxSide || ysize < 1 || ysize > maxSide) {
        ZEL_LOG_INFO("m_JpegSave [%s] failed: %d x %d is outside 1 to %d pixels\n",
                     filename == nullptr ? "" : filename, xsize, ysize, maxSide);
        return false;
    }
    CZELImageFile file(filename);
    if (file.Stream() == nullptr) {
        ZEL_LOG_INFO("can't open filename[%s] errno=%d\n", filename == nullptr ? "" : filename,
                     errno);
        return false;
    }
    jpeg_compress_struct codec{};
    JpegErrorManager errors{};
    const bool bEncoded = EncodeJpeg(codec, errors, buffer, xsize, ysize, file.Stream());
    if (!bEncoded || !file.IsWhole()) {
        ZEL_LOG_INFO("m_JpegSave [%s] failed: %s\n", filename,
                     bEncoded ? "the device did not take it" : errors.message);
        file.Remove();
        return false;
    }
    if (bufferPreset != nullptr) {
        ZEL_LOG_INFO("m_JpegSave bufferPreset : [%s]###\n", bufferPreset);
        AppendPreset(file, bufferPreset);
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
    if (file.Stream() == nullptr) {
        ZEL_LOG_INFO("fopen fail");
        return false;
    }
    // Flushed at once: a full device shows here or nowhere.
    if (std::fwrite(header.data(), 1, header.size(), file.Stream()) < header.size() ||
        std::fflush(file.Stream()) != 0 || !file.IsWhole()) {
        ZEL_LOG_INFO("fwrite error");
        return false;
    }
    const std::size_t stride = xsize > 0 ? bytesPerPixel * static_cast<std::size_t>(xsize) : 0;
    for (int row = stride == 0 ? -1 : ysize - 1; row >= 0; --row) {
        // A row that a full disk cuts short shows in the size of the file.
        std::ignore =
            std::fwrite(buffer + static_cast<std::size_t>(row) * stride, 1, stride, file.Stream());
    }
    if (bufferPreset != nullptr) {
        ZEL_LOG_INFO("bmp_write bufferPreset : [%s]###\n", bufferPreset);
        AppendPreset(file, bufferPreset);
    }
    return true;
} catch (const std::exception& error) {
    ZEL_LOG_WARN("m_BmpSave failed: %s", error.what());
    return false;
}
