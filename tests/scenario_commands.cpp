// What a scenario can do: the library's functions and the engine's members under their names, and
// what happens around them.
#include <fcntl.h>
#include <sys/stat.h>

#include "scenario.h"
#include "zel_thumbnail_flash_cache.h"

void Scenario::Start(const char* indexPath) {
    isLockUnknown_ = true;  // the worker may have it by now, or not yet
    Do([&] {
        const int isStarted = zel_thumbnail_flash_cache_init(indexPath);
        TheEngine().m_AwaitWorkers();
        return isStarted;
    });
    isLockUnknown_ = false;
}

void Scenario::Save(const char* file, const char* url, const std::string& size, char* preset) {
    std::sscanf(size.c_str(), "%dx%d", &xsize_, &ysize_);
    zel_thumbnail_flash_cache_param_h param = nullptr;
    EXPECT_EQ(zel_create_thumbnail_flash_cache_param(&param), 1);
    const bool hasFile = file != std::string("null"), hasUrl = url != std::string("null");
    EXPECT_EQ(hasFile, hasFile && zel_set_thumbnail_flash_cache_filename(param, file));
    EXPECT_EQ(hasUrl, hasUrl && zel_set_thumbnail_flash_cache_url(param, url));
    EXPECT_EQ(zel_set_thumbnail_flash_cache_xsize(param, xsize_), 1);
    EXPECT_EQ(zel_set_thumbnail_flash_cache_ysize(param, ysize_), 1);
    Do([&] { return zel_thumbnail_flash_cache_save_file(param, pixels.data(), preset); });
    EXPECT_EQ(zel_destroy_thumbnail_flash_cache_param(param), 1);
}

// A word ID=PATH or PATH; "null" is no text.
_zel_storage_s Scenario::StorageOf(const std::string& word) {
    const auto keep = [&](const std::string& text) {
        return text == "null" ? nullptr : texts_.emplace_back(text).c_str();
    };
    const std::size_t sign = word.find('=');
    if (sign == std::string::npos)
        return {keep(word)};
    return {keep(word.substr(sign + 1)), keep(word.substr(0, sign))};
}

// Each storage as above, or "none" in its place; "uncounted" is an answer for all.
void Scenario::Attach(int kind, const Words& words) {
    FakePlatform::Devices& devices = platform.devices[kind] = {};
    for (const std::string& word : words)
        if (word == "uncounted")
            devices.count = -1;
        else if (word == "none")
            devices.storages.emplace_back();
        else
            devices.storages.emplace_back(StorageOf(word));
}

