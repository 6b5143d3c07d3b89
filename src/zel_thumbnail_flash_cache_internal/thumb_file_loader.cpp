#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <iterator>
#include <limits>
#include <string_view>
#include <tuple>
#include <utility>

#include "thumb_file_record.h"
#include "util/file_descriptor.h"
#include "util/log.h"
#include "util/size_arithmetic.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

bool IsDamagedSize(long size) { return size > ZEL_FLASH_CACHE_MAX; }

// Whether a thumbnail of that size can be accounted for. Where the sum leaves no room for it, a
// damaged record has claimed it, and goes: the last of those that claim more than the whole cache.
// Their number is known, so that the items are not searched for none.
bool MakeRoomInSum(CZELThumbFlashCache::ItemList& items, int& cacheSize, int& damagedSizes,
                   int size) {
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
                 bFound ? (*damaged)->Size : static_cast<long>(size));
    if (bFound) {
        --damagedSizes;
        cacheSize = WrappingSubtract(cacheSize, (*damaged)->Size);
        items.erase(std::next(damaged).base());
    }
    return bFound;
}

}  // namespace

bool CZELThumbFlashCache::m_LoadThumbFile() {
    using Result = CZELThumbFile::LoadResult;
    m_DamagedSizes = 0;
    const Result result = m_ThumbFile.Load([this](char* start, int length) ZEL_REQUIRES(m_Lock) {
        std::ignore = m_Parse(start, length);  // a bad record is logged there and passed over
    });
    if (result == Result::NotOpened) {
        ZEL_LOG_INFO("open %s fail , error =%d \n", m_strCachePath.c_str(), errno);
    } else if (result == Result::NoMemory) {
        ZEL_LOG_INFO("malloc pBuf failed...\n");
    }
    return result == Result::Loaded;
}

bool CZELThumbFlashCache::m_Parse(char* pStart, int len) {
    if (pStart == nullptr) {
        ZEL_LOG_INFO("m_Parse pStart == NULL ###\n");
        return false;
    }
    if (len < 1 || pStart[0] != '<' || pStart[len] != '>') {
        ZEL_LOG_INFO("pStart or pStart+len unvalid failed\n");
        return false;
    }
    CZELThumbFileCursor cursor(std::string_view(pStart + 1, static_cast<std::size_t>(len - 1)));
    if (!cursor.Step("Type=")) {
        ZEL_LOG_INFO("parse Type failed\n");
        return false;
    }
    int type = 0;
    if (!cursor.TakeNumber(',', type)) {
        ZEL_LOG_INFO("parse StorageId failed\n");
        return false;
    }
    // The parsers of the two kinds begin at the comma.
    const int comma = len - 1 - static_cast<int>(cursor.Rest().size());
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
    if (len < 1 || pStart[0] != ',' || pStart[len] != '>') {
        ZEL_LOG_INFO("pStart or pStart+len unvalid failed\n");
        return false;
    }
    CZELThumbFileCursor cursor(std::string_view(pStart + 1, static_cast<std::size_t>(len - 1)));
    std::string_view path, url;
    if (!cursor.Step("Path=\"") || !cursor.TakeUntil('"', path)) {
        ZEL_LOG_INFO("parseItem FolderPath failed\n");
        return false;
    }
    cursor.StepOne();
    if (!cursor.Step("URL=\"") || !cursor.TakeUntil('"', url)) {
        ZEL_LOG_INFO("parseItem URL failed\n");
        return false;
    }
    cursor.StepOne();
    if (!cursor.Step("Size=")) {
        ZEL_LOG_INFO("parse Size failed###\n");
        return false;
    }
    int size = 0;
    if (!cursor.TakeNumber(',', size)) {
        ZEL_LOG_INFO("parse Size failed\n");
        return false;
    }
    if (!cursor.Step("Devicetype=")) {
        ZEL_LOG_INFO("parse folder path failed###\n");
        return false;
    }
    const std::string_view text = cursor.Rest();
    if (text.empty() || std::find(text.begin(), text.end(), '>') != text.end()) {
        ZEL_LOG_INFO("parse device type failed\n");
        return false;
    }
    int type = 0;
    if (!ParseThumbFileDeviceType(text, type)) {
        ZEL_LOG_INFO("unknown device type\n");
        return false;
    }
    size = std::max(size, 0);
    if (!MakeRoomInSum(m_ThumbItemList, m_CacheSize, m_DamagedSizes, size)) {
        return false;
    }
    boost::intrusive_ptr<CZELFlashCacheItem> pItem(new CZELFlashCacheItem(path, url, size, type));
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
    if (len < 1 || pStart[0] != ',' || pStart[len] != '>') {
        ZEL_LOG_INFO("pStart or pStart+len unvalid failed\n");
        return false;
    }
    CZELThumbFileCursor cursor(std::string_view(pStart + 1, static_cast<std::size_t>(len - 1)));
    std::string_view id, path;
    if (!cursor.Step("Sid=\"") || !cursor.TakeUntil('"', id)) {
        ZEL_LOG_INFO("m_ParseFolderItem Sid failed\n");
        return false;
    }
    cursor.StepOne();
    if (!cursor.Step("Path=\"")) {
        ZEL_LOG_INFO("parse folder path failed###\n");
        return false;
    }
    if (!cursor.TakeUntil('"', path)) {
        ZEL_LOG_INFO("parse folder path failed\n");
        return false;
    }
    cursor.StepOne();
    if (!cursor.Step("Devicetype=")) {
        ZEL_LOG_INFO("parse folder path failed###\n");
        return false;
    }
    const std::string_view text = cursor.Rest();
    if (text.empty() || std::find(text.begin(), text.end(), '>') != text.end()) {
        ZEL_LOG_INFO("parse folder path failed\n");
        return false;
    }
    int type = 0;
    if (!ParseThumbFileDeviceType(text, type)) {
        ZEL_LOG_INFO("unknown device type\n");
        return false;
    }
    boost::intrusive_ptr<CZELFlashCacheFolderItem> pFolder(
        new CZELFlashCacheFolderItem(id, path, type));
    ZEL_LOG_INFO("id= %s ,path= %s ,devicetype=%d", pFolder->Sid.c_str(), pFolder->Path.c_str(),
                 pFolder->Devicetype);
    m_ThumbFolderList.push_back(std::move(pFolder));
    ZEL_LOG_INFO("m_ParseFolderItem success###\n");
    return true;
}
