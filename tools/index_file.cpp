#include "index_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <unordered_set>

#include "index_reader.h"
#include "zel_thumbnail_flash_cache_internal/thumb_file_record.h"

namespace {

// Empty when it cannot be read, which the loader finds as well.
std::string ReadText(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

// The loader's line of log without what only a log needs.
std::string Trimmed(std::string_view line) {
    return std::string(line.substr(0, line.find_last_not_of("# \n") + 1));
}

// Why the loader refuses a record, given without its "<" and ">".
std::string ReasonAgainst(std::string_view text) {
    int type = 0;
    std::string_view rest;
    ThumbnailRecord thumbnail;
    FolderRecord folder;
    const char* failure = ReadThumbFileRecordType(text, type, rest);
    if (failure == nullptr && type != 0 && type != 1) {
        return "type " + std::to_string(type) + " is unknown";
    }
    if (failure == nullptr) {
        failure =
            type == 0 ? ReadThumbFileRecord(rest, thumbnail) : ReadThumbFileRecord(rest, folder);
    }
    return failure != nullptr ? Trimmed(failure) : "its size is more than the cache can count";
}

// Whether a record, given from its "<" to its ">", is all that the library would write for it.
template <class Record>
bool IsAsWritten(const Record& record, std::string_view text) {
    std::array<char, thumbFileRecordRoom> room;
    const std::size_t length = FormatThumbFileRecord(record, room.data());
    constexpr std::size_t line_end = 2;
    return length != thumbFileRecordUnreadable && length > line_end &&
           text == std::string_view(room.data(), length - line_end);
}

}  // namespace

IndexFile::IndexFile(const std::string& path) {
    CheckIndexIsReadable(path);
    if (!std::filesystem::is_regular_file(path)) {  // a pipe, say, would be waited for
        throw std::runtime_error("the index " + path + " is not a regular file");
    }
    engine_.m_strCachePath = path;
    const std::string text = ReadText(path);
    std::vector<Place> places;
    std::size_t end = 0;
    const bool is_loaded =
        engine_.m_ThumbFile.Load([&](char* start, int length, std::size_t offset) {
            AddText(text, end, offset);
            Take(start, length, offset, places);
            end = offset + static_cast<std::size_t>(length) + 1;
        });
    if (!is_loaded || !engine_.m_ThumbFile.IsRead()) {
        throw std::system_error(EIO, std::generic_category(), path);
    }
    AddText(text, end, text.size());
    AddRecordsTakenBack(places);
}

void IndexFile::Take(char* start, int length, std::size_t offset, std::vector<Place>& places) {
    const std::string_view text(start, static_cast<std::size_t>(length) + 1);
    const std::size_t folders = engine_.m_ThumbFolderList.size();
    const bool is_loaded = engine_.m_Parse(start, length);
    const bool is_folder = engine_.m_ThumbFolderList.size() > folders;
    if (!is_loaded) {
        faults_.push_back(
            {offset, text.size(),
             "a record that does not load: " + ReasonAgainst(text.substr(1, text.size() - 2))});
        return;
    }
    if (!(is_folder ? IsAsWritten(*engine_.m_ThumbFolderList.back(), text)
                    : IsAsWritten(*engine_.m_ThumbItemList.back(), text))) {
        faults_.push_back({offset, text.size(), "a record that the library would write otherwise"});
    }
    if (!is_folder) {
        places.push_back({offset, text.size(), engine_.m_ThumbItemList.back()});
    }
}

// The ends of lines between records are no text, whichever kind they are.
void IndexFile::AddText(std::string_view text, std::size_t begin, std::size_t end) {
    end = std::min(end, text.size());  // it may have become shorter
    begin = std::min(text.find_first_not_of("\r\n", begin), end);
    while (end > begin && (text[end - 1] == '\r' || text[end - 1] == '\n')) {
        --end;
    }
    if (begin < end) {
        faults_.push_back({begin, end - begin, "text that belongs to no record"});
    }
}

// The loader gives a record up when the sizes would leave what the cache can count.
void IndexFile::AddRecordsTakenBack(const std::vector<Place>& places) {
    if (places.size() == engine_.m_ThumbItemList.size()) {
        return;
    }
    std::unordered_set<const ThumbnailRecord*> kept;
    for (const auto& item : engine_.m_ThumbItemList) {
        kept.insert(item.get());
    }
    for (const Place& place : places) {
        if (kept.count(place.record.get()) == 0) {
            faults_.push_back({place.offset, place.length,
                               "a record that does not load: its size, " +
                                   std::to_string(place.record->Size) +
                                   ", is more than the cache can count"});
        }
    }
    std::sort(faults_.begin(), faults_.end(),
              [](const auto& a, const auto& b) { return a.offset < b.offset; });
}

bool IndexFile::Rewrite(const CZELThumbFlashCache::ItemList& thumbnails,
                        const CZELThumbFlashCache::FolderList& folders) {
    engine_.m_ThumbItemList = thumbnails;
    engine_.m_ThumbFolderList = folders;
    return engine_.m_RefreshThumbFile();
}
