// The log of the Linux platform.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <tuple>

#include "platform_calls.h"
#include "zel_platform_log.h"

TEST(LinuxLog, EndsEachLineOnceWhateverItsLengthAndKeepsErrno) {
    const std::string reset = "\033[0m";
    for (const std::string& tag : {std::string(), std::string("TAG"), std::string(1500, 't')})
        for (const std::size_t size :
             {0, 1, 1012, 1013, 1014, 1015, 1016, 1017, 1018, 1019, 1020, 5000})
            for (const std::string end : {"", "\n", "\n\n", "\033[0m", "\n\033[0m", "\033[0m\n"}) {
                const std::string text = std::string(size, 'x') + end;
                const bool coloured = end.find(reset) != std::string::npos;
                const std::string line =
                    tag + ": " + std::string(size, 'x') + (coloured ? reset : "") + "\n";
                g_platform_calls.piece = size % 2 == 0 ? 100 : SIZE_MAX;
                g_platform_calls.interrupting = size % 2 == 0;
                errno = ERANGE;
                testing::internal::CaptureStderr();
                const int printed =
                    __dlog_print(2, ZEL_PLATFORM_LOG_WARN, tag.c_str(), "%s", text.c_str());
                const int error = errno;
                g_platform_calls.piece = SIZE_MAX;
                g_platform_calls.interrupting = false;
                EXPECT_EQ(testing::internal::GetCapturedStderr(), line);
                EXPECT_EQ(printed, static_cast<int>(line.size()));
                EXPECT_EQ(error, ERANGE);
            }
}

TEST(LinuxLog, LeavesOutALineThatCannotBeFormatted) {
    testing::internal::CaptureStderr();
    EXPECT_LT(__dlog_print(2, ZEL_PLATFORM_LOG_WARN, "T", "%ls", L"\u20ac"), 0);  // not in ASCII
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

#ifndef ZEL_SANITIZED  // they have their own malloc()
TEST(LinuxLog, CutsALongLineWhereMemoryIsShort) {
    const std::string text(2000, 'x');
    testing::internal::CaptureStderr();
    g_platform_calls.calls = 0;
    g_platform_calls.first = 1;
    const int printed = __dlog_print(2, ZEL_PLATFORM_LOG_WARN, "T", "%s", text.c_str());
    g_platform_calls.first = 0;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "T: " + std::string(1020, 'x') + "\n");
    EXPECT_EQ(printed, 1024);
}
#endif

static void exit_in_a_new_program() {
    if (getenv("GTEST_DEATH_TEST_STYLE") == nullptr)  // an emulator cannot start this program again
        GTEST_FLAG_SET(death_test_style, "threadsafe");
}

// Each level in a process of its own, since the first line settles it.
TEST(LinuxLog, DropsWhatIsBelowTheLevelOfTheEnvironment) {
    exit_in_a_new_program();
    const std::pair<const char*, const char*> cases[] = {
        {nullptr, "567"}, {"", "567"},     {"debug", "34567"},    {"info", "4567"},
        {"warn", "567"},  {"error", "67"}, {"INFO", "567"},       {"4", "4567"},
        {"4x", "567"},    {" 4", "567"},   {"infox", "567"},      {"errors", "567"},
        {"-1", "234567"}, {"99", ""},      {"99999999999", "567"}};
    for (const auto& [level, printed] : cases) {
        unsetenv("ZEL_LOG_LEVEL");
        if (level != nullptr)
            setenv("ZEL_LOG_LEVEL", level, 1);
        std::string lines;
        for (const char priority : std::string(printed))
            lines += std::string("T: ") + priority + "\n";
        const auto log_each = [] {
            int size = 0;
            for (int priority = 2; priority < 8; ++priority) {
                size += __dlog_print(0, priority, "T", "%d", priority);
                setenv("ZEL_LOG_LEVEL", "5", 1);
            }
            std::exit(size);
        };
        EXPECT_EXIT(log_each(), testing::ExitedWithCode(static_cast<int>(lines.size())),
                    testing::StrEq(lines))
            << level;
    }
}

TEST(LinuxLog, GivesUpALineWhereNothingIsWritten) {
    exit_in_a_new_program();
    const auto lose = [] {
        alarm(60);
        errno = EINTR;  // of an earlier call
        std::exit(__dlog_print(0, 7, "T", "lost"));
    };
    EXPECT_EXIT((close(2), lose()), testing::ExitedWithCode(255), "");
    EXPECT_EXIT((g_platform_calls.piece = 0, lose()), testing::ExitedWithCode(255), "");
    EXPECT_EXIT((g_platform_calls.full = true, lose()), testing::ExitedWithCode(255), "");
}
