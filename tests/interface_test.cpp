#include "zel_thumbnail_flash_cache.h"

#include "fixture.h"

// The exported functions, with the engine that they make.
struct Interface : CacheTest {
    Interface() { zel_create_thumbnail_flash_cache_param(&param); }
    ~Interface() override {
        zel_destroy_thumbnail_flash_cache_param(param);
        zel_thumbnail_flash_cache_clear();
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
    const auto checkText = [this](auto set, auto get, std::string value) {
        char *text = nullptr, *other = nullptr;
        EXPECT_FALSE(get(nullptr, &text) || get(param, nullptr) || get(param, &text) ||
                     set(nullptr, "a") || set(param, nullptr) || set(param, ""));
        EXPECT_TRUE(set(param, "first") && set(param, std::string(value).c_str()));
        EXPECT_TRUE(get(param, &text) && get(param, &other));
        EXPECT_EQ(text + value + other, value + value + value);
        EXPECT_NE(text, other);
        free(text), free(other);
    };
    EXPECT_FALSE(zel_create_thumbnail_flash_cache_param(nullptr) ||
                 zel_destroy_thumbnail_flash_cache_param(nullptr));
    checkText(zel_set_thumbnail_flash_cache_filename, zel_get_thumbnail_flash_cache_filename, "f");
    checkText(zel_set_thumbnail_flash_cache_url, zel_get_thumbnail_flash_cache_url, "url");
    EXPECT_EQ(boost::replace_all_copy("|" + Log(), "|W Invalid param.", "."), std::string(14, '.'));
}

TEST_F(Interface, savesAreRefusedUntilTheEngineIsCreated) {
    EXPECT_FALSE(zel_thumbnail_flash_cache_save_file(nullptr, nullptr, nullptr) ||
                 SaveFile("/a.jpg", "file:x") || zel_thumbnail_flash_cache_init(nullptr));
    EXPECT_TRUE(zel_thumbnail_flash_cache_clear() && platform.disconnects == 0);
    EXPECT_EQ(Log(),
              "I zel_thumbnail_flash_cache_save_file|W Invalid param."
              "|I zel_thumbnail_flash_cache_save_file|I constuct..."
              "|I SaveFlashFile m_bIsCreated is false~|I zel_thumbnail_flash_cache_init"
              "|I strCachePath is null|I zel_thumbnail_flash_cache_clear");
}

// Also what a caller does to learn when the cache is ready.
TEST_F(Interface, probeAnswersWhenTheEngineIsReadyAndClearEndsIt) {
    ASSERT_TRUE(zel_thumbnail_flash_cache_init(index.c_str()) && zel_thumbnail_flash_cache_clear());
    ASSERT_EQ(zel_thumbnail_flash_cache_init(index.c_str()), 1);
    while (SaveFile("/dev/null", "probe:") == 0)
        std::this_thread::yield();
    EXPECT_TRUE(Engine::m_pObj->FlagCreate() && SaveFile(Write("dev0/a.jpg", ""), "ptp://1"));
    EXPECT_TRUE(zel_thumbnail_flash_cache_clear() && zel_thumbnail_flash_cache_clear());
    EXPECT_EQ(platform.disconnects, platform.connects);
    EXPECT_THAT(Read(), HasSubstr("URL=\"$/dev0/a.jpg\""));
}
