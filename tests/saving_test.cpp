#include <thread>

#include "fixture.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

class Saving : public CacheTest {
protected:
    Saving() { Start(); }

    std::string dev0 = MakeFolder("dev0");
    std::string a = dev0 + "/a.jpg";
};

TEST_F(Saving, savedThumbnailIsOneFileAndTwoRecordsAndItsLines) {
    ASSERT_TRUE(Save(a, 160, 120));
    const long size = static_cast<long>(std::filesystem::file_size(a));
    EXPECT_EQ(Read(index), ItemRecord(dev0, a, size) + FolderRecord("dev0", dev0));
    EXPECT_THAT(Files(), ElementsAre("dev0/a.jpg", "index"));
    EXPECT_EQ(engine->m_CacheSize, size);
    EXPECT_THAT(engine->m_MountPathMap, ElementsAre(std::pair("dev0", "/opt/storage/usb/sda1")));
    const std::string bytes = std::to_string(size);
    EXPECT_THAT(
        platform.TakeLog(),
        ElementsAre("I m_CheckUrl..filename[" + a + "], url[" + usbUrl + "]\n",
                    "I It is an USB device. \n",
                    "I strFolder[" + dev0 + "], strId[dev0], strMountPath[/opt/storage/usb/sda1]\n",
                    "I m_CacheSize begin:0\n", "I m_CacheSize space hold:76854\n", "I Start",
                    "I jepg size is " + bytes + ", m_CacheSize end:" + bytes + "\n", "I End"));

    ASSERT_TRUE(Save(a, 16, 12, cameraUrl));  // again, for a camera: a second item, the same folder
    EXPECT_THAT(engine->m_ThumbItemList, SizeIs(2));
    EXPECT_THAT(engine->m_ThumbFolderList, SizeIs(1));
    EXPECT_EQ(engine->m_CacheSize, engine->SumOfSizes());
    EXPECT_THAT(engine->m_PtpDeviceMap, ElementsAre(std::pair("dev0", "ptp")));
    EXPECT_THAT(platform.TakeLog()[2],
                "I strFolder[" + dev0 + "], strId[dev0], strUrl[" + cameraUrl + "]\n");
    EXPECT_THAT(Read(index), testing::EndsWith("Devicetype=1>\r\n"));
}

TEST_F(Saving, requestsAreClassifiedByUrlAndFileName) {
    struct Case {
        const char* file;
        const char* url;
        int result;
        const char* folder;
        const char* id;
        const char* mount;
        const char* line;
    };
    const char* fileName = "I find fail,invalid FileName\n";
    const Case cases[] = {
        {"/x/D01/a.jpg", "/opt/storage/usb/sda1/P/a", 0, "/x/D01", "D01", "/opt/storage/usb/sda1",
         ""},
        {"/x/D01/a.jpg", "file:///opt/storage/usb/sdb/x", 0, "/x/D01", "D01",
         "/opt/storage/usb/sdb", ""},
        {"/x/D01/a.jpg", "/opt/storage/usb/s/d/e.jpg", 0, "/x/D01", "D01", "/opt/storage/usb/s/d",
         ""},
        {"/x/D01/a.jpg", "/opt/storage/usb/sda1/", 0, "/x/D01", "D01", "/opt/storage/usb/sda1", ""},
        {"/x/D01/a.jpg", "ptp://1/opt/storage/usb/sda1/", 0, "/x/D01", "D01",
         "/opt/storage/usb/sda1", ""},
        {"/x/C/b.jpg", "ptp://C/0001", 1, "/x/C", "C", "", ""},
        {"/x/D01/a.jpg", "/media/u/a.png", 2, "/x/D01", "D01", "",
         "I it's not an usb or ptp device\n"},
        {"/x/D01/a.jpg", "/opt/storage/usb/sda1", 3, "/x/D01", "D01", "",
         "I find fail,invalid url\n"},
        {"/x/D01/a.jpg", "/opt/storage/usb/", 3, "/x/D01", "D01", "", "I find fail,invalid url\n"},
        {"a.jpg", "ptp://", 3, "", "", "", fileName},
        {"/a.jpg", "ptp://", 3, "", "", "", fileName},
        {"x/a.jpg", "ptp://", 3, "x", "", "", fileName},
        {"/x/y//a.jpg", "ptp://", 3, "/x/y/", "", "", "I SaveFlashFile strIdNumber is empty...\n"},
    };
    unsigned char pixel[4] = {};
    for (const Case& c : cases) {
        platform.TakeLog();
        std::string folder, id, mount;
        EXPECT_EQ(engine->m_CheckUrl(pixel, c.file, const_cast<char*>(c.url), folder, id, mount),
                  c.result)
            << c.file << " " << c.url;
        EXPECT_THAT((std::array{folder, id, mount}), ElementsAre(c.folder, c.id, c.mount)) << c.url;
        std::vector<std::string> lines{std::string("I m_CheckUrl..filename[") + c.file + "], url[" +
                                       c.url + "]\n"};
        if (*c.line != '\0') {
            lines.emplace_back(c.line);
        }
        EXPECT_THAT(platform.TakeLog(), ElementsAreArray(lines));
    }
}

