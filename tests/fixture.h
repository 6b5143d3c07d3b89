// A directory of its own, a scripted platform and an engine for each test.
#ifndef ZEL_TESTS_FIXTURE_H
#define ZEL_TESTS_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "fake_platform.h"
#include "zel_thumbnail_flash_cache_internal.h"

class TestEngine : public CZELThumbFlashCache {
public:
    using Item = CZELFlashCacheItem;
    using Folder = CZELFlashCacheFolderItem;

    Item& AddItem(const std::string& path, const std::string& url, long size, int type = 0) {
        m_ThumbItemList.emplace_back(new Item);
        Item& item = *m_ThumbItemList.back();
        item.Path = path, item.URL = url, item.Size = size, item.Devicetype = type;
        m_CacheSize += static_cast<int>(size);
        return item;
    }
    void AddFolder(const std::string& sid, const std::string& path, int type = 0) {
        m_ThumbFolderList.emplace_back(new Folder);
        Folder& folder = *m_ThumbFolderList.back();
        folder.Sid = sid, folder.Path = path, folder.Devicetype = type;
    }
    long SumOfSizes() const {
        long sum = 0;
        for (const auto& item : m_ThumbItemList) {
            sum += item->Size;
        }
        return sum;
    }
};

class CacheTest : public testing::Test {
protected:
    CacheTest() {
        std::string name = testing::TempDir() + "zelXXXXXX";
        root = mkdtemp(name.data());
        index = root / "index";
        g_platform = &platform;
        engine = std::make_unique<TestEngine>();
        engine->m_strCachePath = index;
    }
    ~CacheTest() override {
        engine.reset();
        g_platform = nullptr;
        std::filesystem::remove_all(root);
    }

    void Start() {
        ASSERT_TRUE(engine->m_Create());
        platform.TakeLog();
    }
    void Restart() {
        engine = std::make_unique<TestEngine>();
        engine->m_strCachePath = index;
        Start();
    }
    std::string MakeFolder(const std::string& name) {
        std::filesystem::create_directories(root / name);
        return root / name;
    }
    // Saves a picture for a stick of that name; its content depends on the size only.
    bool Save(const std::string& file, int xsize = 16, int ysize = 12, const char* url = usbUrl) {
        return engine->SaveFlashFile(Pixels(xsize, ysize).data(), xsize, ysize, file.c_str(),
                                     const_cast<char*>(url), nullptr);
    }
    static std::vector<unsigned char> Pixels(int xsize, int ysize) {
        std::vector<unsigned char> pixels(4UL * xsize * ysize);
        for (std::size_t i = 0; i < pixels.size(); ++i) {
            pixels[i] = static_cast<unsigned char>(i * i / 7 + i % 4 * 50);
        }
        return pixels;
    }
    static std::string Read(const std::filesystem::path& file) {
        std::stringstream text;
        text << std::ifstream(file, std::ios::binary).rdbuf();
        return text.str();
    }
    static void Write(const std::filesystem::path& file, const std::string& text) {
        std::ofstream(file, std::ios::binary) << text;
    }
    std::vector<std::string> Files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
            if (!entry.is_directory()) {
                names.push_back(entry.path().lexically_relative(root));
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    static std::string ItemRecord(const std::string& folder, const std::string& file, long size,
                                  int type = 0) {
        return "<Type=0,Path=\"" + folder + "\",URL=\"" + file + "\",Size=" + std::to_string(size) +
               ",Devicetype=" + std::to_string(type) + ">\r\n";
    }
    static std::string FolderRecord(const std::string& sid, const std::string& folder,
                                    int type = 0) {
        return "<Type=1,Sid=\"" + sid + "\",Path=\"" + folder +
               "\",Devicetype=" + std::to_string(type) + ">\r\n";
    }

    static constexpr char usbUrl[] = "/opt/storage/usb/sda1/DCIM/a.png";
    static constexpr char cameraUrl[] = "ptp://CAM7/0001";

    FakePlatform platform;
    std::filesystem::path root;
    std::filesystem::path index;
    std::unique_ptr<TestEngine> engine;
};

#endif
