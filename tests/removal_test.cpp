#include "fixture.h"

using Map = std::map<std::string, std::string>;

// A cache of folders "dev0", "dev1" and "cam", each with one thumbnail file of 10 bytes.
struct Removal : CacheTest {
    Removal() {
        std::string records;
        for (const std::string name : {"dev0", "dev1", "cam"}) {
            Write(name + "/a.jpg", "0123456789");
            records += FolderRecord("$/" + name) + ItemRecord("$/" + name + "/a.jpg", 10);
        }
        EXPECT_EQ(Load(records), all);
        Log();
    }
    void Judge(Map usb, Map ptp) { EXPECT_TRUE(engine->m_DelUnvalidData(usb, ptp)); }
    void SendEvent(int event, const char* mountPath) {
        _zel_storage_s attached{mountPath}, *storage = &attached;
        Engine::s_ZELUSBConnctedCallback(engine.get(), static_cast<zel_storage_event_e>(event),
                                         storage);
    }
    const std::string all = " dev0 dev1 cam $/dev0/a.jpg $/dev1/a.jpg $/cam/a.jpg";
};

TEST_F(Removal, foldersOfKnownDevicesStayWhateverTheirKind) {
    Judge({{"cam", "/m"}, {"dev0", "/m"}}, {{"dev1", "ptp"}});
    EXPECT_THAT(Log(), HasSubstr("usbFlashMap size= [2],ptpFlashMap size= [1]~"));
    ExpectLeft(all);
    Judge({}, {{"dev1", "ptp"}, {"cam", "ptp"}});
    ExpectLeft(" dev1 cam $/dev1/a.jpg $/cam/a.jpg");
    fs::remove_all(root + "/dev1");
    Judge({{"cam", "/m"}}, {});  // a folder whose directory cannot be removed goes all the same
    ExpectLeft(" cam $/cam/a.jpg");
}

TEST_F(Removal, withoutAnyDeviceEverythingGoesAlsoWhatHasNoFolder) {
    engine->m_ThumbFolderList.back()->Path = engine->m_ThumbItemList.back()->Path = "";
    fs::remove_all(root + "/cam");
    Write("index", "as it was");
    Judge({{"dev0", ""}, {"dev1", ""}}, {});  // a stale folder without a path takes nothing along
    EXPECT_EQ(Content(*engine), " dev0 dev1 $/dev0/a.jpg $/dev1/a.jpg $/cam/a.jpg");
    EXPECT_EQ(Read(), "as it was");
    Log();
    engine->m_ThumbFolderList.emplace_back(new Engine::CZELFlashCacheFolderItem);
    Judge({}, {});
    EXPECT_EQ(Log(),
              "I usbFlashMap size= [0],ptpFlashMap size= [0]~|I m_ThumbFolderList remove [$/dev0]~"
              "|I m_RemoveDir [$/dev0] success###~|I m_ThumbFolderList remove [$/dev1]~"
              "|I m_RemoveDir [$/dev1] success###~|I m_ThumbFolderList remove []~"
              "|I in m_RemoveDir strDir empty...~|I m_RefreshThumbFile...~");
    fs::remove(index);
    Judge({}, {});  // written also when there is nothing to remove
    ExpectLeft("");
}

TEST_F(Removal, aPulledStorageTakesItsFolderOnlyOfTwoAtOnePathTheFirstById) {
    engine->m_MountPathMap = {{"dev1", "/m"}, {"dev0", "/m"}, {"noFolder", "/n"}, {"noPath", ""}};
    SendEvent(1, "/m");
    for (const char* other : {"/", "/m/", "", static_cast<const char*>(nullptr)})
        SendEvent(2, other);
    ExpectLeft(all);
    SendEvent(2, "/m");
    EXPECT_EQ(Log(),
              "I s_USBConnctedCallback...~|I s_ZELUSBConnctedCallback event is [2]~"
              "|I device MountPath = [/m]###|I m_RemoveDir [$/dev0] success###~"
              "|I m_RefreshThumbFile...~");
    ExpectLeft(" dev1 cam $/dev1/a.jpg $/cam/a.jpg");
    EXPECT_TRUE(engine->m_RemoveStorage("/n") && engine->m_RemoveStorage(""));
    EXPECT_EQ(engine->m_MountPathMap, (Map{{"dev1", "/m"}}));
    EXPECT_TRUE(engine->m_RemoveStorage("/m"));
    EXPECT_EQ(Log(), "I m_RemoveDir [$/dev1] success###~|I m_RefreshThumbFile...~");
    ExpectLeft(" cam $/cam/a.jpg");
    EXPECT_FALSE(engine->m_RemoveStorage("/m"));  // none is known any more
    EXPECT_EQ(Log(), "I m_MountPathMap.size() <= 0###~");
    _zel_storage_s* none = nullptr;
    Engine::s_ZELUSBConnctedCallback(nullptr, ZEL_STORAGE_EVENT_REMOVED, none);
    EXPECT_EQ(Log(), "I s_USBConnctedCallback...~|I s_ZELUSBConnctedCallback error~");
}

TEST_F(Removal, storagesComeAndGoWhileFourThreadsSaveAndTheEngineStarts) {
    ASSERT_TRUE(engine->Create(index.c_str()));
    for (auto savers = SaveOnThreads(4, 50); !savers.empty();) {
        if (savers.back().wait_for(std::chrono::seconds(0)) == std::future_status::ready)
            savers.pop_back();
        for (const char* path : {"s0", "s1", "s2", "s3"})
            SendEvent(2, (std::string("/opt/storage/usb/") + path).c_str());
    }
    SaveOnThreads(8, 25).clear();
    EXPECT_GE(engine->m_ThumbItemList.size(), 200U);
    ExpectLeft(Content(*engine));
}
