// Loads an input as the index of a cache, rewrites it, and removes the data of some of its devices.
// An input that begins with "~" stands between two records so long that the border between the
// loader's first two reads lies in its middle, and the second read is full as well.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "sandbox.h"
#include "thumb_file_record.h"
#include "zel_thumbnail_flash_cache_internal.h"

namespace {

constexpr std::size_t firstReadSize = 1048576;

using Engine = CZELThumbFlashCache;
using Devices = std::map<std::string, std::string>;

void Require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "Violated: %s\n", what);
        std::abort();
    }
}

bool IsDeviceType(int type) { return type == DEVICE_TYPE_USB || type == DEVICE_TYPE_PTP; }

void CheckLists(const Engine& engine) {
    std::uint32_t sum = 0;
    for (const auto& item : engine.m_ThumbItemList) {
        Require(!item->Path.empty() && !item->URL.empty(), "a thumbnail has its paths");
        Require(item->Size >= 0 && item->Size <= INT32_MAX, "a size is a positive 32-bit number");
        Require(IsDeviceType(item->Devicetype), "a thumbnail has a device type");
        sum += static_cast<std::uint32_t>(item->Size);
    }
    for (const auto& folder : engine.m_ThumbFolderList) {
        Require(!folder->Sid.empty() && !folder->Path.empty(), "a folder has its id and path");
        Require(IsDeviceType(folder->Devicetype), "a folder has a device type");
    }
    Require(static_cast<std::uint32_t>(engine.m_CacheSize) == sum, "sizes are accounted for");
}

// The text that a rewrite of the lists is to give.
std::string Records(const Engine& engine) {
    std::string text;
    const auto append = [&](const auto& list) {
        for (const auto& entry : list) {
            char record[thumbFileRecordMaxLength];
            text.append(record, FormatThumbFileRecord(*entry, record));
        }
    };
    append(engine.m_ThumbFolderList);
    append(engine.m_ThumbItemList);
    return text;
}

void Load(Engine& engine, const Sandbox& sandbox) {
    engine.m_strCachePath = sandbox.Index();
    Require(engine.m_LoadThumbFile(), "an index is loaded");
    CheckLists(engine);
}

std::string LoadAndRewrite(const Sandbox& sandbox) {
    Engine engine;
    Load(engine, sandbox);
    const std::string records = Records(engine);
    Require(engine.m_RefreshThumbFile(), "an index is rewritten");
    Require(sandbox.ReadIndex() == records, "a rewrite writes all records");
    return records;
}

void CheckRemoval(const Engine& engine, const Sandbox& sandbox,
                  const std::set<std::string>& stale) {
    CheckLists(engine);
    for (const auto& item : engine.m_ThumbItemList) {
        Require(stale.count(item->Path) == 0, "no thumbnail of a stale folder stays");
    }
    for (const std::string& path : stale) {
        Require(path.back() == '.' || !std::filesystem::is_directory(path), "stale folders go");
    }
    Require(stale.empty() || sandbox.ReadIndex() == Records(engine), "a removal is recorded");
    Require(sandbox.IsGuardIntact(), "nothing but device folders is removed");
}

void ConfineToSandbox(const Engine& engine, const Sandbox& sandbox) {
    for (const auto& item : engine.m_ThumbItemList) {
        item->Path = sandbox.Confine(item->Path);
    }
    for (const auto& folder : engine.m_ThumbFolderList) {
        folder->Path = sandbox.Confine(folder->Path);
    }
    sandbox.MakeFolders();
}

// Drops what belongs to unknown devices. The first character of its id says what a device is.
void DropUnknown(Engine& engine, const Sandbox& sandbox, Devices& usb) {
    Devices ptp;
    std::set<std::string> stale;
    for (const auto& folder : engine.m_ThumbFolderList) {
        const int kind = folder->Sid.front() % 4;
        if (kind == 0) {
            usb[folder->Sid] = "/" + folder->Sid;
        } else if (kind == 1) {
            ptp[folder->Sid] = "ptp";
        } else {
            stale.insert(folder->Path);
        }
    }
    Require(engine.m_DelUnvalidData(usb, ptp), "stale data is removed");
    CheckRemoval(engine, sandbox, stale);
    Require(!usb.empty() || !ptp.empty() || engine.m_ThumbItemList.empty(), "all may go");
}

// Drops what belongs to the first USB storage, as when it is pulled out.
void DropFirst(Engine& engine, const Sandbox& sandbox, const Devices& usb) {
    const auto& storage = *usb.begin();
    const auto folder =
        std::find_if(engine.m_ThumbFolderList.begin(), engine.m_ThumbFolderList.end(),
                     [&](const auto& known) { return known->Sid == storage.first; });
    const std::set<std::string> stale{(*folder)->Path};
    engine.m_MountPathMap = usb;
    Require(engine.m_RemoveStorage(storage.second), "a known storage is removed");
    CheckRemoval(engine, sandbox, stale);
    Require(engine.m_MountPathMap.size() + 1 == usb.size(), "a removed storage is forgotten");
}

void LoadAndRemove(const Sandbox& sandbox) {
    Engine engine;
    Load(engine, sandbox);
    ConfineToSandbox(engine, sandbox);
    Devices usb;
    DropUnknown(engine, sandbox, usb);
    if (!usb.empty()) {
        DropFirst(engine, sandbox, usb);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Sandbox sandbox;
    std::string index(reinterpret_cast<const char*>(data), size);
    if (!index.empty() && index.front() == '~') {
        const std::string record = "<" + std::string(firstReadSize - size / 2 - 4, 'x') + ">\r\n";
        index = record + index + record;
    }
    sandbox.WriteIndex(index);
    const std::string rewritten = LoadAndRewrite(sandbox);
    Require(LoadAndRewrite(sandbox) == rewritten, "a rewritten index is loaded whole");
    sandbox.WriteIndex(index);
    LoadAndRemove(sandbox);
    return 0;
}
