/**
 * @file
 * What the commands print for people.
 */
#ifndef ZEL_TOOLS_REPORT_H
#define ZEL_TOOLS_REPORT_H

#include <cstddef>
#include <cstdint>
#include <string>

/** The most bytes that the thumbnails of a cache hold together. */
constexpr std::uintmax_t kCacheCeiling = 104857600;

/** How a size is told: "5324", or "5.2 KiB". */
enum class SizeStyle { kBytes, kRounded };

/** A size in bytes, to be printed. */
[[nodiscard]] std::string SizeText(std::uintmax_t bytes, SizeStyle style = SizeStyle::kRounded);

/** A count and what is counted, as in "1 thumbnail" and "2 thumbnails". */
[[nodiscard]] std::string CountText(std::size_t count, const std::string& what);

/** The share of the cache that so many bytes fill, in per cent. */
[[nodiscard]] double ShareOfCache(std::uintmax_t bytes);

/** Prints how many thumbnails there are and how much of the cache they fill. */
void PrintTotal(std::size_t thumbnails, std::uintmax_t bytes, SizeStyle style = SizeStyle::kBytes);

/** The text with another character, "?" for a terminal, in place of each control character. */
std::string Printable(std::string text, char replacement = '?');

/** Prints a line on standard output, at once and whole. Any thread may call it. */
void PrintLine(const std::string& line);

/** Shows on a terminal at standard error what is being done, in place of what was shown before; an
 * empty text erases it. */
void ShowProgress(const std::string& text);

/** Reports on standard error what failed and why. */
void ReportFailure(const std::string& what, const std::string& why);

#endif
