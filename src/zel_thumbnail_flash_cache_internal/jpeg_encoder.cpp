#include "jpeg_encoder.h"

#include <csetjmp>
#include <cstdio>
#include <tuple>

// Relies on <cstdio> before it.
#include <jpeglib.h>

namespace {

static_assert(maxJpegSide == JPEG_MAX_DIMENSION);
static_assert(sizeof(JpegError) >= JMSG_LENGTH_MAX);

constexpr int jpegQuality = 100;

// A message of ours beside those of the library.
constexpr int deviceError = 1000;
const char* const ownMessages[] = {"the device did not take it"};

// What the functions that the library calls find as its client's data.
struct Encoding {
    CZELImageFile& file;
    JpegError& error;
    jpeg_destination_mgr destination;
    std::jmp_buf recovery;
};

Encoding& EncodingOf(void* clientData) { return *static_cast<Encoding*>(clientData); }

// Jumps past what has no destructor.
[[noreturn]] void Fail(j_common_ptr codec) {
    Encoding& encoding = EncodingOf(codec->client_data);
    codec->err->format_message(codec, encoding.error.data());
    std::longjmp(encoding.recovery, 1);
}

void DiscardMessage(j_common_ptr) {}

void BeginBuffer(j_compress_ptr codec) {
    CZELImageFile::Buffer& buffer = EncodingOf(codec->client_data).file.GetBuffer();
    codec->dest->next_output_byte = buffer.data();
    codec->dest->free_in_buffer = buffer.size();
}

void WriteBuffer(j_compress_ptr codec, std::size_t size) {
    if (!EncodingOf(codec->client_data).file.WriteBuffer(size)) {
        codec->err->msg_code = deviceError;
        codec->err->error_exit(reinterpret_cast<j_common_ptr>(codec));
    }
}

// The whole buffer is to be written, whatever the library says of the room in it.
boolean WriteFullBuffer(j_compress_ptr codec) {
    WriteBuffer(codec, sizeof(CZELImageFile::Buffer));
    BeginBuffer(codec);
    return TRUE;
}

void WriteLastBuffer(j_compress_ptr codec) {
    WriteBuffer(codec, sizeof(CZELImageFile::Buffer) - codec->dest->free_in_buffer);
}

// Whatever fails comes back here, and changes nothing that is used afterwards but through the
// references.
bool EncodeRows(jpeg_compress_struct& codec, Encoding& encoding, unsigned char* buffer, int xsize,
                int ysize) {
    if (setjmp(encoding.recovery) != 0) {
        return false;
    }
    jpeg_create_compress(&codec);
    codec.dest = &encoding.destination;
    codec.image_width = static_cast<JDIMENSION>(xsize);
    codec.image_height = static_cast<JDIMENSION>(ysize);
    codec.in_color_space = JCS_EXT_BGRX;
    codec.input_components = bytesPerPixel;
    jpeg_set_defaults(&codec);
    jpeg_set_quality(&codec, jpegQuality, TRUE);
    jpeg_start_compress(&codec, TRUE);
    const std::size_t stride = std::size_t{bytesPerPixel} * codec.image_width;
    while (codec.next_scanline < codec.image_height) {
        JSAMPROW row = buffer + codec.next_scanline * stride;
        std::ignore = jpeg_write_scanlines(&codec, &row, 1);  // a file takes every row, or fails
    }
    jpeg_finish_compress(&codec);
    return true;
}

}  // namespace

bool EncodeJpeg(CZELImageFile& file, unsigned char* buffer, int xsize, int ysize,
                JpegError& error) {
    Encoding encoding{file, error, {}, {}};
    encoding.destination.init_destination = BeginBuffer;
    encoding.destination.empty_output_buffer = WriteFullBuffer;
    encoding.destination.term_destination = WriteLastBuffer;
    jpeg_error_mgr errors{};
    jpeg_compress_struct codec{};
    codec.client_data = &encoding;
    codec.err = jpeg_std_error(&errors);
    errors.error_exit = Fail;
    errors.output_message = DiscardMessage;
    errors.addon_message_table = ownMessages;
    errors.first_addon_message = errors.last_addon_message = deviceError;
    const bool bEncoded = EncodeRows(codec, encoding, buffer, xsize, ysize);
    jpeg_destroy_compress(&codec);
    return bEncoded;
}
