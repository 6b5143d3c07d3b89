#include "thumb_file_record.h"

#include <charconv>
#include <cstdlib>

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

bool CZELThumbFileCursor::Step(std::string_view expected) {
    if (m_Rest.substr(0, expected.size()) != expected) {
        return false;
    }
    m_Rest.remove_prefix(expected.size());
    return true;
}

void CZELThumbFileCursor::StepOne() { m_Rest = m_Rest.substr(m_Rest.empty() ? 0 : 1); }

bool CZELThumbFileCursor::TakeUntil(char end, std::string_view& value) {
    const std::size_t length = m_Rest.find(end);
    if (length == std::string_view::npos || length == 0) {
        return false;
    }
    value = m_Rest.substr(0, length);
    m_Rest.remove_prefix(length + 1);
    return true;
}

bool ParseThumbFileNumber(std::string_view text, int& number) {
    std::array<char, 11> buffer{};
    if (text.size() >= buffer.size()) {
        return false;
    }
    text.copy(buffer.data(), text.size());
    number = HoldToInt32(std::strtol(buffer.data(), nullptr, 10));
    return true;
}

bool ParseThumbFileDeviceType(std::string_view text, int& type) {
    if (text.empty() || (text.front() != '0' && text.front() != '1')) {
        return false;
    }
    type = text.front() == '0' ? DEVICE_TYPE_USB : DEVICE_TYPE_PTP;
    return true;
}
