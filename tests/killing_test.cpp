#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "fixture.h"

namespace {

// A process that saves into a full cache is killed at any moment, again and again on one index.
class Killing : public CacheTest {
protected:
    static constexpr int kept = 40;  // thumbnails that fit below the ceiling

    // Saves numbered thumbnails from `first` on, each for the room of one, and tells each on a
    // pipe.
    [[noreturn]] void SaveForever(int first, int pipe) {
        for (int number = first;; ++number) {
            if (!Save(root / "dev0" / std::to_string(number))) {
                _exit(1);
            }
            // Makes the next save evict one.
            auto& last = *engine->m_ThumbItemList.back();
            const long share = ZEL_FLASH_CACHE_MAX / kept;
            engine->m_CacheSize += static_cast<int>(share - last.Size);
            last.Size = share;
            if (write(pipe, &number, sizeof number) != sizeof number) {
                _exit(1);
            }
        }
    }
    // Runs the saver until it has told `count` numbers and some time more; the last number it told.
    int RunAndKill(int first, int count, int pause) {
        int pipe[2];
        EXPECT_EQ(::pipe(pipe), 0);
        const pid_t child = fork();
        if (child == 0) {
            SaveForever(first, pipe[1]);
        }
        close(pipe[1]);
        int told = first - 1;
        for (int i = 0; i < count; ++i) {
            EXPECT_EQ(read(pipe[0], &told, sizeof told), long{sizeof told});
        }
        usleep(static_cast<useconds_t>(pause));  // any moment will do, the longer no better
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status));
        while (read(pipe[0], &told, sizeof told) == sizeof told) {
        }
        close(pipe[0]);
        return told;
    }
    std::vector<int> NumbersInIndex() {
        engine->m_ThumbItemList.clear();
        engine->m_ThumbFolderList.clear();
        engine->m_CacheSize = 0;
        EXPECT_TRUE(engine->m_LoadThumbFile());
        std::vector<int> numbers;
        for (const auto& item : engine->m_ThumbItemList) {
            numbers.push_back(std::stoi(item->URL.substr(item->URL.rfind('/') + 1)));
        }
        return numbers;
    }
};

TEST_F(Killing, theIndexIsAlwaysTheOldOneOrTheNewOne) {
    const char* rounds = getenv("ZEL_TEST_KILLS");
    std::srand(1);
    MakeFolder("dev0");
    Start();
    int next = 0;
    for (int round = rounds == nullptr ? 100 : std::atoi(rounds); round > 0; --round) {
        const int told = RunAndKill(next, 1 + std::rand() % (2 * kept), std::rand() % 2000);
        const std::vector<int> numbers = NumbersInIndex();
        ASSERT_FALSE(numbers.empty());
        // Without a gap, up to the last one told or the one in progress.
        for (std::size_t i = 1; i < numbers.size(); ++i) {
            ASSERT_EQ(numbers[i], numbers[i - 1] + 1);
        }
        ASSERT_GE(numbers.back(), told);
        ASSERT_LE(numbers.back(), told + 1);
        ASSERT_LE(numbers.front(), std::max(0, told + 2 - kept));
        ASSERT_EQ(engine->m_ThumbFolderList.size(), 1U);
        ASSERT_EQ(std::filesystem::exists(root / "index.new.new"), false);
        next = numbers.back() + 1;
    }
}

}  // namespace
