#include "thumb_file_record.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "size_arithmetic.h"

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
    operator std::string_view() const { return {m_Text.data(), m_Length}; }

private:
    std::array<char, 24> m_Text;
    std::size_t m_Length;
};

// Puts the pieces of a record one behind the other. A template, so that a rewrite, which formats
// every record there is, copies the constant pieces without a call.
template <class... Pieces>
std::size_t Join(char* text, const Pieces&... pieces) {
    const std::size_t length = (... + std::string_view(pieces).size());
    if (length > thumbFileRecordMaxLength) {
        return 0;
    }
    const auto put = [&text](std::string_view piece) { text += piece.copy(text, piece.size()); };
    (put(pieces), ...);
    return length;
}

// The characters of a text that the compiler compares at once.
using Block [[gnu::vector_size(16)]] = signed char;

// A rewrite looks at every text there is.
bool IsFreeOfSeparators(std::string_view text) {
    if (text.size() < sizeof(Block)) {
        return text.find_first_of(separators) == text.npos;
    }
    Block found{};
    const auto look = [&found](const char* at) {
        Block block;
        std::memcpy(&block, at, sizeof block);
        found |= (block == '"') | (block == '>') | (block == '\0');
    };
    const char* const last = text.data() + text.size() - sizeof(Block);
    for (const char* at = text.data(); at < last; at += sizeof(Block)) {
        look(at);
    }
    look(last);
    std::array<std::uint64_t, sizeof(Block) / sizeof(std::uint64_t)> halves;
    std::memcpy(halves.data(), &found, sizeof found);
    return (halves[0] | halves[1]) == 0;
}

}  // namespace

bool CanBeReadBack(const CZELThumbFlashCache::CZELFlashCacheItem& item) {
    return IsFreeOfSeparators(item.Path) && IsFreeOfSeparators(item.URL);
}

bool CanBeReadBack(const CZELThumbFlashCache::CZELFlashCacheFolderItem& folder) {
    return IsFreeOfSeparators(folder.Sid) && IsFreeOfSeparators(folder.Path);
}

std::size_t FormatThumbFileRecord(const CZELThumbFlashCache::CZELFlashCacheItem& item, char* text) {
    return Join(text, "<Type=0,Path=\""sv, item.Path, "\",URL=\""sv, item.URL, "\",Size="sv,
                Digits(item.Size), ",Devicetype="sv, Digits(item.Devicetype), ">\r\n"sv);
}

std::size_t FormatThumbFileRecord(const CZELThumbFlashCache::CZELFlashCacheFolderItem& folder,
                                  char* text) {
    return Join(text, "<Type=1,Sid=\""sv, folder.Sid, "\",Path=\""sv, folder.Path,
                "\",Devicetype="sv, Digits(folder.Devicetype), ">\r\n"sv);
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
