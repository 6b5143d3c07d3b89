#include "fixture.h"

constexpr auto usb = ZEL_STORAGE_DEVICE_TYPE_USB, ptp = ZEL_STORAGE_DEVICE_TYPE_PTP;
constexpr char a[] = "/opt/storage/usb/a", b[] = "/opt/storage/usb/b";

struct Devices : CacheTest {
    // The result and then the map, which has a pair before: "1 ID=NAME", the last part of the path.
    std::string Find(zel_storage_device_type kind) {
        std::map<std::string, std::string> map = {{"old", "map"}};
        platform.passes = 0;
        Log();
        std::string found = std::to_string(engine->m_GetDeciveList(map, kind));
        for (const auto& [id, path] : map)
            found += " " + id + "=" + path.substr(path.rfind('/') + 1);
        return found;
    }
};

TEST_F(Devices, usbStorageIsKnownByTheIdThatTheDatabaseHasForItsPath) {
    using Case = std::tuple<FakePlatform::Devices, std::vector<_zel_storage_s>, int, const char*>;
    const Case cases[] = {
        {{0, {{{a}}}}, {{"/c", "x"}, {a, "1"}, {a}, {a, "0"}, {"/opt", "z"}}, 1, "1 0=a 1=a"},
        {{0, {{{a}}, {}}}, {{nullptr, "y"}, {a, "A"}}, 1, "1 A=a"},
        {{0, {{{a}}, {{b}}}}, {{a, "A"}, {a}}, 1, "1 A=a"},  // pairs count, not storages
        {{0, {{{a}}, {{b}}}}, {{a, "A"}}, 3, "1 A=a"},
        {{0, {{{"/mnt/a"}}, {{nullptr}}}}, {{"/mnt/a", "A"}}, 0, "1 old=map"},
        {{0, {{{a}}}, -1}, {}, 0, "1 old=map"},
        {{-1, {}}, {}, 0, "1 old=map"},
    };
    for (const auto& [devices, database, passes, found] : cases) {
        platform.devices[usb] = devices;
        platform.database = database;
        EXPECT_EQ(Find(usb), found);
        EXPECT_EQ(platform.passes, passes) << found;
        EXPECT_THAT(Log(), HasSubstr(passes == 0   ? "|I USB Storage Not is Exist~|I  exit"
                                     : passes == 3 ? "|I  TimeOut Occured ~|I  exit"
                                                   : "|I  UsbScanning is Completed ~|I  exit"));
    }
}

TEST_F(Devices, databaseIsReadAgainUntilItKnowsEveryStorage) {
    platform.devices[usb].storages = {{{a}}, {{b}}};
    for (const int passWithB : {2, 3, 4}) {
        platform.database = {{a, "A"}};
        platform.onPass = [&](int pass) {
            if (pass == passWithB)
                platform.database = {{b, "B"}, {a, "A"}};
        };
        EXPECT_EQ(Find(usb), passWithB == 4 ? "1 A=a" : "1 A=a B=b");
        EXPECT_EQ(platform.passes, std::min(passWithB, 3));
    }
    platform.onPass = [](int) {};
    platform.database = {{a, "A"}};
    platform.failingFilter = 2;  // what the pass before has found stays
    platform.filterDestroyResult = -1;
    EXPECT_EQ(Find(usb), "0 A=a");
    EXPECT_THAT(Log(), EndsWith("|I FAILED TO media_filter_destroy|I FAILED TO media_filter_destroy"
                                "|I [m_GetStorageList] - failed to media_filter_create"));
    platform.failingFilter = 0;
    platform.cloneResult = -1;
    EXPECT_EQ(Find(usb), "1");
}

TEST_F(Devices, camerasAreKnownByTheirSerialNumberAndOtherKindsNotAtAll) {
    platform.devices[ptp].storages = {{{"", "1"}}, {{"", "0"}}, {{""}}, {{"", ""}}, {{"", "1"}}};
    EXPECT_EQ(Find(ptp), "1 0=ptp 1=ptp");
    platform.devices[ptp].count = -1;
    EXPECT_EQ(Find(ptp), "1");
    platform.devices[ptp] = {};
    EXPECT_EQ(Find(ptp), "0");
    EXPECT_THAT(Log(), EndsWith("|I PTP Storage Not is Exist~"));
    EXPECT_EQ(Find(static_cast<zel_storage_device_type>(3)), "0 old=map");
    EXPECT_THAT(Log(), EndsWith("|I  it is unknow device type exit m_GetStorageList...~"));
}

TEST_F(Devices, aStartLoadsTheIndexLearnsTheDevicesAndDropsWhatIsGone) {
    Write("dev0/a.jpg", "a");
    Write("index", FolderRecord("$/dev0", 1) + ItemRecord("$/dev0/a.jpg", 1));
    platform.devices = {{usb, {0, {{{a}}}}}, {ptp, {0, {{{"", "C"}}}}}};
    platform.database = {{"/c", "dev0"}, {a, "A"}};
    EXPECT_TRUE(engine->m_Create());
    EXPECT_EQ(Log(),
              "I start CZELThumbFlashCache::Create...~|I start CZELThumbFlashCache::Create111...~"
              "|I start usb_device_init...~|I zel usb....~|I end usb_device_init2222...~"
              "|I m_ParseFolderItem ~|I id= dev0 ,path= $/dev0 ,devicetype=1"
              "|I m_ParseFolderItem success###~"
              "|I m_ParseItem ~|I path= $/dev0 ,URL= $/dev0/a.jpg ,size=1|I m_ParseItem success###~"
              "|I end m_LoadThumbFile...~|I [start to excute m_GetDeciveList]...~"
              "|I  zel_get_usb_list has return to zel_get_usb_list "
              "|I zel_get_usb_storage_list device type = [1]"
              "|I device[0] MountPath = /opt/storage/usb/a|I USB Storage is Exist~"
              "|I m_GetStorageList storageListSize = 2 |I usblist.size === [1]"
              "|I usbPath : [/opt/storage/usb/a], storagePath: [/c]~"
              "|I usbPath : [/opt/storage/usb/a], storagePath: [/opt/storage/usb/a]~"
              "|I storageID: A~|I  UsbScanning is Completed ~|I  exit m_GetStorageList...~"
              "|I [start to excute m_GetDeciveList]...~"
              "|I  zel_get_usb_list has return to zel_get_usb_list "
              "|I zel_get_usb_storage_list device type = [2]|I device[0] MountPath = "
              "|I usblist.size === [1]|I  serialNumber = [C]~|I  exit m_GetDeciveList...~"
              "|I usbFlashMap size= [1],ptpFlashMap size= [1]~"
              "|I m_ThumbFolderList get id = [dev0]~|I m_ThumbFolderList remove [$/dev0]~"
              "|I m_RemoveDir [$/dev0] success###~"
              "|I m_RefreshThumbFile...~|I m_GetDeciveList end###~|I end FlashCache Create...~");
    ExpectLeft("");
    platform.failingFilter = platform.passes + 1;
    platform.devices.erase(ptp);
    EXPECT_FALSE(engine->m_GetStorageList(engine->m_MountPathMap) || !engine->m_InitDeviceList());
    EXPECT_THAT(Log(), testing::MatchesRegex(".*list .I m_GetStorageList device type = .1.*"
                                             "create.I m_GetDeciveList usb fail###~.*"
                                             "Exist~.I m_GetDeciveList ptp fail###~.I usb.*"));
}
