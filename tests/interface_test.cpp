#include "fixture.h"
#include "zel_thumbnail_flash_cache.h"

// The exported functions, with the engine that they make.
struct Interface : CacheTest {
    Interface() { zel_create_thumbnail_flash_cache_param(&param); }
    ~Interface() override {
        zel_destroy_thumbnail_flash_cache_param(param);
        zel_thumbnail_flash_cache_clear();
    }
    void ExpectRefused(int answer) {
        EXPECT_EQ(std::to_string(answer) + Log(), "0W Invalid param.");
    }
    int SaveFile(const std::string& file, const char* url) {
        zel_set_thumbnail_flash_cache_filename(param, file.c_str());
        zel_set_thumbnail_flash_cache_url(param, url);
        zel_set_thumbnail_flash_cache_xsize(param, 16);
        zel_set_thumbnail_flash_cache_ysize(param, 12);
        return zel_thumbnail_flash_cache_save_file(param, pixels.data(), nullptr);
    }
    zel_thumbnail_flash_cache_param_h param = nullptr;
};

TEST_F(Interface, recordKeepsCopiesGivesCopiesAndRefusesNullAndEmpty) {
    ExpectRefused(zel_create_thumbnail_flash_cache_param(nullptr));
    ExpectRefused(zel_destroy_thumbnail_flash_cache_param(nullptr));
    const auto checkText = [this](auto set, auto get, char*& field) {
        char *text = nullptr, *other = nullptr;
        ExpectRefused(get(param, &text));
        EXPECT_EQ(set(param, (std::string("the first ") + "text").c_str()), 1);
        EXPECT_EQ(set(param, field + 4), 1);  // a part of the text that it replaces
        ExpectRefused(set(nullptr, "a"));
        ExpectRefused(set(param, nullptr));
        ExpectRefused(set(param, ""));
        ExpectRefused(get(nullptr, &text));
        ExpectRefused(get(param, nullptr));
        EXPECT_EQ(get(param, &text) + get(param, &other), 2);
        text[0] = 'F';
        EXPECT_STREQ(other, "first text");
        EXPECT_STREQ(field, "first text");
        free(text), free(other);
    };
    const auto checkNumber = [this](auto set, auto get, int value) {
        int number = -1;
        ExpectRefused(set(nullptr, 1));
        ExpectRefused(get(nullptr, &number));
        ExpectRefused(get(param, nullptr));
        EXPECT_EQ(get(param, &number) + number, 1);  // a new record has 0
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
    EXPECT_EQ(std::pair(xsize, ysize), std::pair(7, 8));
}

// The probe is what a caller does to learn when the cache is ready.
TEST_F(Interface, savesAreRefusedUntilTheEngineIsReadyWhichAProbeTells) {
    EXPECT_EQ(zel_thumbnail_flash_cache_save_file(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(Engine::m_pObj, nullptr);
    EXPECT_EQ(SaveFile("/a.jpg", "file:x"), 0);
    EXPECT_EQ(zel_thumbnail_flash_cache_init(nullptr), 0);
    EXPECT_EQ(Log(),
              "I zel_thumbnail_flash_cache_save_file|W Invalid param."
              "|I zel_thumbnail_flash_cache_save_file|I constuct..."
              "|I SaveFlashFile m_bIsCreated is false~|I zel_thumbnail_flash_cache_init"
              "|I strCachePath is null");
    EXPECT_EQ(zel_thumbnail_flash_cache_init(index.c_str()), 1);
    while (SaveFile("/dev/null", "probe:") == 0)
        std::this_thread::yield();
    EXPECT_TRUE(Engine::m_pObj->FlagCreate());
    EXPECT_EQ(zel_thumbnail_flash_cache_clear(), 1);
    EXPECT_EQ(zel_thumbnail_flash_cache_clear(), 1);
}
