/**
 * @file
 * Sizes are signed 32-bit counts of bytes that wrap around on overflow.
 */
#ifndef ZEL_SIZE_ARITHMETIC_H
#define ZEL_SIZE_ARITHMETIC_H

#include <algorithm>
#include <cstdint>
#include <limits>

/** a + b, wrapped to 32 bits. */
[[nodiscard]] inline int WrappingAdd(long a, long b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

/** a - b, wrapped to 32 bits. */
[[nodiscard]] inline int WrappingSubtract(long a, long b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

/** The value, held to the range of 32 bits. */
[[nodiscard]] inline int HoldToInt32(long long value) {
    return static_cast<int>(std::clamp<long long>(value, std::numeric_limits<std::int32_t>::min(),
                                                  std::numeric_limits<std::int32_t>::max()));
}

#endif
