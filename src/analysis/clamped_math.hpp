#pragma once

// Interval arithmetic on picosecond times that never overflows. Tag times use
// the whole signed 64-bit range (the epoch extensions make them grow without
// bound), so t - window and t + window are clamped to the representable range
// instead of wrapping. Because every time lies inside that range, a clamped
// bound selects exactly the same times as the true one.

#include <cstdint>
#include <limits>

namespace zolt::timing::detail {

inline constexpr std::int64_t kMinTime = std::numeric_limits<std::int64_t>::min();
inline constexpr std::int64_t kMaxTime = std::numeric_limits<std::int64_t>::max();

// |value| without overflow: |INT64_MIN| is 2^63.
constexpr std::uint64_t magnitude(std::int64_t value) noexcept {
  return value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
}

// time - amount, or the smallest time when that is below the range.
constexpr std::int64_t minus_clamped(std::int64_t time, std::uint64_t amount) noexcept {
  const std::uint64_t room = static_cast<std::uint64_t>(time) - static_cast<std::uint64_t>(kMinTime);
  return amount > room ? kMinTime : static_cast<std::int64_t>(static_cast<std::uint64_t>(time) - amount);
}

// time + amount, or the largest time when that is above the range.
constexpr std::int64_t plus_clamped(std::int64_t time, std::uint64_t amount) noexcept {
  const std::uint64_t room = static_cast<std::uint64_t>(kMaxTime) - static_cast<std::uint64_t>(time);
  return amount > room ? kMaxTime : static_cast<std::int64_t>(static_cast<std::uint64_t>(time) + amount);
}

// time + offset with 64-bit wrap-around, how offsets are applied to tag times.
constexpr std::int64_t plus_wrapping(std::int64_t time, std::int64_t offset) noexcept {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(time) + static_cast<std::uint64_t>(offset));
}

}  // namespace zolt::timing::detail
