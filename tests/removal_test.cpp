#include <thread>

#include "fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Map = std::map<std::string, std::string>;

// A cache of folders "dev0", "dev1" and "cam", each with one thumbnail file of 10 bytes.
class Removal : public CacheTest {
protected:
    Removal() {
        for (const char* name : {"dev0", "dev1", "cam"}) {
            const std::string folder = MakeFolder(name);
            Write(folder + "/a.jpg", "0123456789");
            engine->AddFolder(name, folder);
            engine->AddItem(folder, folder + "/a.jpg", 10);
        }
        EXPECT_TRUE(engine->m_RefreshThumbFile());
        platform.TakeLog();
    }
    bool Judge(Map usb, Map ptp) { return engine->m_DelUnvalidData(usb, ptp); }
    // Lists, accounted size, index and directories say the same.
    void ExpectLeft(const std::vector<std::string>& names) {
        std::vector<std::string> files;
        std::string records;
        for (const std::string& name : names) {
            files.push_back(name + "/a.jpg");
            records += FolderRecord(name, root / name);
        }
        for (const std::string& name : names) {
            records += ItemRecord(root / name, root / name / "a.jpg", 10);
        }
        std::sort(files.begin(), files.end());
        files.push_back("index");
        EXPECT_EQ(Files(), files);
        EXPECT_EQ(Read(index), records);
        EXPECT_THAT(engine->m_ThumbFolderList, SizeIs(names.size()));
        EXPECT_THAT(engine->m_ThumbItemList, SizeIs(names.size()));
        EXPECT_EQ(engine->m_CacheSize, 10L * names.size());
    }
    void SendEvent(int event, Text mountPath) {
        FakePlatform::Attached attached{std::move(mountPath), {}};
        auto* storage = reinterpret_cast<_zel_storage_s*>(&attached);
        CZELThumbFlashCache::s_ZELUSBConnctedCallback(
            engine.get(), static_cast<zel_storage_event_e>(event), storage);
    }
};

TEST_F(Removal, foldersOfKnownDevicesStayWhateverTheirKind) {
    EXPECT_TRUE(Judge({{"cam", "/m"}, {"dev0", "/m"}}, {{"dev1", "ptp"}}));
    ExpectLeft({"dev0", "dev1", "cam"});
    EXPECT_THAT(platform.TakeLog(), ElementsAre("I usbFlashMap size= [2],ptpFlashMap size= [1]\n",
                                                "I m_ThumbFolderList get id = [dev0]\n",
                                                "I m_ThumbFolderList get id = [dev1]\n",
                                                "I m_ThumbFolderList get id = [cam]\n"));
    EXPECT_TRUE(Judge({{"dev1", "/m"}}, {}));
    ExpectLeft({"dev1"});
    EXPECT_THAT(
        platform.TakeLog(),
        ElementsAre("I usbFlashMap size= [1],ptpFlashMap size= [0]\n",
                    "I m_ThumbFolderList get id = [dev0]\n",
                    "I m_ThumbFolderList remove [" + (root / "dev0").string() + "]\n",
                    "I m_RemoveDir [" + (root / "dev0").string() + "] success###\n",
                    "I m_ThumbFolderList get id = [dev1]\n", "I m_ThumbFolderList get id = [cam]\n",
                    "I m_ThumbFolderList remove [" + (root / "cam").string() + "]\n",
                    "I m_RemoveDir [" + (root / "cam").string() + "] success###\n",
                    "I m_RefreshThumbFile...\n"));
}

TEST_F(Removal, withoutAnyDeviceEverythingGoesAlsoWhatHasNoFolder) {
    engine->AddItem("/elsewhere", "/elsewhere/a", 5);
    engine->AddFolder("x", "");
    EXPECT_TRUE(Judge({}, {}));
    ExpectLeft({});
    EXPECT_THAT(platform.TakeLog(), testing::Contains("I in m_RemoveDir strDir empty...\n"));
    std::filesystem::remove(index);
    EXPECT_TRUE(Judge({}, {}));  // written also when there is nothing to remove
    ExpectLeft({});
}

TEST_F(Removal, aStaleFolderWithoutPathTakesNothingWithIt) {
    Write(index, "as it was");
    engine->AddFolder("x", "");
    engine->AddItem("/elsewhere", "/elsewhere/a", 5);
    EXPECT_TRUE(Judge({{"dev0", ""}, {"dev1", ""}, {"cam", ""}}, {}));
    EXPECT_THAT(engine->m_ThumbFolderList, SizeIs(3));
    EXPECT_THAT(engine->m_ThumbItemList, SizeIs(4));
    EXPECT_EQ(Read(index), "as it was");
}

