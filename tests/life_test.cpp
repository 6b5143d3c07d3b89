// One life of the cache through its exported functions, with all that can be seen of it.
#include "bare.h"
#include "fixture.h"
#include "zel_thumbnail_flash_cache.h"

struct Life : CacheTest {
    Life() {
        engine.reset();
        platform.devices[ZEL_STORAGE_DEVICE_TYPE_USB].storages = {{{"/opt/storage/usb/sda"}}};
        platform.devices[ZEL_STORAGE_DEVICE_TYPE_PTP].storages = {{{"", "C"}}};
        platform.database = {{"/opt/storage/usb/sda", "A"}};
    }
    ~Life() override { Stop(); }

    // Starts and waits for the worker.
    void Start(const std::string& path) {
        EXPECT_EQ(zel_thumbnail_flash_cache_init(path.c_str()), 1);
        Engine::m_pObj->m_AwaitWorkers();
        boost::replace_all(platform.log, "|i end", "|I end");  // the worker may have it or not
    }
    void Stop() {
        if (platform.isLocked)
            platform.isLocked = [] { return false; };  // the lock goes
        EXPECT_EQ(zel_thumbnail_flash_cache_clear(), 1);
    }
    int Save(const std::string& file, const char* url, int xsize, int ysize, char* preset = {}) {
        zel_thumbnail_flash_cache_param_h param = nullptr;
        EXPECT_EQ(zel_create_thumbnail_flash_cache_param(&param), 1);
        EXPECT_EQ(zel_set_thumbnail_flash_cache_filename(param, file.c_str()), 1);
        EXPECT_EQ(zel_set_thumbnail_flash_cache_url(param, url), 1);
        EXPECT_EQ(zel_set_thumbnail_flash_cache_xsize(param, xsize), 1);
        EXPECT_EQ(zel_set_thumbnail_flash_cache_ysize(param, ysize), 1);
        const int saved = zel_thumbnail_flash_cache_save_file(param, pixels.data(), preset);
        EXPECT_EQ(zel_destroy_thumbnail_flash_cache_param(param), 1);
        return saved;
    }
    void ExpectSaved(const std::string& name, const char* url, int xsize, int ysize,
                     char* preset = {}) {
        EXPECT_EQ(Save(PathOf(name), url, xsize, ysize, preset), 1);
        bare::EncodeJpeg(pixels, xsize, ysize, (root + "/reference").c_str());
        EXPECT_TRUE(Read(name) == Read("reference") + (preset ? this->preset : "")) << name;
        fs::remove(root + "/reference");
    }
    static std::string Expected(const std::string& step) {
        return boost::join(Lines("life: " + step), "|");
    }
    void ExpectRefused(int answer) {
        EXPECT_EQ(std::to_string(answer) + Log(), "0W Invalid param.");
    }
    void ExpectKnown(const std::string& devicesAndContent, const std::string& records) {
        std::string known;
        for (const auto* map : {&Engine::m_pObj->m_MountPathMap, &Engine::m_pObj->m_PtpDeviceMap})
            for (const auto& [id, place] : *map)
                known += id + "=" + place + " ";
        EXPECT_EQ(known + Content(*Engine::m_pObj), devicesAndContent);
        EXPECT_EQ(Read(), records);
    }
    long SizeOf(const std::string& name) const { return long(fs::file_size(root + "/" + name)); }
    std::string Item(const std::string& name, int type = 0) const {
        return ItemRecord("$/" + name, SizeOf(name), type);
    }
    std::string preset = "a preset" + std::string(4087, '\0') + "!";
};

