#pragma once

// Ascending views of caller arrays, and searches that move forward through
// them. Recorded tags almost always arrive in time order already, so the
// order is checked first and a sorted copy is made only when it is needed.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "analysis/large_buffer.hpp"

namespace zolt::timing::detail {

// The times of a caller array in ascending order: the array itself when it
// is already sorted, otherwise a sorted copy owned by this object.
class SortedTimes {
 public:
  SortedTimes(const std::int64_t* times, std::size_t count) {
    const std::span<const std::int64_t> given(times, times == nullptr ? 0 : count);
    if (std::is_sorted(given.begin(), given.end())) {
      view_ = given;
      return;
    }
    copy_.assign(given.begin(), given.end());
    std::sort(copy_.begin(), copy_.end());
    view_ = copy_;
  }
  SortedTimes(const SortedTimes&) = delete;
  SortedTimes& operator=(const SortedTimes&) = delete;

  std::span<const std::int64_t> times() const noexcept { return view_; }

 private:
  LargeVector<std::int64_t> copy_;
  std::span<const std::int64_t> view_;
};

// Sorts a list in place unless it is already ascending (one pass then).
inline void sort_if_needed(LargeVector<std::int64_t>& times) {
  if (!std::is_sorted(times.begin(), times.end())) std::sort(times.begin(), times.end());
}

// Forward searches for bounds that only grow from one call to the next. The
// answer is usually close: among the next few times the sorted run is
// counted, a little further it is bisected with conditional moves (a loop
// that stops at the answer would be mispredicted on nearly every call), and
// a far answer is found by doubling the step, so long jumps stay
// logarithmic.
inline constexpr std::ptrdiff_t kNearRun = 8;
inline constexpr std::ptrdiff_t kMiddleRun = 64;

// First position in [from, from + kMiddleRun) where below(time) is false,
// given that it is false at the last one. No data-dependent branches.
template <class Below>
const std::int64_t* bisect_run(const std::int64_t* from, Below below) noexcept {
  const std::int64_t* base = from;
  for (std::ptrdiff_t length = kMiddleRun; length > 1; length /= 2) {
    const std::ptrdiff_t half = length / 2;
    base = below(base[half - 1]) ? base + half : base;
  }
  return base;
}

template <class Below>
const std::int64_t* first_not(const std::int64_t* from, const std::int64_t* end, Below below) noexcept {
  const std::ptrdiff_t left = end - from;
  if (left >= kNearRun && !below(from[kNearRun - 1])) {
    std::ptrdiff_t count = 0;
    for (std::ptrdiff_t j = 0; j + 1 < kNearRun; ++j) count += below(from[j]) ? 1 : 0;
    return from + count;
  }
  if (left >= kMiddleRun && !below(from[kMiddleRun - 1])) return bisect_run(from, below);
  if (from == end || !below(*from)) return from;
  std::ptrdiff_t step = 1;
  const std::int64_t* known_below = from;
  while (end - known_below > step && below(known_below[step])) {
    known_below += step;
    step *= 2;
  }
  const std::int64_t* limit = end - known_below > step ? known_below + step : end;
  return std::partition_point(known_below + 1, limit, below);
}

// First position in [from, end) whose time is >= bound.
inline const std::int64_t* first_not_below(const std::int64_t* from, const std::int64_t* end,
                                           std::int64_t bound) noexcept {
  return first_not(from, end, [bound](std::int64_t time) { return time < bound; });
}

// First position in [from, end) whose time is > bound.
inline const std::int64_t* first_above(const std::int64_t* from, const std::int64_t* end,
                                       std::int64_t bound) noexcept {
  return first_not(from, end, [bound](std::int64_t time) { return time <= bound; });
}

}  // namespace zolt::timing::detail
