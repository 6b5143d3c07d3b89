#include "bare.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

// Relies on <cstdio> before it.
#include <jpeglib.h>

namespace bare {

namespace {

// A measurement is worth nothing when its work was not done.
void Check(bool done) {
    if (!done) {
        std::perror("bench");
        std::abort();
    }
}

// Encodes a picture into a stream, which is closed.
void EncodeJpeg(std::vector<unsigned char>& picture, int xsize, int ysize, FILE* out) {
    Check(out != nullptr);
    jpeg_compress_struct codec{};
    jpeg_error_mgr errors;
    codec.err = jpeg_std_error(&errors);
    jpeg_create_compress(&codec);
    jpeg_stdio_dest(&codec, out);
    codec.image_width = xsize, codec.image_height = ysize;
    codec.in_color_space = JCS_EXT_BGRX, codec.input_components = 4;
    jpeg_set_defaults(&codec);
    jpeg_set_quality(&codec, 100, TRUE);
    jpeg_start_compress(&codec, TRUE);
    while (codec.next_scanline < codec.image_height) {
        JSAMPROW row = &picture[4UL * xsize * codec.next_scanline];
        jpeg_write_scanlines(&codec, &row, 1);
    }
    jpeg_finish_compress(&codec);
    jpeg_destroy_compress(&codec);
    Check(std::fclose(out) == 0);
}

}  // namespace

Folder::Folder() {
    char name[] = "/dev/shm/zel-bench-XXXXXX";
    Check(mkdtemp(name) != nullptr);
    m_Path = name;
}

Folder::~Folder() { std::filesystem::remove_all(m_Path); }

std::vector<unsigned char> MakePicture(int xsize, int ysize) {
    std::vector<unsigned char> picture;
    for (int y = 0; y < ysize; ++y) {
        for (int x = 0; x < xsize; ++x) {
            const double wave = std::sin(x * 0.11) * std::cos(y * 0.07) * 90 + 128;
            for (int channel = 0; channel < 4; ++channel) {
                const int grain = (x * 7919 + y * 104729 + channel * 31) % 23;
                picture.push_back(static_cast<unsigned char>(wave + grain - 11 + channel * 8));
            }
        }
    }
    return picture;
}

std::string MakeRecord(const std::string& folder, int number, long size) {
    char name[32];
    std::snprintf(name, sizeof name, "/picture%08d.jpg", number);
    return "<Type=0,Path=\"" + folder + "\",URL=\"" + folder + name +
           "\",Size=" + std::to_string(size) + ",Devicetype=0>\r\n";
}

void EncodeJpeg(std::vector<unsigned char>& picture, int xsize, int ysize, const char* file) {
    EncodeJpeg(picture, xsize, ysize, std::fopen(file, "wb"));
}

std::string EncodeJpeg(std::vector<unsigned char>& picture, int xsize, int ysize) {
    char* text = nullptr;
    std::size_t size = 0;
    EncodeJpeg(picture, xsize, ysize, open_memstream(&text, &size));
    const std::unique_ptr<char, decltype(&std::free)> owner(text, std::free);
    return {text, size};
}

void Append(const std::string& file, const std::string& text) {
    const int out = open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0666);
    Check(write(out, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
    Check(close(out) == 0);
}

void Replace(const std::string& file, const std::string& text) {
    const std::string temporary = file + ".bare";
    const int out = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    Check(write(out, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
    Check(fdatasync(out) == 0 && close(out) == 0);
    Check(std::rename(temporary.c_str(), file.c_str()) == 0);
}

std::vector<std::pair<std::string, std::string>> ReadIndex(const std::string& file) {
    constexpr std::size_t chunk = 1 << 20;
    std::vector<std::pair<std::string, std::string>> records;
    const std::unique_ptr<char[]> buffer(new char[2 * chunk]);
    const int in = open(file.c_str(), O_RDONLY);
    std::size_t carried = 0;
    for (ssize_t count; (count = read(in, buffer.get() + carried, chunk)) > 0;) {
        const char* text = buffer.get();
        const char* const end = text + carried + count;
        for (;;) {
            const auto* open = static_cast<const char*>(std::memchr(text, '<', end - text));
            const auto* close =
                open ? static_cast<const char*>(std::memchr(open, '>', end - open)) : nullptr;
            if (close == nullptr) {
                break;
            }
            std::string strings[2];
            const char* at = open;
            for (std::string& string : strings) {
                at = static_cast<const char*>(std::memchr(at, '"', close - at)) + 1;
                const auto* quote = static_cast<const char*>(std::memchr(at, '"', close - at));
                string.assign(at, quote);
                at = quote + 1;
            }
            records.emplace_back(std::move(strings[0]), std::move(strings[1]));
            text = close + 1;
        }
        carried = static_cast<std::size_t>(end - text);
        std::memmove(buffer.get(), text, carried);
    }
    close(in);
    return records;
}

}  // namespace bare