TEST_F(Life, isWhatItsCallersAndItsPlatformAndItsFilesShow) {
    const std::string folderA = FolderRecord("$/A"), old = ItemRecord("$/A/old.jpg", 104800000);
    Write("A/old.jpg", "old");
    Write("g/gone.jpg", "gone");
    Write("index", folderA + old + FolderRecord("$/g") + ItemRecord("$/g/gone.jpg", 7));

    Trace();
    Start(index);
    EXPECT_EQ(Log(), Expected("init"));
    EXPECT_EQ(Log(true), Expected("start"));
    ExpectKnown("A=/opt/storage/usb/sda C=ptp  A $/A/old.jpg", folderA + old);

    // A known storage keeps its mount path.
    ExpectSaved("A/new.jpg", "/opt/storage/usb/sdb/p.png", 40, 24, preset.data());
    const long size = SizeOf("A/new.jpg");
    EXPECT_EQ(Log(), boost::replace_all_copy(
                         boost::replace_all_copy(Expected("save"), "SIZE", std::to_string(size)),
                         "SUM", std::to_string(104800000 + size)));
    ExpectSaved("D/cam.jpg", "ptp://C/p", 24, 40);
    EXPECT_THAT(Log(), HasSubstr("|i It is an ptp device. ~"
                                 "|i strFolder[$/D], strId[D], strUrl[ptp://C/p]~|i m_CacheS"));
    ExpectSaved("A/plain.jpg", "file:/p", 9, 8, preset.data());
    EXPECT_THAT(Log(), EndsWith("|i it's not an usb or ptp device~"
                                "|i m_JpegSave bufferPreset : [a preset]###~"));
    const std::string item = Item("A/new.jpg"), camera = Item("D/cam.jpg", 1);
    const std::string folderD = FolderRecord("$/D", 1);
    ExpectKnown("A=/opt/storage/usb/sda C=ptp D=ptp  A D $/A/old.jpg $/A/new.jpg $/D/cam.jpg",
                folderA + old + item + camera + folderD);

    ExpectSaved("AB/two.jpg", "/opt/storage/usb/ab/p", 120, 121);  // evicts the oldest
    ExpectSaved("x/AB/a.jpg", "/opt/storage/usb/ab/p", 5, 3);      // another of that id
    const std::string two = Item("AB/two.jpg"), three = Item("x/AB/a.jpg");
    const std::string folderB = FolderRecord("$/AB"), folderX = FolderRecord("$/x/AB");
    ExpectKnown(
        "A=/opt/storage/usb/sda AB=/opt/storage/usb/ab C=ptp D=ptp "
        " A D AB AB $/A/new.jpg $/D/cam.jpg $/AB/two.jpg $/x/AB/a.jpg",
        folderA + folderD + item + camera + two + folderB + three + folderX);

    for (const int event : {-1, 0, 1, 3})
        SendEvent(Engine::m_pObj, event, "/opt/storage/usb/sda");
    SendEvent(Engine::m_pObj, 2, "/opt/storage/usb/sdb");
    Log();
    SendEvent(Engine::m_pObj, 2, "/opt/storage/usb/sda");
    EXPECT_EQ(Log(), Expected("pulled"));
    const std::string rest = folderD + folderB + folderX + camera + two + three;
    ExpectKnown("AB=/opt/storage/usb/ab C=ptp D=ptp  D AB AB $/D/cam.jpg $/AB/two.jpg $/x/AB/a.jpg",
                rest);
    Start(root + "/next");  // what follows is recorded elsewhere
    EXPECT_THAT(Log(true), EndsWith("Create...~|i Create m_bIsCreated is true###~"));
    ExpectSaved("AB/next.jpg", "/opt/storage/usb/ab/p", 7, 5);
    EXPECT_EQ(Read() + Read("next"), rest + Item("AB/next.jpg"));
    Log();
    Stop();
    EXPECT_EQ(Log(), "I zel_thumbnail_flash_cache_clear|P disconnect");

    platform.devices[ZEL_STORAGE_DEVICE_TYPE_PTP].storages = {{{"", "D"}}};
    Start(index);
    ExpectKnown("A=/opt/storage/usb/sda D=ptp  D $/D/cam.jpg", folderD + camera);
    EXPECT_THAT(Files(), ElementsAre("$/D/cam.jpg", "$/index", "$/next"));
}