const std::map<std::string, Scenario::Command>& Scenario::Commands() {
    using Item = Engine::CZELFlashCacheItem;
    using Folder = Engine::CZELFlashCacheFolderItem;
    using Kind = zel_storage_device_type;
    static const auto text = [](const Words& words, std::size_t at) -> char* {
        return at < words.size() ? const_cast<char*>(words[at].c_str()) : nullptr;
    };
    static const auto number = [](const Words& words, std::size_t at, int base = 10) {
        return std::stoi(words.at(at), nullptr, base);
    };
    static const auto ofPath = [](auto member) {
        return [member](auto& self, auto words) {
            self.Do([&] { return (TheEngine().*member)(text(words, 0)); });
        };
    };
    static const auto ofRecord = [](auto member) {
        return [member](auto& self, auto words) {
            char* record = text(words, 0);
            self.Do([&] { return (TheEngine().*member)(record, record ? number(words, 1) : 0); });
        };
    };
    static const std::map<std::string, Command> commands = {
        // The library, as its callers and the device's events see it
        {"init", [](auto& self, auto words) { self.Start(text(words, 0)); }},
        {"clear",
         [](auto& self, auto) {
             self.isLockUnknown_ = true;  // it goes
             self.Do(zel_thumbnail_flash_cache_clear);
             self.isLockUnknown_ = false;
         }},
        {"save",
         [](auto& self, auto words) {
             if (words.size() > 3)
                 words[3].resize(4096, '\0'), words[3].back() = '!';
             self.Save(text(words, 0), text(words, 1), words[2], text(words, 3));
         }},
        {"event",
         [](auto& self, auto words) {
             self.hasWorked_ = true;
             _zel_storage_s gone = self.StorageOf(words[1]), *storage = &gone;
             Engine::s_ZELUSBConnctedCallback(words.size() > 2 ? nullptr : &TheEngine(),
                                              zel_storage_event_e(number(words, 0)), storage);
         }},
        // The engine's members
        {"headroom", [](auto&, auto words) { TheEngine().m_EvictionHeadroom = number(words, 0); }},
        {"m_LoadThumbFile",
         [](auto& self, auto words) {
             TheEngine().m_ResetState();
             TheEngine().m_strCachePath = words[0];
             self.Do([] { return TheEngine().m_LoadThumbFile(); });
         }},
        {"loads",  // such a text between two records
         [](auto& self, auto words) {
             std::ofstream(self.index) << ItemRecord("p/a", 1) << words[0] << FolderRecord("x");
             Engine& loading = TheEngine();
             loading.m_strCachePath = self.index;
             self.Do([&] { return loading.m_LoadThumbFile(); });
             self.seen_ += self.Describe(loading).erase(0, 1) + "\n";
             loading.m_ResetState();
             fs::remove(self.index);
         }},
        {"m_Parse", ofRecord(&Engine::m_Parse)},
        {"m_ParseItem", ofRecord(&Engine::m_ParseItem)},
        {"m_ParseFolderItem", ofRecord(&Engine::m_ParseFolderItem)},
        {"holds",
         [](auto& self, auto) { self.seen_ += self.Describe(TheEngine()).erase(0, 1) + "\n"; }},
        {"m_RefreshThumbFile",
         [](auto& self, auto) { self.Do([] { return TheEngine().m_RefreshThumbFile(); }); }},
        {"m_AddItemToThumbFile",
         [](auto& self, auto words) {
             boost::intrusive_ptr<Item> item;
             if (!words.empty()) {
                 item = new Item;
                 item->Path = words[0];
                 item->URL = words[1];
                 item->Size = number(words, 2);
                 item->Devicetype = number(words, 3);
             }
             self.Do([&] { return TheEngine().m_AddItemToThumbFile(item); });
         }},
        {"m_AddFolderItemToThumbFile",
         [](auto& self, auto words) {
             boost::intrusive_ptr<Folder> folder;
             if (!words.empty()) {
                 folder = new Folder;
                 folder->Sid = words[0];
                 folder->Path = words[1];
                 folder->Devicetype = number(words, 2);
             }
             self.Do([&] { return TheEngine().m_AddFolderItemToThumbFile(folder); });
         }},
        {"m_CheckUrl",
         [](auto& self, auto words) {
             std::string folder, id, mount;
             self.Do([&] {
                 return TheEngine().m_CheckUrl(self.pixels.data(), text(words, 0), text(words, 1),
                                               folder, id, mount);
             });
             self.seen_ += "[" + folder + "] [" + id + "] [" + mount + "]\n";
         }},
        {"m_BmpSave",
         [](auto& self, auto words) {
             std::sscanf(words[1].c_str(), "%dx%d", &self.xsize_, &self.ysize_);
             if (words.size() > 2)
                 words[2].resize(4096, '\0');
             self.Do([&] {
                 return TheEngine().m_BmpSave(self.pixels.data(), text(words, 2), self.xsize_,
                                              self.ysize_, text(words, 0));
             });
         }},
        {"m_GetDeciveList",
         [](auto& self, auto words) {
             std::map<std::string, std::string> map = {{"old", "map"}};
             self.platform.passes = 0;
             self.Do([&] { return TheEngine().m_GetDeciveList(map, Kind(number(words, 0))); });
             for (const auto& [id, path] : map)
                 self.seen_ += id + " at " + path + "\n";
         }},
        {"m_GetStorageList",
         [](auto& self, auto) {
             std::map<std::string, std::string> map;
             self.Do([&] { return TheEngine().m_GetStorageList(map); });
         }},
        {"CreateDir", ofPath(&Engine::CreateDir)},
        {"RemoveDir", ofPath(&Engine::RemoveDir)},
        {"m_RemoveThumb", ofPath(&Engine::m_RemoveThumb)},
        {"FileExist", ofPath(&Engine::FileExist)},
        {"m_RemoveStorage", ofPath(&Engine::m_RemoveStorage)},
        // The platform
        {"usb", [](auto& self, auto words) { self.Attach(ZEL_STORAGE_DEVICE_TYPE_USB, words); }},
        {"ptp", [](auto& self, auto words) { self.Attach(ZEL_STORAGE_DEVICE_TYPE_PTP, words); }},
        {"database",
         [](auto& self, auto words) {
             self.platform.database.clear();
             for (const std::string& word : words)
                 self.platform.database.push_back(self.StorageOf(word));
         }},
        {"late",  // the database has only those before the pass of that number
         [](auto& self, auto words) {
             const std::vector<_zel_storage_s> late = self.platform.database;
             self.platform.database = {self.StorageOf(words[1])};
             self.platform.onPass = [&self, late, at = number(words, 0)](int pass) {
                 if (pass == at)
                     self.platform.database = late;
             };
         }},
        {"refuse",  // the calls CALL or CALL=RESULT
         [](auto& self, auto words) {
             self.platform.passes = 0;
             self.platform.results.clear();
             for (const std::string& word : words) {
                 const std::size_t sign = word.find('=');
                 self.platform.results[word.substr(0, sign)] =
                     sign == word.npos ? -1 : std::stoi(word.substr(sign + 1));
             }
         }},
        // The files
        {"write",
         [](auto&, auto words) { std::ofstream(words[0]) << (words.size() > 1 ? words[1] : ""); }},
        {"record",
         [](auto&, auto words) {
             std::ofstream(words[0], std::ios::app)
                 << (words.size() > 2 ? ItemRecord(words[1], number(words, 2))
                                      : FolderRecord(words[1]));
         }},
        {"mkdir", [](auto&, auto words) { fs::create_directories(words[0]); }},
        {"remove", [](auto&, auto words) { fs::remove_all(words[0]); }},
        {"chmod", [](auto&, auto words) { chmod(text(words, 1), number(words, 0, 8)); }},
        {"umask", [](auto&, auto words) { umask(number(words, 0, 8)); }},
        {"pipe", [](auto&, auto words) { mkfifo(text(words, 0), 0666); }},
        {"link", [](auto&, auto words) { fs::create_symlink(words[0], words[1]); }},
    };
    return commands;
}
