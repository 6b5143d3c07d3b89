#include <algorithm>
#include <iterator>
#include <limits>
#include <string_view>
#include <tuple>
#include <utility>

#include "thumb_file_record.h"
#include "util/log.h"
#include "util/size_arithmetic.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

bool IsDamagedSize(long size) { return size > ZEL_FLASH_CACHE_MAX; }

// Whether a thumbnail of that size can be accounted for. Where the sum leaves no room for it, a
// damaged record has claimed it, and goes: the last of those that claim more than the whole cache.
// Their number is known, so that the items are not searched for none.
bool MakeRoomInSum(CZELThumbFlashCache::ItemList& items, int& cacheSize, int& damagedSizes,
                   long size) {
    if (size <= std::numeric_limits<int>::max() - static_cast<long long>(cacheSize)) {
        damagedSizes += IsDamagedSize(size) ? 1 : 0;
        return true;
    }
    auto damaged = items.rend();
    if (damagedSizes > 0 && !IsDamagedSize(size)) {
        damaged = std::find_if(items.rbegin(), items.rend(),
                               [](const auto& item) { return IsDamagedSize(item->Size); });
    }
    const bool bFound = damaged != items.rend();
    ZEL_LOG_INFO("m_ParseItem size[%ld] is more than the cache can count###\n",
                 bFound ? (*damaged)->Size : size);
    if (bFound) {
        --damagedSizes;
        cacheSize = WrappingSubtract(cacheSize, (*damaged)->Size);
        items.erase(std::next(damaged).base());
    }
    return bFound;
}

// Whether a text begins with a character, and with the ">" at that distance ends.
bool IsFramed(const char* start, int len, char first) {
    const bool bIsFramed = len >= 1 && start[0] == first && start[len] == '>';
    if (!bIsFramed) {
        ZEL_LOG_INFO("pStart or pStart+len unvalid failed\n");
    }
    return bIsFramed;
}

std::string_view Framed(const char* start, int len) {
    return {start + 1, static_cast<std::size_t>(len - 1)};
}

template <class Record>
bool ReadRecord(const char* start, int len, Record& record) {
    if (!IsFramed(start, len, ',')) {
        return false;
    }
    const char* failure = ReadThumbFileRecord(Framed(start, len), record);
    if (failure != nullptr) {
        ZEL_LOG_INFO("%s", failure);
    }
    return failure == nullptr;
}

}  // namespace

bool CZELThumbFlashCache::m_LoadThumbFile() {
    m_DamagedSizes = 0;
    return m_ThumbFile.Load([this](char* start, int length, std::size_t) ZEL_REQUIRES(m_Lock) {
        std::ignore = m_Parse(start, length);  // a bad record is logged there and passed over
    });
}

bool CZELThumbFlashCache::m_Parse(char* pStart, int len) {
    if (pStart == nullptr) {
        ZEL_LOG_INFO("m_Parse pStart == NULL ###\n");
        return false;
    }
    if (!IsFramed(pStart, len, '<')) {
        return false;
    }
    int type = 0;
    std::string_view rest;
    if (const char* failure = ReadThumbFileRecordType(Framed(pStart, len), type, rest)) {
        ZEL_LOG_INFO("%s", failure);
        return false;
    }
    // The parsers of the two kinds begin at the comma.
    const int comma = len - 1 - static_cast<int>(rest.size());
    if (type == 0) {
        return m_ParseItem(pStart + comma, len - comma);
    }
    if (type == 1) {
        return m_ParseFolderItem(pStart + comma, len - comma);
    }
    ZEL_LOG_INFO("type error[%d]###\n", type);
    return false;
}

bool CZELThumbFlashCache::m_ParseItem(char* pStart, int len) {
    ZEL_LOG_INFO("m_ParseItem \n");
    if (pStart == nullptr) {
        ZEL_LOG_INFO("m_ParseItem pStart == NULL ###\n");
        return false;
    }
    boost::intrusive_ptr<CZELFlashCacheItem> pItem(new CZELFlashCacheItem);
    if (!ReadRecord(pStart, len, *pItem) ||
        !MakeRoomInSum(m_ThumbItemList, m_CacheSize, m_DamagedSizes, pItem->Size)) {
        return false;
    }
    ZEL_LOG_INFO("path= %s ,URL= %s ,size=%ld", pItem->Path.c_str(), pItem->URL.c_str(),
                 pItem->Size);
    m_ThumbItemList.push_back(std::move(pItem));
    m_CacheSize = WrappingAdd(m_CacheSize, m_ThumbItemList.back()->Size);
    ZEL_LOG_INFO("m_ParseItem success###\n");
    return true;
}

bool CZELThumbFlashCache::m_ParseFolderItem(char* pStart, int len) {
    ZEL_LOG_INFO("m_ParseFolderItem \n");
    if (pStart == nullptr) {
        ZEL_LOG_INFO("m_ParseFolderItem pStart == NULL ###\n");
        return false;
    }
    boost::intrusive_ptr<CZELFlashCacheFolderItem> pFolder(new CZELFlashCacheFolderItem);
    if (!ReadRecord(pStart, len, *pFolder)) {
        return false;
    }
    ZEL_LOG_INFO("id= %s ,path= %s ,devicetype=%d", pFolder->Sid.c_str(), pFolder->Path.c_str(),
                 pFolder->Devicetype);
    m_ThumbFolderList.push_back(std::move(pFolder));
    ZEL_LOG_INFO("m_ParseFolderItem success###\n");
    return true;
}
