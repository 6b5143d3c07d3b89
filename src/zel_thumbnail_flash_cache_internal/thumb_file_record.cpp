#include "thumb_file_record.h"

#include <charconv>

#include "size_arithmetic.h"

CZELThumbFileRecord::CZELThumbFileRecord(const CZELThumbFlashCache::CZELFlashCacheItem& item) {
    m_Add("<Type=0,Path=\"");
    m_Add(item.Path.c_str());
    m_Add("\",URL=\"");
    m_Add(item.URL.c_str());
    m_Add("\",Size=");
    m_Add(item.Size);
    m_Add(",Devicetype=");
    m_Add(item.Devicetype);
    m_Add(">\r\n");
}

CZELThumbFileRecord::CZELThumbFileRecord(
    const CZELThumbFlashCache::CZELFlashCacheFolderItem& folder) {
    m_Add("<Type=1,Sid=\"");
    m_Add(folder.Sid.c_str());
    m_Add("\",Path=\"");
    m_Add(folder.Path.c_str());
    m_Add("\",Devicetype=");
    m_Add(folder.Devicetype);
    m_Add(">\r\n");
}

void CZELThumbFileRecord::m_Add(std::string_view text) {
    if (text.size() > m_Text.size() - m_Length) {
        m_bTooLong = true;
        return;
    }
    m_Length += text.copy(m_Text.data() + m_Length, text.size());
}

void CZELThumbFileRecord::m_Add(long number) {
    std::array<char, 24> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    m_Add(std::string_view(digits.data(), static_cast<std::size_t>(end - digits.data())));
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