TEST_F(Saving, invalidRequestsChangeNothing) {
    platform.TakeLog();
    EXPECT_FALSE(Save(a, 16, 12, nullptr));
    EXPECT_THAT(platform.TakeLog(),
                ElementsAre("I filename or url is null\n", "I find fail,invalid url\n"));
    EXPECT_FALSE(Save(a, 16, 12, "/opt/storage/usb/sda1"));
    EXPECT_FALSE(Save("a.jpg"));
    EXPECT_THAT(Files(), ElementsAre("index"));
    EXPECT_THAT(engine->m_MountPathMap, IsEmpty());
    EXPECT_TRUE(Save(a));  // the lock is free
}

TEST_F(Saving, otherUrlsOnlyGetTheirFile) {
    EXPECT_TRUE(Save(a, 16, 12, "/media/u/a.png"));
    EXPECT_FALSE(Save(root / "none/b.jpg", 16, 12, "/media/u/a.png"));
    EXPECT_THAT(Files(), ElementsAre("dev0/a.jpg", "index"));
    EXPECT_EQ(Read(index), "");
    EXPECT_EQ(engine->m_CacheSize, 0);
    EXPECT_THAT(engine->m_ThumbItemList, IsEmpty());
}

TEST_F(Saving, aFailedSaveAnswersTrueAndGivesItsSpaceBack) {
    ASSERT_TRUE(Save(a));
    const int before = engine->m_CacheSize;
    EXPECT_TRUE(Save(root / "none/b.jpg"));
    EXPECT_EQ(platform.TakeLog().back(), "I m_InsertItem m_JpegSave failed###\n");
    EXPECT_EQ(engine->m_MountPathMap.count("none"), 1U);
    engine->m_strCachePath = root / "none/index";
    EXPECT_TRUE(Save(dev0 + "/c.jpg"));
    const auto log = platform.TakeLog();
    EXPECT_THAT(std::vector(log.end() - 4, log.end()),
                ElementsAre("I Failed to create " + engine->m_strCachePath + "\tfile.\n",
                            "I m_InsertItem m_AddItemToThumbFile failed###\n",
                            "I m_RemoveThumb...\n", "I m_RemoveThumb file[" + dev0 + "/c.jpg]\n"));
    // A record that the index cannot hold is refused as well.
    engine->m_strCachePath = index;
    const std::string deep = MakeFolder("dev0" + [] {
        std::string path;
        for (int depth = 0; depth < 3; ++depth) {
            path += "/" + std::string(200, 'x');
        }
        return path;
    }());
    EXPECT_TRUE(Save(deep + "/d.jpg"));
    EXPECT_THAT(Files(), ElementsAre("dev0/a.jpg", "index"));
    EXPECT_EQ(engine->m_CacheSize, before);
    EXPECT_THAT(engine->m_ThumbItemList, SizeIs(1));
    EXPECT_THAT(engine->m_ThumbFolderList, SizeIs(1));
}

