#include "jpeg_structure.h"

namespace {

constexpr unsigned kStartOfScan = 0xDA;
constexpr unsigned kEndOfImage = 0xD9;

// Markers that start a frame, which says the size of the picture, are these but for three that
// begin a table among them.
bool StartsFrame(unsigned marker) {
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

// Walks from marker to marker.
class SegmentReader {
public:
    explicit SegmentReader(std::string_view rest) : rest_(rest) {}

    // The marker that comes next, or 0 when none does.
    unsigned NextMarker() {
        if (Byte(0) != 0xFF) {
            return 0;
        }
        while (Byte(0) == 0xFF) {  // any number of them may stand in front
            rest_.remove_prefix(1);
        }
        const unsigned marker = Byte(0);
        rest_.remove_prefix(rest_.empty() ? 0 : 1);
        return marker;
    }

    // What follows a marker, its two bytes of length included; nothing when it is cut short.
    std::string_view TakeSegment() {
        const std::size_t length = Number(0);
        if (length < 2 || length > rest_.size()) {
            return {};
        }
        const std::string_view segment = rest_.substr(0, length);
        rest_.remove_prefix(length);
        return segment;
    }

    // Steps over the compressed picture: in it 0xFF is followed by 0, or by a restart marker.
    void SkipScan() {
        std::size_t at = rest_.find('\xFF');
        while (at != rest_.npos && (Byte(at + 1) == 0 || (Byte(at + 1) & 0xF8U) == 0xD0)) {
            at = rest_.find('\xFF', at + 2);
        }
        rest_.remove_prefix(at == rest_.npos ? rest_.size() : at);
    }

    [[nodiscard]] static unsigned Number(std::string_view text, std::size_t at) {
        return SegmentReader(text).Number(at);
    }

private:
    [[nodiscard]] unsigned Byte(std::size_t at) const {
        return at < rest_.size() ? static_cast<unsigned char>(rest_[at]) : 0x100;
    }

    [[nodiscard]] unsigned Number(std::size_t at) const {
        return at + 1 < rest_.size() ? Byte(at) << 8U | Byte(at + 1) : 0;
    }

    std::string_view rest_;
};

}  // namespace

bool BeginsAsJpeg(std::string_view content) { return content.substr(0, 3) == "\xFF\xD8\xFF"; }

JpegStructure ReadJpegStructure(std::string_view content) {
    JpegStructure found;
    if (!BeginsAsJpeg(content)) {
        return found;
    }
    SegmentReader reader(content.substr(2));
    bool has_scan = false;
    while (const unsigned marker = reader.NextMarker()) {
        if (marker == kEndOfImage) {
            found.is_complete = has_scan && found.size.width > 0 && found.size.height > 0;
            break;
        }
        const std::string_view segment = reader.TakeSegment();
        if (segment.empty()) {
            break;
        }
        if (StartsFrame(marker)) {
            found.size = {static_cast<int>(SegmentReader::Number(segment, 5)),
                          static_cast<int>(SegmentReader::Number(segment, 3))};
        } else if (marker == kStartOfScan) {
            has_scan = true;
            reader.SkipScan();
        }
    }
    return found;
}