TEST_F(Life, recordKeepsCopiesGivesCopiesAndRefusesNullAndEmpty) {
    zel_thumbnail_flash_cache_param_h param = nullptr;
    ExpectRefused(zel_create_thumbnail_flash_cache_param(nullptr));
    EXPECT_EQ(zel_create_thumbnail_flash_cache_param(&param), 1);
    ExpectRefused(zel_destroy_thumbnail_flash_cache_param(nullptr));
    const auto checkText = [&](auto set, auto get, char*& field) {
        char *text = nullptr, *other = nullptr;
        ExpectRefused(get(param, &text));
        EXPECT_EQ(set(param, (std::string("the first ") + "text").c_str()), 1);
        EXPECT_EQ(set(param, field + 4), 1);  // a part of the text that it replaces
        ExpectRefused(set(nullptr, "a"));
        ExpectRefused(set(param, nullptr));
        ExpectRefused(set(param, ""));
        ExpectRefused(get(nullptr, &text));
        ExpectRefused(get(param, nullptr));
        EXPECT_EQ(get(param, &text) + get(param, &other), 2);
        text[0] = 'F';
        EXPECT_STREQ(other, "first text");
        EXPECT_STREQ(field, "first text");
        free(text), free(other);
    };
    const auto checkNumber = [&](auto set, auto get, int value) {
        int number = -1;
        ExpectRefused(set(nullptr, 1));
        ExpectRefused(get(nullptr, &number));
        ExpectRefused(get(param, nullptr));
        EXPECT_EQ(get(param, &number) + number, 1);  // a new record has 0
        EXPECT_EQ(set(param, value), 1);
    };
    char** texts = reinterpret_cast<char**>(param);  // its first two fields
    checkText(zel_set_thumbnail_flash_cache_filename, zel_get_thumbnail_flash_cache_filename,
              texts[0]);
    checkText(zel_set_thumbnail_flash_cache_url, zel_get_thumbnail_flash_cache_url, texts[1]);
    checkNumber(zel_set_thumbnail_flash_cache_xsize, zel_get_thumbnail_flash_cache_xsize, 7);
    checkNumber(zel_set_thumbnail_flash_cache_ysize, zel_get_thumbnail_flash_cache_ysize, 8);
    int xsize = 0, ysize = 0;
    EXPECT_EQ(zel_get_thumbnail_flash_cache_xsize(param, &xsize), 1);
    EXPECT_EQ(zel_get_thumbnail_flash_cache_ysize(param, &ysize), 1);
    EXPECT_EQ(std::pair(xsize, ysize), std::pair(7, 8));
    EXPECT_EQ(zel_destroy_thumbnail_flash_cache_param(param), 1);
}

// The probe is what a caller does to learn when the cache is ready.
TEST_F(Life, savesAreRefusedUntilTheEngineIsReadyWhichAProbeTells) {
    EXPECT_EQ(zel_thumbnail_flash_cache_save_file(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(Engine::m_pObj, nullptr);
    EXPECT_EQ(Save("/a.jpg", "file:x", 1, 1), 0);
    EXPECT_EQ(zel_thumbnail_flash_cache_init(nullptr), 0);
    EXPECT_EQ(Log(),
              "I zel_thumbnail_flash_cache_save_file|W Invalid param."
              "|I zel_thumbnail_flash_cache_save_file|I constuct..."
              "|I SaveFlashFile m_bIsCreated is false~|I zel_thumbnail_flash_cache_init"
              "|I strCachePath is null");
    EXPECT_EQ(zel_thumbnail_flash_cache_init(index.c_str()), 1);
    while (Save("/dev/null", "probe:", 1, 1) == 0)
        std::this_thread::yield();
    EXPECT_TRUE(Engine::m_pObj->FlagCreate());
    EXPECT_EQ(zel_thumbnail_flash_cache_clear(), 1);
    EXPECT_EQ(zel_thumbnail_flash_cache_clear(), 1);
}
