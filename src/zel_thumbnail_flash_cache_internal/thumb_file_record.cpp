#include "thumb_file_record.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>
#include <tuple>

#include "util/size_arithmetic.h"

using namespace std::string_view_literals;

namespace {

constexpr std::size_t maxNumberLength = 10;   // of one that is read
constexpr std::size_t maxWrittenNumber = 20;  // the least number of 64 bits

// The characters of a text that the compiler copies and compares at once, and the same bits.
using Block [[gnu::vector_size(16)]] = signed char;
using Bits [[gnu::vector_size(16)]] = long long;

// Copies a text of at least one block; all bits of the result are 0 when no separator is among it.
inline Bits CopyBlocks(char* to, std::string_view text) {
    Bits found{};
    const auto copy = [&](std::size_t at) {
        Block block;
        std::memcpy(&block, text.data() + at, sizeof block);
        std::memcpy(to + at, &block, sizeof block);
        found |= reinterpret_cast<Bits>((block == '"') | (block == '>') | (block == '\0'));
    };
    const std::size_t last = text.size() - sizeof(Block);
    for (std::size_t at = 0; at < last; at += sizeof(Block)) {
        copy(at);
    }
    copy(last);
    return found;
}

// Writes the pieces of a record one behind the other. In a std::string, which is a text of the
// record, it looks for separators on the way: a rewrite does so with every record there is.
class RecordBuilder {
public:
    explicit RecordBuilder(char* to) : m_Start(to), m_To(to) {}

    void Put(std::string_view piece) { m_To += piece.copy(m_To, piece.size()); }

    void Put(long number) { m_To = std::to_chars(m_To, m_To + maxWrittenNumber, number).ptr; }

    void Put(const std::string& text) {
        if (text.size() < sizeof(Block)) {
            m_bHasSeparator |= text.find_first_of("\">\0"sv) != text.npos;
            Put(std::string_view(text));
            return;
        }
        m_Found |= CopyBlocks(m_To, text);
        m_To += text.size();
    }

    [[nodiscard]] std::size_t Length() const { return static_cast<std::size_t>(m_To - m_Start); }

    [[nodiscard]] bool HasSeparator() const {
        return m_bHasSeparator || (m_Found[0] | m_Found[1]) != 0;
    }

private:
    char* const m_Start;
    char* m_To;
    Bits m_Found{};
    bool m_bHasSeparator = false;
};

// A template, so that the constant pieces are copied without a call.
template <class... Pieces>
std::size_t Join(char* text, const Pieces&... pieces) {
    RecordBuilder record(text);
    (record.Put(pieces), ...);
    if (record.Length() > thumbFileRecordMaxLength) {
        return 0;
    }
    return record.HasSeparator() ? thumbFileRecordUnreadable : record.Length();
}

// Converts a text as strtol() does, in base 10; the result is held to 32 bits.
int ToNumber(std::string_view text) {
    const auto isBlank = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    text.remove_prefix(static_cast<std::size_t>(
        std::find_if_not(text.begin(), text.end(), isBlank) - text.begin()));
    if (text.substr(0, 1) == "+") {
        text.remove_prefix(text.substr(1, 1) == "-" ? 0 : 1);
    }
    long long value = 0;  // without digits it stays so
    std::ignore = std::from_chars(text.data(), text.data() + text.size(), value);
    return HoldToInt32(value);
}

// Reads the fields of a record from left to right, and remembers what to say of the first that is
// not as expected; those after it may be anything.
class RecordReader {
public:
    explicit RecordReader(std::string_view text) : m_Rest(text) {}

    // The text of a field that ends with a double quote and any one character.
    std::string Quoted(std::string_view key, const char* badKey, const char* badValue) {
        m_Step(key, badKey);
        const std::string_view value = m_Take('"', badValue);
        m_Rest.remove_prefix(m_Rest.empty() ? 0 : 1);
        return std::string(value);
    }

    // The number of a field that ends with a comma.
    int Number(std::string_view key, const char* badKey, const char* badValue) {
        m_Step(key, badKey);
        const std::string_view value = m_Take(',', badValue);
        return m_Expect(value.size() <= maxNumberLength, badValue) ? ToNumber(value) : 0;
    }

