#include <thread>

#include "fixture.h"
#include "zel_thumbnail_flash_cache.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using Singleton = CZELSingleton<CZELThumbFlashCache>;

// The exported functions, with the engine that they make.
class Interface : public CacheTest {
protected:
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
        return zel_thumbnail_flash_cache_save_file(param, Pixels(16, 12).data(), nullptr);
    }
    zel_thumbnail_flash_cache_param_h param = nullptr;
};

TEST_F(Interface, nullAndEmptyArgumentsAreRefusedWithOneLineEach) {
    char* text = nullptr;
    int number = 7;
    const int results[] = {
        zel_create_thumbnail_flash_cache_param(nullptr),
        zel_destroy_thumbnail_flash_cache_param(nullptr),
        zel_set_thumbnail_flash_cache_filename(nullptr, "a"),
        zel_set_thumbnail_flash_cache_filename(param, nullptr),
        zel_set_thumbnail_flash_cache_filename(param, ""),
        zel_set_thumbnail_flash_cache_url(nullptr, "a"),
        zel_set_thumbnail_flash_cache_url(param, nullptr),
        zel_set_thumbnail_flash_cache_url(param, ""),
        zel_set_thumbnail_flash_cache_xsize(nullptr, 1),
        zel_set_thumbnail_flash_cache_ysize(nullptr, 1),
        zel_get_thumbnail_flash_cache_filename(nullptr, &text),
        zel_get_thumbnail_flash_cache_filename(param, nullptr),
        zel_get_thumbnail_flash_cache_filename(param, &text),  // never set
        zel_get_thumbnail_flash_cache_url(nullptr, &text),
        zel_get_thumbnail_flash_cache_url(param, nullptr),
        zel_get_thumbnail_flash_cache_url(param, &text),
        zel_get_thumbnail_flash_cache_xsize(nullptr, &number),
        zel_get_thumbnail_flash_cache_xsize(param, nullptr),
        zel_get_thumbnail_flash_cache_ysize(nullptr, &number),
        zel_get_thumbnail_flash_cache_ysize(param, nullptr),
    };
    EXPECT_THAT(results, Each(0));
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(number, 7);
    const auto log = platform.TakeLog();
    EXPECT_EQ(std::count(log.begin(), log.end(), "W Invalid param."), long{std::size(results)});
}

TEST_F(Interface, recordKeepsCopiesAndGivesCopies) {
    int xsize = 7;
    int ysize = 7;
    EXPECT_EQ(zel_get_thumbnail_flash_cache_xsize(param, &xsize), 1);
    EXPECT_EQ(zel_get_thumbnail_flash_cache_ysize(param, &ysize), 1);
    EXPECT_THAT((std::array{xsize, ysize}), Each(0));
    zel_set_thumbnail_flash_cache_xsize(param, -5);
    zel_set_thumbnail_flash_cache_ysize(param, 9);
    zel_get_thumbnail_flash_cache_xsize(param, &xsize);
    zel_get_thumbnail_flash_cache_ysize(param, &ysize);
    EXPECT_THAT((std::array{xsize, ysize}), ElementsAre(-5, 9));

    std::string given = "first";
    for (const auto set :
         {zel_set_thumbnail_flash_cache_filename, zel_set_thumbnail_flash_cache_url}) {
        EXPECT_EQ(set(param, given.c_str()), 1);
        EXPECT_EQ(set(param, "second"), 1);
        EXPECT_EQ(set(param, ""), 0);
    }
    for (const auto get :
         {zel_get_thumbnail_flash_cache_filename, zel_get_thumbnail_flash_cache_url}) {
        for (int round = 0; round < 2; ++round) {
            char* text = nullptr;
            EXPECT_EQ(get(param, &text), 1);
            EXPECT_STREQ(text, "second");
            text[0] = 'x';
            free(text);
        }
    }
}

TEST_F(Interface, savesAreRefusedUntilTheEngineIsCreated) {
    platform.TakeLog();
    EXPECT_EQ(zel_thumbnail_flash_cache_save_file(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(Singleton::m_pObj, nullptr);
    EXPECT_THAT(platform.TakeLog(),
                ElementsAre("I zel_thumbnail_flash_cache_save_file", "W Invalid param."));
    EXPECT_EQ(SaveFile(root / "a.jpg", "file:x"), 0);
    ASSERT_NE(Singleton::m_pObj, nullptr);
    EXPECT_FALSE(Singleton::m_pObj->FlagCreate());
    EXPECT_EQ(platform.TakeLog().back(), "I SaveFlashFile m_bIsCreated is false\n");
    EXPECT_EQ(zel_thumbnail_flash_cache_init(nullptr), 0);
    EXPECT_THAT(platform.TakeLog(),
                ElementsAre("I zel_thumbnail_flash_cache_init", "I strCachePath is null"));
}

// Also what a caller does to learn when the cache is ready.
TEST_F(Interface, probeAnswersWhenTheEngineIsReadyAndClearEndsIt) {
    ASSERT_EQ(zel_thumbnail_flash_cache_init(index.c_str()), 1);
    while (SaveFile("/dev/null", "probe:") == 0) {
        std::this_thread::yield();
    }
    EXPECT_TRUE(Singleton::m_pObj->FlagCreate());
    EXPECT_EQ(SaveFile(MakeFolder("dev0") + "/a.jpg", usbUrl), 1);
    EXPECT_EQ(zel_thumbnail_flash_cache_save_file(param, nullptr, nullptr), 0);
    EXPECT_EQ(SaveFile("a.jpg", usbUrl), 0);
    EXPECT_EQ(zel_thumbnail_flash_cache_clear(), 1);
    EXPECT_EQ(Singleton::m_pObj, nullptr);
    EXPECT_EQ(zel_thumbnail_flash_cache_clear(), 1);
    EXPECT_EQ(platform.disconnects, 1);
    EXPECT_THAT(Files(), ElementsAre("dev0/a.jpg", "index"));
}

}  // namespace
