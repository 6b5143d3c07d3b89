#include "fixture.h"

struct Saving : CacheTest {
    Saving() {
        EXPECT_TRUE(engine->m_Create());
        Log();
    }
    long Size(const std::string& name) const { return long(fs::file_size(root + "/" + name)); }
};

TEST_F(Saving, savedThumbnailIsOneFileAndTwoRecordsAndItsLines) {
    ASSERT_TRUE(Save("dev0/a.jpg", "/opt/storage/usb/sda1/a.png", 160, 120));
    const std::string size = std::to_string(Size("dev0/a.jpg"));
    EXPECT_EQ(Log(),
              "I m_CheckUrl..filename[$/dev0/a.jpg], url[/opt/storage/usb/sda1/a.png]~"
              "|I It is an USB device. ~"
              "|I strFolder[$/dev0], strId[dev0], strMountPath[/opt/storage/usb/sda1]~"
              "|I m_CacheSize begin:0~|I m_CacheSize space hold:76854~|I Start|I jepg size is " +
                  size + ", m_CacheSize end:" + size + "~|I End");
    const std::string records =
        "<Type=0,Path=\"$/dev0\",URL=\"$/dev0/a.jpg\",Size=" + size +
        ",Devicetype=0>\r\n<Type=1,Sid=\"dev0\",Path=\"$/dev0\",Devicetype=0>\r\n";
    EXPECT_EQ(Read(), records);
    ASSERT_TRUE(Save("dev0/b.jpg", "ptp://1"));  // for a camera, into a folder known already
    EXPECT_THAT(Log(), HasSubstr("|I It is an ptp device. ~"
                                 "|I strFolder[$/dev0], strId[dev0], strUrl[ptp://1]~|I m_Cache"));
    ASSERT_TRUE(Save("x/dev0/a.jpg", "ptp://1"));  // another folder of that id
    EXPECT_EQ(Read(), records + ItemRecord("$/dev0/b.jpg", Size("dev0/b.jpg"), 1) +
                          ItemRecord("$/x/dev0/a.jpg", Size("x/dev0/a.jpg"), 1) +
                          FolderRecord("$/x/dev0", 1));
    ExpectLeft(" dev0 dev0 $/dev0/a.jpg $/dev0/b.jpg $/x/dev0/a.jpg");
}

TEST_F(Saving, requestsAreClassifiedByUrlAndFileName) {
    for (auto& [file, url, expected, line] : Rows<4>("requests")) {
        std::string folder, id, mount;
        const int result =
            engine->m_CheckUrl(pixels.data(), file.c_str(), url.data(), folder, id, mount);
        EXPECT_EQ(std::to_string(result) + " " + folder + " " + id + " " + mount, expected) << url;
        EXPECT_EQ(Log(), "I m_CheckUrl..filename[" + file + "], url[" + url + "]~" + line);
    }
}

TEST_F(Saving, invalidRequestsChangeNothingAndOtherUrlsOnlyGetTheirFile) {
    char url[] = "ptp://1";
    EXPECT_FALSE(engine->SaveFlashFile(nullptr, 1, 1, index.c_str(), url, nullptr) ||
                 engine->SaveFlashFile(pixels.data(), 1, 1, nullptr, url, nullptr) ||
                 engine->SaveFlashFile(pixels.data(), 1, 1, index.c_str(), nullptr, nullptr));
    EXPECT_THAT(Log(), EndsWith("|I filename or url is null~|I find fail,invalid url~"));
    EXPECT_FALSE(Save("dev0/a.jpg", "/media/u/a.png", 0));
    EXPECT_TRUE(Save("dev0/b.jpg", "/media/u/a.png"));
    EXPECT_THAT(Files(), ElementsAre("$/dev0/b.jpg", "$/index"));
    EXPECT_EQ(Read() + Content(*engine), "");
    EXPECT_TRUE(engine->m_MountPathMap.empty() && engine->m_CacheSize == 0);
}

TEST_F(Saving, nameThatWouldWriteRecordsIsRefusedAndItsImageRemoved) {
    for (const std::string name : {"x\"> <Type=1,Sid=\"z\",Path=\"victim\",Devicetype=0>.jpg",
                                   "a>b.jpg", "a\"b.jpg", "sub>/c.jpg"}) {
        EXPECT_TRUE(Save("dev0/" + name));
        EXPECT_THAT(Log(), HasSubstr("I m_AddItemToThumbFile record holds \" or > or NUL~"
                                     "|I m_InsertItem m_AddItemToThumbFile failed###~"));
        ExpectLeft("");
    }
}