    // The device type at the end, of which only the first character counts.
    int DeviceType(const char* badKey, const char* badValue) {
        m_Step("Devicetype=", badKey);
        m_Expect(!m_Rest.empty() && std::find(m_Rest.begin(), m_Rest.end(), '>') == m_Rest.end(),
                 badValue);
        const char first = m_Rest.empty() ? '\0' : m_Rest.front();
        m_Expect(first == '0' || first == '1', "unknown device type\n");
        return first == '0' ? DEVICE_TYPE_USB : DEVICE_TYPE_PTP;
    }

    [[nodiscard]] std::string_view Rest() const { return m_Rest; }
    [[nodiscard]] const char* Failure() const { return m_Failure; }

private:
    bool m_Expect(bool bIsMet, const char* failure) {
        if (!bIsMet && m_Failure == nullptr) {
            m_Failure = failure;
        }
        return bIsMet;
    }

    // Steps over a text that must come next.
    void m_Step(std::string_view expected, const char* failure) {
        if (m_Expect(m_Rest.substr(0, expected.size()) == expected, failure)) {
            m_Rest.remove_prefix(expected.size());
        }
    }

    // Takes what stands before a closing character, and steps over both.
    std::string_view m_Take(char end, const char* failure) {
        const std::size_t length = m_Rest.find(end);
        if (!m_Expect(length != 0 && length != m_Rest.npos, failure)) {
            return {};
        }
        const std::string_view value = m_Rest.substr(0, length);
        m_Rest.remove_prefix(length + 1);
        return value;
    }

    std::string_view m_Rest;
    const char* m_Failure = nullptr;
};

}  // namespace

std::size_t FormatThumbFileRecord(const CZELThumbFlashCache::CZELFlashCacheItem& item, char* text) {
    if (item.Path.size() + item.URL.size() > thumbFileRecordMaxLength) {
        return 0;
    }
    return Join(text, "<Type=0,Path=\""sv, item.Path, "\",URL=\""sv, item.URL, "\",Size="sv,
                item.Size, ",Devicetype="sv, item.Devicetype, ">\r\n"sv);
}

std::size_t FormatThumbFileRecord(const CZELThumbFlashCache::CZELFlashCacheFolderItem& folder,
                                  char* text) {
    if (folder.Sid.size() + folder.Path.size() > thumbFileRecordMaxLength) {
        return 0;
    }
    return Join(text, "<Type=1,Sid=\""sv, folder.Sid, "\",Path=\""sv, folder.Path,
                "\",Devicetype="sv, folder.Devicetype, ">\r\n"sv);
}

const char* ReadThumbFileRecordType(std::string_view text, int& type, std::string_view& rest) {
    RecordReader record(text);
    type = record.Number("Type=", "parse Type failed\n", "parse StorageId failed\n");
    rest = record.Rest();
    return record.Failure();
}

const char* ReadThumbFileRecord(std::string_view text,
                                CZELThumbFlashCache::CZELFlashCacheItem& item) {
    RecordReader record(text);
    item.Path =
        record.Quoted("Path=\"", "parseItem FolderPath failed\n", "parseItem FolderPath failed\n");
    item.URL = record.Quoted("URL=\"", "parseItem URL failed\n", "parseItem URL failed\n");
    item.Size =
        std::max(record.Number("Size=", "parse Size failed###\n", "parse Size failed\n"), 0);
    item.Devicetype =
        record.DeviceType("parse folder path failed###\n", "parse device type failed\n");
    return record.Failure();
}

const char* ReadThumbFileRecord(std::string_view text,
                                CZELThumbFlashCache::CZELFlashCacheFolderItem& folder) {
    RecordReader record(text);
    folder.Sid =
        record.Quoted("Sid=\"", "m_ParseFolderItem Sid failed\n", "m_ParseFolderItem Sid failed\n");
    folder.Path =
        record.Quoted("Path=\"", "parse folder path failed###\n", "parse folder path failed\n");
    folder.Devicetype =
        record.DeviceType("parse folder path failed###\n", "parse folder path failed\n");
    return record.Failure();
}
