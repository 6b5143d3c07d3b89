#include "bmp_header.h"

#include <cstddef>
#include <cstdint>

namespace {

constexpr unsigned char bitsPerPixel = 32;

void PutLittleEndian32(BmpHeader& header, std::size_t offset, int value) {
    const auto bits = static_cast<unsigned>(value);
    for (unsigned byte = 0; byte < 4; ++byte) {
        header[offset + byte] = static_cast<unsigned char>(bits >> (8 * byte));
    }
}

}  // namespace

int BmpFileSize(int xsize, int ysize) {
    constexpr std::uint32_t headerSize = sizeof(BmpHeader);
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(xsize) *
                                         static_cast<std::uint32_t>(ysize) * (bitsPerPixel / 8) +
                                     headerSize);
}

// The fields that are not named are 0.
BmpHeader MakeBmpHeader(int xsize, int ysize) {
    BmpHeader header{'B', 'M'};
    PutLittleEndian32(header, 2, BmpFileSize(xsize, ysize));
    PutLittleEndian32(header, 10, static_cast<int>(header.size()));  // offset of the pixels
    PutLittleEndian32(header, 14, 40);                               // size of the info header
    PutLittleEndian32(header, 18, xsize);
    PutLittleEndian32(header, 22, ysize);
    header[26] = 1;  // planes
    header[28] = bitsPerPixel;
    return header;
}