TEST_F(Saving, aFailedSaveAnswersTrueAndGivesItsSpaceBack) {
    ASSERT_TRUE(Save("dev0/a.jpg"));
    const std::string size = std::to_string(Size("dev0/a.jpg"));
    EXPECT_TRUE(Save("dev1/b.jpg", "ptp://1", 0) && engine->m_PtpDeviceMap.count("dev1") == 1);
    EXPECT_THAT(Log(), EndsWith("|I m_InsertItem m_JpegSave failed###~"));
    engine->m_strCachePath = root + "/none/index";
    EXPECT_TRUE(Save("dev0/c.jpg"));
    EXPECT_THAT(Log(), EndsWith("|I Failed to create $/none/index\tfile.~"
                                "|I m_InsertItem m_AddItemToThumbFile failed###~"
                                "|I m_RemoveThumb...~|I m_RemoveThumb file[$/dev0/c.jpg]~"));
    engine->m_strCachePath = index;
    const std::string part = "/" + std::string(200, 'x');  // makes the record too long
    EXPECT_TRUE(Save("dev0" + part + part + part + "/d.jpg") &&
                Save("dev0/e.jpg", "ptp://1", 65501, 10000));  // an estimate that wraps around
    EXPECT_THAT(Log(), HasSubstr("begin:" + size + "~|I m_CacheSize space hold:" + size + "~"));
    ExpectLeft(" dev0 $/dev0/a.jpg");
}

TEST_F(Saving, theOldestGoWhenTheCeilingIsPassed) {
    constexpr int estimate = 16 * 12 * 4 + 54;
    const std::string old = ItemRecord("$/dev0/old.jpg", 50000);
    const std::string more = ItemRecord("$/dev1/gone.jpg", 60000, 1) +
                             ItemRecord("$/dev1/big.jpg", ZEL_FLASH_CACHE_MAX - estimate - 110000);
    Write("dev0/old.jpg", "");
    Load(FolderRecord("$/dev0") + old + more);
    ASSERT_TRUE(Save("dev0/a.jpg"));  // exactly at the ceiling
    EXPECT_THAT(Log(), HasSubstr("|I m_CacheSize space hold:104857600~|I Start|"));
    Load(FolderRecord("$/dev0") + old + more + ItemRecord("$/dev1/last.jpg", 1));
    ASSERT_TRUE(Save("dev0/b.jpg"));  // one byte above: one of 50000 bytes goes
    const char* eviction =
        "|I m_CacheSize begin:104856779~|I m_CacheSize space hold:104857601~"
        "|I m_CacheSize > ZEL_FLASH_CACHE_MAX~|I m = [1]~|I m 11= [1]~|I m 22= [-49999]~"
        "|I m_DeleteItem...~|I m_RemoveThumb...~|I m_RemoveThumb file[$/dev0/old.jpg]~"
        "|I m_RefreshThumbFile...~|I Start|";
    EXPECT_THAT(Log(), HasSubstr(eviction));
    const long size = Size("dev0/b.jpg");
    EXPECT_EQ(engine->m_CacheSize, ZEL_FLASH_CACHE_MAX - 49999 - estimate + size);
    EXPECT_THAT(Files(), ElementsAre("$/dev0/a.jpg", "$/dev0/b.jpg", "$/index"));
    EXPECT_EQ(Read(), FolderRecord("$/dev0") + more + ItemRecord("$/dev1/last.jpg", 1) +
                          ItemRecord("$/dev0/b.jpg", size));

    engine->m_CacheSize = ZEL_FLASH_CACHE_MAX - estimate + 60000;
    ASSERT_TRUE(Save("dev0/c.jpg"));  // exactly one too many, and its file is gone already
    EXPECT_THAT(Log(), HasSubstr("|W m_RemoveThumb: remove [$/dev1/gone.jpg] failed."
                                 "|I m_RefreshThumbFile...~|I Start|"));
    engine->m_CacheSize *= 3;
    ASSERT_TRUE(Save("dev0/d.jpg"));  // all are not enough: the save goes on
    EXPECT_EQ(Content(*engine), " dev0 $/dev0/d.jpg");
}
