#include "fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Map = std::map<std::string, std::string>;

constexpr auto usb = ZEL_STORAGE_DEVICE_TYPE_USB;
constexpr auto ptp = ZEL_STORAGE_DEVICE_TYPE_PTP;

class Devices : public CacheTest {
protected:
    Devices() { platform.TakeLog(); }
    ~Devices() override {
        EXPECT_EQ(platform.liveLists, 0);
        EXPECT_EQ(platform.liveFilters, 0);
        EXPECT_EQ(platform.liveClones, 0);
    }
    void Attach(zel_storage_device_type kind, const Text& mountPath, const Text& serial = {}) {
        platform.devices[kind].storages.push_back(FakePlatform::Attached{mountPath, serial});
    }
    bool Find(zel_storage_device_type kind) { return engine->m_GetDeciveList(map, kind); }

    Map map = {{"earlier", "entry"}};
    const Map untouched = map;
    const std::string a = "/opt/storage/usb/a";
    const std::string b = "/opt/storage/usb/b";
};

TEST_F(Devices, usbStorageIsKnownByTheIdThatTheDatabaseHasForItsPath) {
    Attach(usb, a);
    platform.devices[usb].storages.emplace_back(std::nullopt);
    platform.database = {{"/other", "x"}, {Text(), "y"}, {a, "id1"}, {a, "id0"}, {a + "/", "z"}};
    EXPECT_TRUE(Find(usb));
    EXPECT_EQ(map, (Map{{"id0", a}, {"id1", a}}));
    EXPECT_THAT(
        platform.TakeLog(),
        ElementsAre("I [start to excute m_GetDeciveList]...\n",
                    "I  zel_get_usb_list has return to zel_get_usb_list ",
                    "I zel_get_usb_storage_list device type = [1]", "I device[0] MountPath = " + a,
                    "I USB Storage is Exist\n", "I m_GetStorageList storageListSize = 5 ",
                    "I usblist.size === [1]", "I usbPath : [" + a + "], storagePath: [/other]\n",
                    "I usbPath : [" + a + "], storagePath: []\n",
                    "I usbPath : [" + a + "], storagePath: [" + a + "]\n", "I storageID: id1\n",
                    "I usbPath : [" + a + "], storagePath: [" + a + "]\n", "I storageID: id0\n",
                    "I usbPath : [" + a + "], storagePath: [" + a + "/]\n",
                    "I  UsbScanning is Completed \n", "I  exit m_GetStorageList...\n"));
}

TEST_F(Devices, databaseIsReadUntilItKnowsEveryStorageThreeTimesAtMost) {
    const auto scan = [this](int passWithB, int passes, const char* end) {
        platform.passes = 0;
        platform.database = {{a, "A"}};
        platform.onPass = [=](int pass) {
            if (pass == passWithB) {
                platform.database = {{b, "B"}, {a, "A"}};
            }
        };
        EXPECT_TRUE(Find(usb));
        EXPECT_EQ(platform.passes, passes);
        const auto log = platform.TakeLog();
        EXPECT_EQ(*(log.end() - 2), end);
    };
    Attach(usb, a);
    Attach(usb, b);
    scan(2, 2, "I  UsbScanning is Completed \n");
    EXPECT_EQ(map, (Map{{"A", a}, {"B", b}}));
    scan(3, 3, "I  TimeOut Occured \n");
    EXPECT_EQ(map, (Map{{"A", a}, {"B", b}}));
    scan(4, 3, "I  TimeOut Occured \n");
    EXPECT_EQ(map, (Map{{"A", a}}));
    // Pairs are counted, not storages: two of a make up for the missing b.
    platform.onPass = nullptr;
    platform.passes = 0;
    platform.database = {{a, "A"}, {a, Text()}};
    EXPECT_TRUE(Find(usb));
    EXPECT_EQ(platform.passes, 1);
    EXPECT_EQ(map, (Map{{"A", a}}));
}

TEST_F(Devices, withoutAUsbMountPathTheDatabaseIsNotAsked) {
    const char* absent = "I USB Storage Not is Exist\n";
    platform.filterDestroyResult = -1;
    Attach(usb, "/mnt/a");
    Attach(usb, Text());
    EXPECT_TRUE(Find(usb));
    EXPECT_THAT(platform.TakeLog(), testing::IsSupersetOf({"I device[1] MountPath = ", absent}));
    platform.devices[usb].count = -1;
    EXPECT_TRUE(Find(usb));
    platform.devices[usb].result = -1;
    platform.TakeLog();
    EXPECT_TRUE(Find(usb));
    EXPECT_THAT(platform.TakeLog(),
                ElementsAre(testing::_, testing::_, absent, "I FAILED TO media_filter_destroy",
                            "I  exit m_GetStorageList...\n"));
    EXPECT_EQ(map, untouched);
    EXPECT_EQ(platform.passes, 0);
}

