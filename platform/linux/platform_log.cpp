#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "zel_platform_log.h"

namespace {

constexpr std::string_view kColourReset = "\033[0m";

struct LevelName {
    std::string_view name;
    int level;
};

constexpr LevelName kLevelNames[] = {
    {"debug", 3}, {"info", ZEL_PLATFORM_LOG_INFO}, {"warn", ZEL_PLATFORM_LOG_WARN}, {"error", 6}};

struct Free {
    void operator()(char* memory) const { std::free(memory); }
};

int level_from_environment() {
    const char* value = std::getenv("ZEL_LOG_LEVEL");
    const std::string_view text = value != nullptr ? value : "";
    for (const LevelName& entry : kLevelNames) {
        if (text == entry.name)
            return entry.level;
    }
    int level = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, level);
    return error == std::errc() && stop == end ? level : ZEL_PLATFORM_LOG_WARN;
}

// The length that the whole line has, also when only a part of it fits; negative on failure.
long format_line(char* buffer, std::size_t capacity, const char* tag, const char* fmt,
                 va_list args) {
    const int head = std::snprintf(buffer, capacity, "%s: ", tag);
    if (head < 0)
        return -1;
    const std::size_t used = std::min<std::size_t>(head, capacity);
    const int body = std::vsnprintf(buffer + used, capacity - used, fmt, args);
    return body < 0 ? -1 : static_cast<long>(head) + body;
}

void remove_trailing_line_feeds(std::string_view& text) {
    while (!text.empty() && text.back() == '\n')
        text.remove_suffix(1);
}

// Ends the line in one line feed, after the colour reset: a reset at the start of the next line
// would leave the cursor there and colour whatever another process prints in between. The line
// feed may take the place of the terminating null.
std::size_t end_line(char* line, std::size_t length) {
    std::string_view text(line, length);
    remove_trailing_line_feeds(text);
    const bool coloured = text.size() >= kColourReset.size() &&
                          text.substr(text.size() - kColourReset.size()) == kColourReset;
    if (coloured) {
        text.remove_suffix(kColourReset.size());
        remove_trailing_line_feeds(text);
    }
    char* end = line + text.size();
    if (coloured)
        end = std::copy(kColourReset.begin(), kColourReset.end(), end);
    *end++ = '\n';
    return end - line;
}

// One write for the whole line, without a lock that a forked child could inherit taken: the kernel
// keeps it together, in a pipe up to PIPE_BUF bytes.
int write_line(const char* line, std::size_t length) {
    std::size_t written = 0;
    while (written < length) {
        const ssize_t count = ::write(STDERR_FILENO, line + written, length - written);
        if (count > 0)
            written += count;
        else if (count == 0 || errno != EINTR)
            return -1;
    }
    return static_cast<int>(written);
}

int print_line(const char* tag, const char* fmt, va_list args) {
    char short_line[1024];
    va_list args_again;
    va_copy(args_again, args);
    long length = format_line(short_line, sizeof short_line, tag, fmt, args);
    std::unique_ptr<char, Free> long_line;
    if (length >= static_cast<long>(sizeof short_line)) {
        long_line.reset(static_cast<char*>(std::malloc(length + 1)));
        length =
            long_line
                ? std::min(length, format_line(long_line.get(), length + 1, tag, fmt, args_again))
                : static_cast<long>(sizeof short_line) - 1;
    }
    va_end(args_again);
    if (length < 0)
        return -1;
    char* line = long_line ? long_line.get() : short_line;
    return write_line(line, end_line(line, length));
}

}  // namespace

int __dlog_print(int, int prio, const char* tag, const char* fmt, ...) {
    static const int threshold = level_from_environment();
    if (prio < threshold)
        return 0;
    const int error_of_caller = errno;
    va_list args;
    va_start(args, fmt);
    const int result = print_line(tag, fmt, args);
    va_end(args);
    errno = error_of_caller;
    return result;
}
