/**
 * @file
 * One line of log: one call of the platform's log, with the place and the thread in front.
 *
 * ZEL_LOG_INFO and ZEL_LOG_WARN take the message as a string literal in printf format and its
 * arguments, if any.
 */
#ifndef ZEL_LOG_H
#define ZEL_LOG_H

#include <cstddef>
#include <string_view>
#include <type_traits>

#include "thread_id.h"
#include "zel_platform_log.h"

/** Where the name of a file begins in its path. */
[[nodiscard]] constexpr std::size_t FileNameOffset(std::string_view path) {
    return path.find_last_of('/') + 1;  // also without a "/"
}

#define ZEL_LOG_ID 2
#define ZEL_LOG_TAG "ZEL-THUMB-FLASH-CACHE"

#define ZEL_LOG_HEAD(level) "%s: %s(%d) > \033[31m " level ":[%s:%d] [Thread Id:[%d]] "
// __FILE_NAME__ would need GCC 12.
#define ZEL_LOG_FILE_NAME \
    &__FILE__[std::integral_constant<std::size_t, FileNameOffset(__FILE__)>::value]
#define ZEL_LOG_PLACE ZEL_LOG_FILE_NAME, __func__, __LINE__, __func__, __LINE__, CurrentThreadId()

#define ZEL_LOG_PLAIN(prio, level, body)                          \
    static_cast<void>(__dlog_print(ZEL_LOG_ID, prio, ZEL_LOG_TAG, \
                                   ZEL_LOG_HEAD(level) body "\033[0m", ZEL_LOG_PLACE))
#define ZEL_LOG_WITH_ARGS(prio, level, body, ...)                                     \
    static_cast<void>(__dlog_print(ZEL_LOG_ID, prio, ZEL_LOG_TAG,                     \
                                   ZEL_LOG_HEAD(level) body "\033[0m", ZEL_LOG_PLACE, \
                                   __VA_ARGS__))

// Standard C++17 knows no empty __VA_ARGS__, so the number of arguments selects the macro.
#define ZEL_LOG_SELECT(_1, _2, _3, _4, _5, _6, macro, ...) macro
#define ZEL_LOG(prio, level, ...)                                                        \
    ZEL_LOG_SELECT(__VA_ARGS__, ZEL_LOG_WITH_ARGS, ZEL_LOG_WITH_ARGS, ZEL_LOG_WITH_ARGS, \
                   ZEL_LOG_WITH_ARGS, ZEL_LOG_WITH_ARGS, ZEL_LOG_PLAIN, )                \
    (prio, level, __VA_ARGS__)

#define ZEL_LOG_INFO(...) ZEL_LOG(ZEL_PLATFORM_LOG_INFO, "[INFO]", __VA_ARGS__)
#define ZEL_LOG_WARN(...) ZEL_LOG(ZEL_PLATFORM_LOG_WARN, "[WARNNING]", __VA_ARGS__)

#endif
