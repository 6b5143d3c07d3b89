#include "thumb_file_record.h"

#include <array>
#include <charconv>

#include "size_arithmetic.h"

namespace {

// Puts the pieces of a record one behind the other.
class RecordText {
public:
    explicit RecordText(char* text) : m_Text(text) {}

    void Add(std::string_view piece) {
        if (piece.size() > thumbFileRecordMaxLength - m_Length) {
            m_bTooLong = true;
            return;
        }
        m_Length += piece.copy(m_Text + m_Length, piece.size());
    }

    void Add(long number) {
        std::array<char, 24> digits;
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
        Add(std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data())));
    }

    std::size_t Length() const { return m_bTooLong ? 0 : m_Length; }

private:
    char* const m_Text;
    std::size_t m_Length = 0;
    bool m_bTooLong = false;
};

}  // namespace

std::size_t FormatThumbFileRecord(const CZELThumbFlashCache::CZELFlashCacheItem& item, char* text) {
    RecordText record(text);
    record.Add("<Type=0,Path=\"");
    record.Add(item.Path.c_str());
    record.Add("\",URL=\"");
    record.Add(item.URL.c_str());
    record.Add("\",Size=");
    record.Add(item.Size);
    record.Add(",Devicetype=");
    record.Add(item.Devicetype);
    record.Add(">\r\n");
    return record.Length();
}

std::size_t FormatThumbFileRecord(const CZELThumbFlashCache::CZELFlashCacheFolderItem& folder,
                                  char* text) {
    RecordText record(text);
    record.Add("<Type=1,Sid=\"");
    record.Add(folder.Sid.c_str());
    record.Add("\",Path=\"");
    record.Add(folder.Path.c_str());
    record.Add("\",Devicetype=");
    record.Add(folder.Devicetype);
    record.Add(">\r\n");
    return record.Length();
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
