#pragma once

// Ascending views of caller arrays, and searches that move forward through
// them. Recorded tags almost always arrive in time order already, so the
// order is checked first and a sorted copy is made only when it is needed.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

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
  std::vector<std::int64_t> copy_;
  std::span<const std::int64_t> view_;
};

// Sorts a list in place unless it is already ascending (one pass then).
inline void sort_if_needed(std::vector<std::int64_t>& times) {
  if (!std::is_sorted(times.begin(), times.end())) std::sort(times.begin(), times.end());
}

// First position in [from, end) whose time is >= bound, searched forward from
// `from` with doubling steps: cheap when the answer is near, logarithmic when
// it is far. Used for bounds that only grow from one call to the next.
inline const std::int64_t* first_not_below(const std::int64_t* from, const std::int64_t* end,
                                           std::int64_t bound) noexcept {
  if (from == end || *from >= bound) return from;
  std::size_t step = 1;
  const std::int64_t* below = from;  // known to be < bound
  while (static_cast<std::size_t>(end - below) > step && below[step] < bound) {
    below += step;
    step *= 2;
  }
  const std::int64_t* limit = static_cast<std::size_t>(end - below) > step ? below + step : end;
  return std::lower_bound(below + 1, limit, bound);
}

// First position in [from, end) whose time is > bound, searched like
// first_not_below.
inline const std::int64_t* first_above(const std::int64_t* from, const std::int64_t* end,
                                       std::int64_t bound) noexcept {
  if (from == end || *from > bound) return from;
  std::size_t step = 1;
  const std::int64_t* not_above = from;
  while (static_cast<std::size_t>(end - not_above) > step && not_above[step] <= bound) {
    not_above += step;
    step *= 2;
  }
  const std::int64_t* limit = static_cast<std::size_t>(end - not_above) > step ? not_above + step : end;
  return std::upper_bound(not_above + 1, limit, bound);
}

}  // namespace zolt::timing::detail