TEST_F(Removal, foldersWhoseDirectoryCannotBeRemovedGoAllTheSame) {
    std::filesystem::remove_all(root / "cam");
    engine->AddFolder("root", "/");
    EXPECT_TRUE(Judge({{"dev0", ""}, {"dev1", ""}}, {}));
    ExpectLeft({"dev0", "dev1"});
}

TEST_F(Removal, aPulledStorageTakesItsFolderOnly) {
    Start();  // no device is known: everything goes
    ASSERT_TRUE(Save(MakeFolder("dev0") + "/a.jpg"));
    ASSERT_TRUE(Save(MakeFolder("cam") + "/a.jpg", 16, 12, cameraUrl));
    platform.TakeLog();
    SendEvent(1, "/opt/storage/usb/sda1");
    EXPECT_THAT(platform.TakeLog(), ElementsAre("I s_USBConnctedCallback...\n",
                                                "I s_ZELUSBConnctedCallback event is [1]\n"));
    SendEvent(2, "/opt/storage/usb/sda");  // another storage
    SendEvent(2, "");
    SendEvent(2, Text());
    EXPECT_THAT(engine->m_MountPathMap, SizeIs(1));
    platform.TakeLog();
    SendEvent(2, "/opt/storage/usb/sda1");
    EXPECT_THAT(
        platform.TakeLog(),
        ElementsAre("I s_USBConnctedCallback...\n", "I s_ZELUSBConnctedCallback event is [2]\n",
                    "I device MountPath = [/opt/storage/usb/sda1]###",
                    "I m_RemoveDir [" + (root / "dev0").string() + "] success###\n",
                    "I m_RefreshThumbFile...\n"));
    EXPECT_THAT(engine->m_MountPathMap, IsEmpty());
    EXPECT_THAT(Files(), ElementsAre("cam/a.jpg", "index"));
    EXPECT_EQ(engine->m_CacheSize, engine->SumOfSizes());
    SendEvent(2, "/opt/storage/usb/sda1");
    EXPECT_EQ(platform.TakeLog().back(), "I m_MountPathMap.size() <= 0###\n");
    _zel_storage_s* none = nullptr;
    CZELThumbFlashCache::s_ZELUSBConnctedCallback(nullptr, ZEL_STORAGE_EVENT_REMOVED, none);
    EXPECT_EQ(platform.TakeLog().back(), "I s_ZELUSBConnctedCallback error\n");
}

TEST_F(Removal, ofTwoStoragesAtOnePathTheFirstByIdGoes) {
    engine->m_MountPathMap = {{"dev1", "/m"}, {"dev0", "/m"}, {"ghost", "/g"}};
    EXPECT_TRUE(engine->m_RemoveStorage("/m"));
    ExpectLeft({"dev1", "cam"});
    EXPECT_TRUE(engine->m_RemoveStorage("/m"));
    ExpectLeft({"cam"});
    platform.TakeLog();
    EXPECT_TRUE(engine->m_RemoveStorage("/g"));  // known, but without a folder
    EXPECT_THAT(platform.TakeLog(), IsEmpty());
    EXPECT_FALSE(engine->m_RemoveStorage("/g"));
}

TEST_F(Removal, storagesComeAndGoWhileFourThreadsSaveAndTheEngineStarts) {
    ASSERT_TRUE(engine->Create(index.c_str()));
    std::vector<std::thread> threads;
    std::atomic<int> saving{4};
    for (int thread = 0; thread < 4; ++thread) {
        const std::string name = "s" + std::to_string(thread);
        threads.emplace_back([this, &saving, name] {
            const std::string url = "/opt/storage/usb/" + name + "/a.png";
            for (int save = 0; save < 50; ++save) {
                std::error_code ignored;  // the folder may go at any time
                std::filesystem::create_directories(root / name, ignored);
                Save(root / name / (std::to_string(save) + ".jpg"), 16, 12, url.c_str());
            }
            --saving;
        });
    }
    threads.emplace_back([&] {
        for (int round = 0; saving > 0; ++round) {
            SendEvent(2, "/opt/storage/usb/s" + std::to_string(round % 4));
            std::this_thread::yield();
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(engine->m_CacheSize, engine->SumOfSizes());
    std::vector<std::string> files = {"index"};
    for (const auto& item : engine->m_ThumbItemList) {
        files.push_back(std::filesystem::path(item->URL).lexically_relative(root));
    }
    EXPECT_THAT(Files(), testing::UnorderedElementsAreArray(files));
    const auto items = engine->m_ThumbItemList.size();
    const auto folders = engine->m_ThumbFolderList.size();
    engine->m_ThumbItemList.clear();
    engine->m_ThumbFolderList.clear();
    EXPECT_TRUE(engine->m_LoadThumbFile());
    EXPECT_THAT(engine->m_ThumbItemList, SizeIs(items));
    EXPECT_THAT(engine->m_ThumbFolderList, SizeIs(folders));
}

}  // namespace