TEST_F(Devices, withoutAFilterTheEarlierPassStays) {
    Attach(usb, a);
    Attach(usb, b);
    platform.database = {{a, "A"}};
    platform.failingFilter = 2;
    EXPECT_FALSE(Find(usb));
    EXPECT_EQ(map, (Map{{"A", a}}));
    EXPECT_EQ(platform.TakeLog().back(), "I [m_GetStorageList] - failed to media_filter_create");
}

TEST_F(Devices, aStorageThatCannotBeClonedIsNeverAsked) {
    Attach(usb, a);
    platform.database = {{a, "A"}};
    platform.cloneFails = true;
    EXPECT_TRUE(Find(usb));
    EXPECT_THAT(map, IsEmpty());
    EXPECT_EQ(platform.passes, 3);
}

TEST_F(Devices, camerasAreKnownByTheirSerialNumber) {
    Attach(ptp, "", "C1");
    Attach(ptp, Text(), "C0");
    Attach(ptp, "", Text());
    Attach(ptp, "", "");
    Attach(ptp, "", "C1");
    EXPECT_TRUE(Find(ptp));
    EXPECT_EQ(map, (Map{{"C0", "ptp"}, {"C1", "ptp"}}));
    const auto log = platform.TakeLog();
    EXPECT_THAT(std::vector(log.begin() + 8, log.end()),
                ElementsAre("I usblist.size === [5]", "I  serialNumber = [C1]\n",
                            "I  serialNumber = [C0]\n", "I  serialNumber = [C1]\n",
                            "I  exit m_GetDeciveList...\n"));
    platform.devices[ptp].count = -1;
    EXPECT_TRUE(Find(ptp));
    EXPECT_THAT(map, IsEmpty());
    for (const int result : {0, -1}) {
        map = untouched;
        platform.devices[ptp] = {result, {}, {}};
        EXPECT_FALSE(Find(ptp));
        EXPECT_THAT(map, IsEmpty());
        EXPECT_EQ(platform.TakeLog().back(), "I PTP Storage Not is Exist\n");
    }
}

TEST_F(Devices, unknownKindsAreRefused) {
    for (const int kind : {0, 3}) {
        EXPECT_FALSE(Find(static_cast<zel_storage_device_type>(kind)));
        EXPECT_EQ(platform.TakeLog().back(),
                  "I  it is unknow device type exit m_GetStorageList...\n");
    }
    EXPECT_EQ(map, untouched);
    Attach(usb, a);
    platform.database = {{a, "A"}};
    EXPECT_TRUE(engine->m_GetStorageList(map));
    EXPECT_EQ(map, (Map{{"A", a}}));
    EXPECT_EQ(platform.TakeLog().front(), "I [start to excute m_GetStorageList]...\n");
}

// A start with every device gone: the lines of a whole creation, in their order.
TEST_F(Devices, startWithoutDevicesEmptiesTheCache) {
    const std::string dev0 = MakeFolder("dev0");
    Write(dev0 + "/a.jpg", "a");
    Write(index, ItemRecord(dev0, dev0 + "/a.jpg", 1));
    platform.devices[usb].result = -1;
    EXPECT_TRUE(engine->m_Create());
    const std::vector<std::string> lines = platform.TakeLog();
    const char* expected[] = {
        "I start CZELThumbFlashCache::Create...\n",
        "I start CZELThumbFlashCache::Create111...\n",
        "I start usb_device_init...\n",
        "I zel usb....\n",
        "I end usb_device_init2222...\n",
        "I m_ParseItem success###\n",
        "I end m_LoadThumbFile...\n",
        "I USB Storage Not is Exist\n",
        "I PTP Storage Not is Exist\n",
        "I m_GetDeciveList ptp fail###\n",
        "I usbFlashMap size= [0],ptpFlashMap size= [0]\n",
        "I m_RefreshThumbFile...\n",
        "I m_GetDeciveList end###\n",
        "I end FlashCache Create...\n",
    };
    auto line = lines.begin();
    for (const char* next : expected) {
        line = std::find(line, lines.end(), next);
        ASSERT_NE(line, lines.end()) << next;
    }
    EXPECT_EQ(Read(index), "");
    EXPECT_EQ(engine->m_CacheSize, 0);
}

}  // namespace
