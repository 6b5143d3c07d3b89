// The exported functions: their records, and what they answer before there is an engine.
#include "zel_thumbnail_flash_cache.h"

#include "fixture.h"
#include "zel_thumbnail_flash_cache_events.h"

struct Interface : CacheTest {
    void ExpectRefused(int answer) {
        EXPECT_EQ(answer, 0);
        EXPECT_EQ(Log(), "W Invalid param.");
    }
};

TEST_F(Interface, recordKeepsCopiesGivesCopiesAndRefusesNullAndEmpty) {
    zel_thumbnail_flash_cache_param_h param = nullptr;
    ExpectRefused(zel_create_thumbnail_flash_cache_param(nullptr));
    EXPECT_EQ(zel_create_thumbnail_flash_cache_param(&param), 1);
    ExpectRefused(zel_destroy_thumbnail_flash_cache_param(nullptr));
    const auto checkText = [&](auto set, auto get, char*& field) {
        char none[] = "none", *text = none, *other = nullptr;
        ExpectRefused(get(param, &text));
        EXPECT_EQ(set(param, (std::string("the first ") + "text").c_str()), 1);
        EXPECT_EQ(set(param, field + 4), 1);  // a part of the text that it replaces
        ExpectRefused(set(nullptr, "a"));
        ExpectRefused(set(param, nullptr));
        ExpectRefused(set(param, ""));
        ExpectRefused(get(nullptr, &text));
        ExpectRefused(get(param, nullptr));
        EXPECT_STREQ(text, "none");
        EXPECT_EQ(get(param, &text), 1);
        EXPECT_EQ(get(param, &other), 1);
        text[0] = 'F';
        EXPECT_STREQ(other, "first text");
        EXPECT_STREQ(field, "first text");
        free(text), free(other);
    };
    const auto checkNumber = [&](auto set, auto get, int value) {
        int number = -1;
        ExpectRefused(set(nullptr, 1));
        ExpectRefused(get(nullptr, &number));
        ExpectRefused(get(param, nullptr));
        EXPECT_EQ(number, -1);
        EXPECT_EQ(get(param, &number), 1);
        EXPECT_EQ(number, 0);
        EXPECT_EQ(set(param, value), 1);
    };
    char** texts = reinterpret_cast<char**>(param);  // its first two fields
    checkText(zel_set_thumbnail_flash_cache_filename, zel_get_thumbnail_flash_cache_filename,
              texts[0]);
    checkText(zel_set_thumbnail_flash_cache_url, zel_get_thumbnail_flash_cache_url, texts[1]);
    checkNumber(zel_set_thumbnail_flash_cache_xsize, zel_get_thumbnail_flash_cache_xsize, 7);
    checkNumber(zel_set_thumbnail_flash_cache_ysize, zel_get_thumbnail_flash_cache_ysize, 8);
    int xsize = 0, ysize = 0;
    EXPECT_EQ(zel_get_thumbnail_flash_cache_xsize(param, &xsize), 1);
    EXPECT_EQ(zel_get_thumbnail_flash_cache_ysize(param, &ysize), 1);
    EXPECT_EQ(xsize, 7);
    EXPECT_EQ(ysize, 8);
    EXPECT_EQ(zel_destroy_thumbnail_flash_cache_param(param), 1);
    EXPECT_EQ(zel_thumbnail_flash_cache_save_file(nullptr, pixels.data(), nullptr), 0);
    EXPECT_EQ(Log(), "I zel_thumbnail_flash_cache_save_file|W Invalid param.");
}

TEST_F(Interface, thumbnailWithoutDeviceFolderOrPixelsIsRefused) {
    using Item = Engine::CZELFlashCacheItem;
    const auto insert = [this](Item* item, const char* id) {
        return engine->m_InsertItem(item, id, pixels.data(), 1, 1, index.c_str(), nullptr);
    };
    EXPECT_FALSE(insert(nullptr, "id"));
    EXPECT_EQ(Log(), "I m_InsertItem pThumbItem is NULL###~");
    EXPECT_FALSE(insert(new Item, ""));
    EXPECT_EQ(Log(), "I m_InsertItem pThumbItem is NULL###~");
    EXPECT_FALSE(insert(new Item, "id"));
    EXPECT_EQ(Log(), "I m_InsertItem strFolder is empty###~");
    EXPECT_FALSE(engine->m_DeleteItem(nullptr));
    EXPECT_EQ(Log(), "I m_DeleteItem...~|I m_DeleteItem pThumbItem is NULL~");
    std::string folder, id, mount, url = "ptp://camera";
    EXPECT_EQ(engine->m_CheckUrl(nullptr, "/cache/id/a", url.data(), folder, id, mount), 3);
    EXPECT_EQ(Log(), "I filename or url is null~");
}

TEST_F(Interface, eventWithoutACacheIsPassedOver) {
    zel_thumbnail_flash_cache_clear();
    _zel_storage_s storage{"/opt/storage/usb/sda1"}, *event = &storage;
    zel_thumbnail_flash_cache_storage_event(2, event);
    EXPECT_EQ(Log(), "I zel_thumbnail_flash_cache_clear");
}

TEST_F(Interface, ofAFolderWithoutAPathNothingIsRemoved) {
    Engine::DeviceMap storages = {{"id", "/opt/storage/usb/sda1"}}, cameras;
    engine->m_ThumbFolderList.emplace_back(new Engine::CZELFlashCacheFolderItem);
    EXPECT_TRUE(engine->m_DelUnvalidData(storages, cameras));
    EXPECT_EQ(Log(),
              "I usbFlashMap size= [1],ptpFlashMap size= [0]~|"
              "I m_ThumbFolderList get id = []~");
}

TEST_F(Interface, longestRowAndHighestColumnAreSavedAndAnImageWithoutANameIsNot) {
    std::vector<unsigned char> line(std::size_t{65500} * 4);
    for (const auto& [xsize, ysize] : {std::pair(65500, 1), std::pair(1, 65500)})
        EXPECT_TRUE(engine->m_JpegSave(line.data(), nullptr, xsize, ysize, index.c_str()));
    EXPECT_FALSE(engine->m_BmpSave(line.data(), nullptr, 1, 1, nullptr));
    EXPECT_EQ(Log(), "I can not find / in path:");
    EXPECT_FALSE(engine->m_JpegSave(line.data(), nullptr, 1, 0, nullptr));
    EXPECT_EQ(Log(), "I m_JpegSave [] failed: 1 x 0 is outside 1 to 65500 pixels~");
    EXPECT_FALSE(engine->m_JpegSave(line.data(), nullptr, 1, 1, nullptr));
    EXPECT_EQ(Log(), "I can't open filename[] errno=14~");
}
