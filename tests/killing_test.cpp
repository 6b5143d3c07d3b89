#include <sys/mman.h>
#include <sys/wait.h>

#include "fixture.h"

// A process that saves into a full cache is killed at any moment, again and again on one index.
struct Killing : CacheTest {
    static constexpr int kept = 5;  // thumbnails that fit below the ceiling

    // Saves numbered thumbnails, each for the room of one, and tells the last that is stored.
    [[noreturn]] void SaveForever(std::atomic<int>& told) {
        close(STDIN_FILENO);  // its number then is as good as any other
        while (Save("dev0/" + std::to_string(told + 1))) {
            auto& last = *engine->m_ThumbItemList.back();
            engine->m_CacheSize += static_cast<int>(ZEL_FLASH_CACHE_MAX / kept - last.Size);
            last.Size = ZEL_FLASH_CACHE_MAX / kept;  // makes the next save evict one
            ++told;
        }
        _exit(1);
    }
    // Lets a process save until it has told a number and some time more.
    void RunAndKill(std::atomic<int>& told, int last, int pause) {
        const pid_t child = fork();
        if (child == 0)
            SaveForever(told);
        int status = 0;
        while (told < last && waitpid(child, &status, WNOHANG) == 0)
            std::this_thread::yield();
        usleep(static_cast<useconds_t>(pause));  // any moment will do, the longer no better
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status));
    }
};

TEST_F(Killing, theIndexIsAlwaysTheOldOneOrTheNewOne) {
    const char* rounds = getenv("ZEL_TEST_KILLS");
    auto* told = new (mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE,
                           MAP_SHARED | MAP_ANONYMOUS, -1, 0)) std::atomic<int>(0);
    ASSERT_TRUE(engine->m_Create());
    for (int round = rounds == nullptr ? 100 : std::atoi(rounds); round > 0; --round) {
        RunAndKill(*told, *told + 1 + std::rand() % (2 * kept), std::rand() % 2000);
        engine->m_ResetState();
        ASSERT_TRUE(engine->m_LoadThumbFile());
        std::vector<int> numbers;
        for (const auto& item : engine->m_ThumbItemList)
            numbers.push_back(std::stoi(item->URL.substr(item->URL.rfind('/') + 1)));
        // Without a gap, up to the last one told or the one in progress.
        ASSERT_THAT(numbers.back() - *told, testing::AnyOf(0, 1));
        for (std::size_t i = 1; i < numbers.size(); ++i)
            ASSERT_EQ(numbers[i], numbers[i - 1] + 1);
        ASSERT_LE(numbers.front(), std::max(1, *told + 2 - kept));
        *told = numbers.back();
    }
    EXPECT_TRUE(engine->m_RefreshThumbFile());  // what a killed process has left goes with it
}
