#include <cstdio>
// Relies on <cstdio> before it.
#include <jpeglib.h>

#include "fixture.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// What the JPEG library itself makes of the pixels.
std::string ReferenceJpeg(std::vector<unsigned char> pixels, int xsize, int ysize) {
    jpeg_compress_struct codec{};
    jpeg_error_mgr errors;
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    codec.err = jpeg_std_error(&errors);
    jpeg_create_compress(&codec);
    jpeg_mem_dest(&codec, &bytes, &size);
    codec.image_width = xsize, codec.image_height = ysize;
    codec.in_color_space = JCS_EXT_BGRX, codec.input_components = 4;
    jpeg_set_defaults(&codec);
    jpeg_set_quality(&codec, 100, TRUE);
    jpeg_start_compress(&codec, TRUE);
    for (int row = 0; row < ysize; ++row) {
        JSAMPROW start = &pixels[4UL * row * xsize];
        jpeg_write_scanlines(&codec, &start, 1);
    }
    jpeg_finish_compress(&codec);
    jpeg_destroy_compress(&codec);
    const std::string text(bytes, bytes + size);
    free(bytes);
    return text;
}

class Images : public CacheTest {
protected:
    bool Jpeg(int xsize, int ysize, const std::string& file, char* preset = nullptr) {
        return engine->m_JpegSave(pixels.data(), preset, xsize, ysize, file.c_str());
    }
    bool Bmp(int xsize, int ysize, const std::string& file, char* preset = nullptr) {
        return engine->m_BmpSave(pixels.data(), preset, xsize, ysize, file.c_str());
    }
    std::vector<unsigned char> pixels = Pixels(20, 10);
    std::string file = root / "a.img";
    std::string preset = "hello" + std::string(4091, '\0');
};

TEST_F(Images, jpegIsWhatTheJpegLibraryMakesAndReplacesTheOlderFile) {
    for (const auto& [xsize, ysize] : {std::pair(20, 10), {1, 1}, {7, 9}}) {
        ASSERT_TRUE(Jpeg(xsize, ysize, file));
        EXPECT_EQ(Read(file), ReferenceJpeg(pixels, xsize, ysize)) << xsize;
    }
    ASSERT_TRUE(Jpeg(20, 10, file, preset.data()));
    EXPECT_EQ(Read(file), ReferenceJpeg(pixels, 20, 10) + preset);
    EXPECT_THAT(platform.TakeLog(), testing::Contains("I m_JpegSave bufferPreset : [hello]###\n"));
}

TEST_F(Images, jpegThatCannotBeMadeLeavesNoFileAndOneLine) {
    platform.TakeLog();
    for (const auto& [xsize, ysize] :
         {std::pair(0, 10), {10, 0}, {-1, 10}, {10, -1}, {65501, 1}, {1, 65501}}) {
        EXPECT_FALSE(Jpeg(xsize, ysize, file));
        EXPECT_THAT(platform.TakeLog(), ElementsAre(HasSubstr("] failed: "))) << xsize;
    }
    EXPECT_FALSE(Jpeg(2, 2, root / "none/a"));
    EXPECT_THAT(platform.TakeLog(),
                ElementsAre("I can't open filename[" + root.string() + "/none/a] errno=2\n"));
    std::filesystem::create_symlink("begun", root / "link");
    EXPECT_FALSE(Jpeg(0, 0, root / "link"));
    EXPECT_THAT(Files(), ElementsAre("link"));
}

TEST_F(Images, jpegOnAFullDeviceFailsAndLeavesTheDevice) {
    EXPECT_FALSE(Jpeg(20, 10, "/dev/full"));
    EXPECT_TRUE(std::filesystem::exists("/dev/full"));
}

TEST_F(Images, bmpHoldsTheRowsFromTheBottomUp) {
    ASSERT_TRUE(Bmp(2, 2, file, preset.data()));
    std::string expected("BM\x46\0\0\0\0\0\0\0\x36\0\0\0\x28\0\0\0\x02\0\0\0\x02\0\0\0\x01\0\x20",
                         29);
    expected.resize(54);
    expected.append(&pixels[8], &pixels[16]).append(&pixels[0], &pixels[8]).append(preset);
    EXPECT_EQ(Read(file), expected);
    ASSERT_TRUE(Bmp(2, 0, file));
    EXPECT_EQ(Read(file).size(), 54U);
    ASSERT_TRUE(Bmp(-3, 2, file));
    EXPECT_EQ(Read(file).size(), 54U);
}

TEST_F(Images, bmpThatCannotBeMadeSaysWhy) {
    const std::string none = root / "none";
    const std::pair<std::string, std::string> cases[] = {
        {"a.bmp", "I can not find / in path:a.bmp"},
        {"/a.bmp", "I fail to access dir path:"},
        {none + "/a.bmp", "I fail to access dir path:" + none},
        {root, "I fopen fail"},
        {"/dev/full", "I fwrite error"},
    };
    platform.TakeLog();
    for (const auto& [path, line] : cases) {
        EXPECT_FALSE(Bmp(2, 2, path));
        EXPECT_THAT(platform.TakeLog(), ElementsAre(line));
    }
    EXPECT_THAT(Files(), ElementsAre());
}

}  // namespace