TEST_F(Saving, theOldestGoWhenTheCeilingIsPassed) {
    const int estimate = 16 * 12 * 4 + 54;
    const std::string dev1 = MakeFolder("dev1");
    ASSERT_TRUE(Save(dev0 + "/old.jpg"));
    engine->m_ThumbItemList.front()->Size = 50000;
    engine->m_CacheSize = 50000;
    engine->AddItem(dev1, dev1 + "/gone.jpg", 60000, 1);
    engine->AddItem(dev1, dev1 + "/big.jpg", ZEL_FLASH_CACHE_MAX - estimate - engine->m_CacheSize);
    ASSERT_TRUE(engine->m_RefreshThumbFile());
    ASSERT_TRUE(Save(a));  // exactly at the ceiling
    EXPECT_THAT(engine->m_ThumbItemList, SizeIs(4));

    (*std::next(engine->m_ThumbItemList.begin(), 2))->Size -= 2000;
    engine->m_CacheSize -= 2000;
    const int room = ZEL_FLASH_CACHE_MAX - engine->m_CacheSize;
    engine->AddItem(dev0, dev0 + "/last.jpg", room - estimate + 1);
    platform.TakeLog();
    ASSERT_TRUE(Save(dev0 + "/b.jpg"));  // one byte above: one of 50000 bytes goes
    const int size = static_cast<int>(std::filesystem::file_size(dev0 + "/b.jpg"));
    EXPECT_EQ(engine->m_CacheSize, ZEL_FLASH_CACHE_MAX - 49999 - estimate + size);
    const auto log = platform.TakeLog();
    EXPECT_THAT(
        std::vector(log.begin() + 3, log.begin() + 13),
        ElementsAre(
            "I m_CacheSize begin:" + std::to_string(ZEL_FLASH_CACHE_MAX - estimate + 1) + "\n",
            "I m_CacheSize space hold:104857601\n", "I m_CacheSize > ZEL_FLASH_CACHE_MAX\n",
            "I m = [1]\n", "I m 11= [1]\n", "I m 22= [-49999]\n", "I m_DeleteItem...\n",
            "I m_RemoveThumb...\n", "I m_RemoveThumb file[" + dev0 + "/old.jpg]\n",
            "I m_RefreshThumbFile...\n"));
    EXPECT_THAT(Files(), ElementsAre("dev0/a.jpg", "dev0/b.jpg", "index"));

    engine->AddItem(dev0, dev0 + "/more.jpg", 200000);
    platform.TakeLog();
    ASSERT_TRUE(Save(dev0 + "/c.jpg"));  // the next two, whose files are gone already
    EXPECT_THAT(platform.TakeLog(),
                testing::Contains("W m_RemoveThumb: remove [" + dev1 + "/gone.jpg] failed."));
    EXPECT_THAT(engine->m_ThumbItemList, SizeIs(5));
    EXPECT_EQ(engine->m_CacheSize, engine->SumOfSizes());
    EXPECT_THAT(Read(index), testing::StartsWith(FolderRecord("dev0", dev0) + "<Type=0,Path=\"" +
                                                 dev0 + "\",URL=\"" + a));
}

TEST_F(Saving, anEstimateAboveTheCeilingEmptiesTheCacheAndGoesOn) {
    ASSERT_TRUE(Save(a));
    const std::string b = dev0 + "/b.jpg";
    const std::vector<unsigned char> pixels(4UL * 5121 * 5120);
    EXPECT_TRUE(engine->SaveFlashFile(const_cast<unsigned char*>(pixels.data()), 5121, 5120,
                                      b.c_str(), const_cast<char*>(usbUrl), nullptr));
    EXPECT_THAT(Files(), ElementsAre("dev0/b.jpg", "index"));
    EXPECT_EQ(engine->m_CacheSize, engine->SumOfSizes());
    EXPECT_EQ(engine->m_CacheSize, static_cast<int>(std::filesystem::file_size(b)));
}

TEST_F(Saving, savesOfEightThreadsAreAllKept) {
    constexpr int threads = 8, saves = 25;
    std::vector<std::thread> savers;
    for (int thread = 0; thread < threads; ++thread) {
        savers.emplace_back([&, folder = MakeFolder("dev" + std::to_string(thread))] {
            for (int save = 0; save < saves; ++save) {
                EXPECT_TRUE(Save(folder + "/" + std::to_string(save) + ".jpg"));
            }
        });
    }
    for (std::thread& saver : savers) {
        saver.join();
    }
    EXPECT_THAT(engine->m_ThumbItemList, SizeIs(threads * saves));
    EXPECT_EQ(engine->m_CacheSize, engine->SumOfSizes());
    std::string records = Read(index);
    EXPECT_EQ(std::count(records.begin(), records.end(), '\n'), threads * (saves + 1));
    EXPECT_THAT(Files(), SizeIs(threads * saves + 1));
}

}  // namespace
