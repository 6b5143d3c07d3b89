#include <algorithm>
#include <cstring>
#include <exception>
#include <string_view>
#include <tuple>

#include "bmp_header.h"
#include "util/log.h"
#include "util/size_arithmetic.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

enum UrlClass {
    URL_CLASS_USB = DEVICE_TYPE_USB,
    URL_CLASS_PTP = DEVICE_TYPE_PTP,
    URL_CLASS_OTHER = 2,
    URL_CLASS_INVALID = 3
};

constexpr char usbRoot[] = "/opt/storage/usb/";
constexpr char ptpScheme[] = "ptp://";

// The "/" that ends the mount path is looked for from here on: a device directory is taken to have
// at least two characters.
constexpr std::size_t mountPathMinLength = 19;

// Takes an item's size out of the accounted size again, unless the item was stored.
class SpaceReservation {
public:
    SpaceReservation(int& cacheSize, const CZELThumbFlashCache::CZELFlashCacheItem& item)
        : m_CacheSize(cacheSize), m_Item(item) {}
    ~SpaceReservation() {
        if (!m_bKept) {
            m_CacheSize = WrappingSubtract(m_CacheSize, m_Item.Size);
        }
    }

    void Keep() { m_bKept = true; }

private:
    int& m_CacheSize;
    const CZELThumbFlashCache::CZELFlashCacheItem& m_Item;
    bool m_bKept = false;
};

}  // namespace

bool CZELThumbFlashCache::SaveFlashFile(unsigned char* buffer, int xsize, int ysize,
                                        const char* filename, char* url, char* bufferPreset) try {
    const CZELMutexGuard guard(m_Lock);
    if (!m_bIsCreated) {
        ZEL_LOG_INFO("SaveFlashFile m_bIsCreated is false\n");
        return false;
    }
    std::string strFolder;
    std::string strId;
    std::string strMountPath;
    const int urlClass = m_CheckUrl(buffer, filename, url, strFolder, strId, strMountPath);
    if (urlClass == URL_CLASS_OTHER) {
        return m_SaveThumb(buffer, bufferPreset, xsize, ysize, filename);
    }
    if (urlClass == URL_CLASS_INVALID) {
        ZEL_LOG_INFO("find fail,invalid url\n");
        return false;
    }
    if (urlClass == URL_CLASS_USB) {
        ZEL_LOG_INFO("It is an USB device. \n");
        // A storage that is known already keeps its mount path.
        std::ignore = m_MountPathMap.try_emplace(strId, strMountPath);
        ZEL_LOG_INFO("strFolder[%s], strId[%s], strMountPath[%s]\n", strFolder.c_str(),
                     strId.c_str(), strMountPath.c_str());
    } else {
        ZEL_LOG_INFO("It is an ptp device. \n");
        std::ignore = m_PtpDeviceMap.try_emplace(strId, "ptp");
        ZEL_LOG_INFO("strFolder[%s], strId[%s], strUrl[%s]\n", strFolder.c_str(), strId.c_str(),
                     url);
    }

    // In a list of its own from the start: a stored thumbnail then joins the others without needing
    // memory, which could fail.
    ItemList newItem;
    newItem.push_back(boost::intrusive_ptr<CZELFlashCacheItem>(new CZELFlashCacheItem));
    CZELFlashCacheItem& item = *newItem.front();
    item.Path = std::move(strFolder);
    item.URL = std::string(filename);
    item.Size = std::max(BmpFileSize(xsize, ysize), 0);
    item.Devicetype = urlClass;

    SpaceReservation reservation(m_CacheSize, item);
    m_ReserveSpace(item.Size);
    if (m_InsertItem(newItem.front(), std::move(strId), buffer, xsize, ysize, filename,
                     bufferPreset)) {
        m_ThumbItemList.splice(m_ThumbItemList.end(), newItem);
        reservation.Keep();
    }
    return true;
} catch (const std::exception& error) {
    ZEL_LOG_WARN("save failed: %s", error.what());
    return false;
}

int CZELThumbFlashCache::m_CheckUrl(unsigned char* buffer, const char* filename, char* url,
                                    std::string& strFolder, std::string& strId,
                                    std::string& strMountPath) {
    if (buffer == nullptr || filename == nullptr || url == nullptr) {
        ZEL_LOG_INFO("filename or url is null\n");
        return URL_CLASS_INVALID;
    }
    ZEL_LOG_INFO("m_CheckUrl..filename[%s], url[%s]\n", filename, url);
    const char* fileSlash = std::strrchr(filename, '/');
    if (fileSlash == nullptr) {
        ZEL_LOG_INFO("find fail,invalid FileName\n");
        return URL_CLASS_INVALID;
    }
    strFolder = std::string(filename, fileSlash);
    const std::size_t folderSlash = strFolder.rfind('/');
    if (folderSlash == std::string::npos) {
        ZEL_LOG_INFO("find fail,invalid FileName\n");
        return URL_CLASS_INVALID;
    }
    strId = strFolder.substr(folderSlash + 1);
    if (strId.empty()) {
        ZEL_LOG_INFO("SaveFlashFile strIdNumber is empty...\n");
        return URL_CLASS_INVALID;
    }
    const char* usb = std::strstr(url, usbRoot);
    if (usb == nullptr) {
        if (std::strstr(url, ptpScheme) != nullptr) {
            return URL_CLASS_PTP;
        }
        ZEL_LOG_INFO("it's not an usb or ptp device\n");
        return URL_CLASS_OTHER;
    }
    const std::string_view location(usb);
    const std::size_t mountPathEnd = location.find('/', mountPathMinLength);
    if (mountPathEnd == std::string_view::npos) {
        ZEL_LOG_INFO("find fail,invalid url\n");
        return URL_CLASS_INVALID;
    }
    strMountPath = std::string(location.substr(0, mountPathEnd));
    return URL_CLASS_USB;
}
