// The log of the Linux platform.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "zel_platform_log.h"

TEST(LinuxLog, EndsEachLineOnceAndDropsWhatIsBelowTheLevel) {
    unsetenv("ZEL_LOG_LEVEL");
    const std::string text(5000, 'x');
    testing::internal::CaptureStderr();
    errno = ENOENT;
    __dlog_print(2, ZEL_PLATFORM_LOG_INFO, "TAG", "dropped");
    for (const char* end : {"", "\n", "\033[0m", "\n\033[0m"})
        __dlog_print(2, ZEL_PLATFORM_LOG_WARN, "TAG", "%d %s", 7, end);
    __dlog_print(2, ZEL_PLATFORM_LOG_WARN, "TAG", "%s\n", text.c_str());
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "TAG: 7 \nTAG: 7 \nTAG: 7 \033[0m\nTAG: 7 \033[0m\nTAG: " + text + "\n");
}
