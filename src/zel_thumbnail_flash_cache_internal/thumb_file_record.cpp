#include "thumb_file_record.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "util/size_arithmetic.h"

using namespace std::string_view_literals;

namespace {

constexpr std::string_view separators = "\">\0"sv;

// The text of a number.
class Digits {
public:
    explicit Digits(long number) {
        const auto end = std::to_chars(m_Text.data(), m_Text.data() + m_Text.size(), number).ptr;
        m_Length = static_cast<std::size_t>(end - m_Text.data());
    }
    [[nodiscard]] std::string_view Get() const { return {m_Text.data(), m_Length}; }

private:
    std::array<char, 24> m_Text;
    std::size_t m_Length;
};

// A text of a record, in which no separator may stand.
struct Text {
    std::string_view characters;
    [[nodiscard]] std::size_t size() const { return characters.size(); }
};

// The characters of a text that the compiler copies and compares at once.
using Block [[gnu::vector_size(16)]] = signed char;

// Copies a text of at least one block; all bits of the result are 0 when no separator is among it.
inline Block CopyBlocks(char* to, std::string_view text) {
    Block found{};
    const auto copy = [&](std::size_t at) {
        Block block;
        std::memcpy(&block, text.data() + at, sizeof block);
        std::memcpy(to + at, &block, sizeof block);
        found |= (block == '"') | (block == '>') | (block == '\0');
    };
    const std::size_t last = text.size() - sizeof(Block);
    for (std::size_t at = 0; at < last; at += sizeof(Block)) {
        copy(at);
    }
    copy(last);
    return found;
}

// Copies the pieces of a record one behind the other, and looks for separators on the way: a
// rewrite does so with every record there is.
class RecordBuilder {
public:
    explicit RecordBuilder(char* to) : m_To(to) {}

    void Put(std::string_view piece) { m_To += piece.copy(m_To, piece.size()); }

    void Put(const Text& text) {
        if (text.size() < sizeof(Block)) {
            m_bHasSeparator |= text.characters.find_first_of(separators) != text.characters.npos;
            Put(text.characters);
            return;
        }
        m_Found |= CopyBlocks(m_To, text.characters);
        m_To += text.size();
    }

    [[nodiscard]] bool HasSeparator() const {
        std::array<std::uint64_t, 2> halves;
        static_assert(sizeof halves == sizeof m_Found);
        std::memcpy(halves.data(), &m_Found, sizeof m_Found);
        return m_bHasSeparator || (halves[0] | halves[1]) != 0;
    }

private:
    char* m_To;
    Block m_Found{};
    bool m_bHasSeparator = false;
};

// A template, so that the constant pieces are copied without a call.
template <class... Pieces>
std::size_t Join(char* text, const Pieces&... pieces) {
    const std::size_t length = (... + pieces.size());
    if (length > thumbFileRecordMaxLength) {
        return 0;
    }
    RecordBuilder record(text);
    (record.Put(pieces), ...);
    return record.HasSeparator() ? thumbFileRecordUnreadable : length;
}

}  // namespace

std::size_t FormatThumbFileRecord(const CZELThumbFlashCache::CZELFlashCacheItem& item, char* text) {
    return Join(text, "<Type=0,Path=\""sv, Text{item.Path}, "\",URL=\""sv, Text{item.URL},
                "\",Size="sv, Digits(item.Size).Get(), ",Devicetype="sv,
                Digits(item.Devicetype).Get(), ">\r\n"sv);
}

std::size_t FormatThumbFileRecord(const CZELThumbFlashCache::CZELFlashCacheFolderItem& folder,
                                  char* text) {
    return Join(text, "<Type=1,Sid=\""sv, Text{folder.Sid}, "\",Path=\""sv, Text{folder.Path},
                "\",Devicetype="sv, Digits(folder.Devicetype).Get(), ">\r\n"sv);
}

bool CZELThumbFileCursor::TakeNumber(char end, int& number) {
    constexpr std::size_t maxLength = 10;
    const auto isBlank = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    std::size_t length = 0;
    while (length < m_Rest.size() && length <= maxLength && m_Rest[length] != end) {
        ++length;
    }
    if (length == 0 || length > maxLength || length == m_Rest.size()) {
        return false;
    }
    std::string_view text = m_Rest.substr(0, length);
    m_Rest.remove_prefix(length + 1);
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    const bool bNegative = !text.empty() && text.front() == '-';
    if (bNegative || (!text.empty() && text.front() == '+')) {
        text.remove_prefix(1);
    }
    long long value = 0;
    for (const char digit : text) {
        if (digit < '0' || digit > '9') {
            break;
        }
        value = 10 * value + (digit - '0');
    }
    number = HoldToInt32(bNegative ? -value : value);
    return true;
}

bool ParseThumbFileDeviceType(std::string_view text, int& type) {
    if (text.front() != '0' && text.front() != '1') {
        return false;
    }
    type = text.front() == '0' ? DEVICE_TYPE_USB : DEVICE_TYPE_PTP;
    return true;
}
