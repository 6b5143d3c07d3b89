#include "bare.h"
#include "fixture.h"

struct Images : CacheTest {
    using Writer = decltype(&Engine::m_JpegSave);
    static constexpr Writer jpeg = &Engine::m_JpegSave, bmp = &Engine::m_BmpSave;
    bool Make(Writer writer, const std::string& path, int xsize, int ysize, char* preset = {}) {
        return (*engine.*writer)(pixels.data(), preset, xsize, ysize, path.c_str());
    }
    // What the JPEG library itself makes of the pixels.
    std::string ReferenceJpeg(int xsize, int ysize) {
        bare::EncodeJpeg(pixels, xsize, ysize, (root + "/reference").c_str());
        return Read("reference");
    }
    std::string preset = "hello" + std::string(4091, '\0');
};

TEST_F(Images, jpegIsWhatTheJpegLibraryMakesAndReplacesTheOlderFile) {
    for (const auto& [xsize, ysize] : {std::pair(160, 120), {1, 1}, {7, 9}}) {
        ASSERT_TRUE(Make(jpeg, root + "/a", xsize, ysize));
        EXPECT_EQ(Read("a"), ReferenceJpeg(xsize, ysize)) << xsize;
    }
    ASSERT_TRUE(Make(jpeg, root + "/a", 20, 10, preset.data()));
    EXPECT_EQ(Read("a"), ReferenceJpeg(20, 10) + preset);
    EXPECT_EQ(Log(), "I m_JpegSave bufferPreset : [hello]###~");
}

TEST_F(Images, bmpHoldsTheRowsFromTheBottomUp) {
    const char head[] = "BM\x46\0\0\0\0\0\0\0\x36\0\0\0\x28\0\0\0\x02\0\0\0\x02\0\0\0\x01\0\x20";
    const std::string header = std::string(head, sizeof head) + std::string(24, '\0');
    const std::string rows(&pixels[0], &pixels[16]);
    ASSERT_TRUE(Make(bmp, root + "/a", 2, 2, preset.data()));
    EXPECT_EQ(Read("a"), header + rows.substr(8) + rows.substr(0, 8) + preset);
    ASSERT_TRUE(Make(bmp, root + "/a", -3, 2));
    EXPECT_EQ(Read("a").size(), 54U);
}

TEST_F(Images, imageThatCannotBeMadeLeavesNoFileAndOneLine) {
    const std::tuple<Writer, std::string, int, const char*> cases[] = {
        {jpeg, root + "/none/a", 2, "I can't open filename[$/none/a] errno=2~"},
        {bmp, "a.bmp", 2, "I can not find / in path:a.bmp"},
        {bmp, root + "/none/a", 2, "I fail to access dir path:$/none"},
        {bmp, root, 2, "I fopen fail"},
        {bmp, "/dev/full", 2, "I fwrite error"},
        {jpeg, "/dev/full", 2, "I m_JpegSave [/dev/full] failed: the device did not take it~"},
    };
    for (const auto& [writer, path, xsize, line] : cases) {
        EXPECT_FALSE(Make(writer, path, xsize, 2));
        EXPECT_EQ(Log(), line);
    }
    EXPECT_TRUE(fs::exists("/dev/full"));
}

TEST_F(Images, sizeThatNoJpegHasIsRefusedAndTheStoredImageStays) {
    Write("a", "stored");
    const std::pair<int, int> sizes[] = {{0, 2}, {2, 0}, {-1, 2}, {2, -1}, {65501, 2}, {2, 65501}};
    for (const auto& [xsize, ysize] : sizes) {
        EXPECT_FALSE(Make(jpeg, root + "/a", xsize, ysize));
        EXPECT_EQ(Log(), "I m_JpegSave [$/a] failed: " + std::to_string(xsize) + " x " +
                             std::to_string(ysize) + " is outside 1 to 65500 pixels~");
        EXPECT_EQ(Read("a"), "stored");
    }
}
