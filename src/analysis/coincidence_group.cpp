// Counting the coincident tuples of one group of inputs.
//
// The input with the fewest times is the reference. For each reference time
// the search descends through the other inputs, narrowing the common interval
// at every level; a tuple counts when the interval is still non-empty after
// its last input. Two kinds of cursors keep this cheap on long recordings:
// per input, a coarse range [near_lo, near_hi) that can only move forward with
// the reference time and brackets every candidate, and exact binary searches
// inside that (usually tiny) range.

#include <algorithm>

#include "analysis/clamped_math.hpp"
#include "analysis/coincidence_analysis.hpp"
#include "analysis/sorted_times.hpp"

namespace zolt::timing::detail {
namespace {

struct GroupMember {
  const std::int64_t* begin = nullptr;
  const std::int64_t* end = nullptr;
  std::uint64_t half_window = 0;
  const std::int64_t* near_lo = nullptr;  // first time that can still match
  const std::int64_t* near_hi = nullptr;  // first time beyond every match
};

class GroupCounter {
 public:
  GroupCounter(const PerInputTimes& times, const CoincidenceWindowConfig& config,
               const std::array<std::int32_t, kInputCount>& ordered, int size)
      : size_(size) {
    for (int d = 0; d < size; ++d) {
      const auto input = static_cast<std::size_t>(ordered[static_cast<std::size_t>(d)]);
      GroupMember& m = members_[static_cast<std::size_t>(d)];
      m.begin = times[input].data();
      m.end = m.begin + times[input].size();
      m.half_window = magnitude(config.window_ps[input]);
      m.near_lo = m.near_hi = m.begin;
    }
  }

  std::int64_t count() {
    const GroupMember& reference = members_[0];
    for (const std::int64_t* t = reference.begin; t != reference.end; ++t) {
      const std::int64_t lo = minus_clamped(*t, reference.half_window);
      const std::int64_t hi = plus_clamped(*t, reference.half_window);
      if (advance_near_ranges(lo, hi)) step<1>(lo, hi);
    }
    return count_;
  }

 private:
  // Moves every partner's coarse range to the reference interval [lo, hi].
  // False when some partner has no time near it at all.
  // False when some partner has no time near it at all; the partners after
  // it are then left behind, which the forward searches catch up on later.
  bool advance_near_ranges(std::int64_t lo, std::int64_t hi) {
    for (int d = 1; d < size_; ++d) {
      GroupMember& m = members_[static_cast<std::size_t>(d)];
      m.near_lo = first_not_below(m.near_lo, m.end, minus_clamped(lo, m.half_window));
      m.near_hi = first_above(std::max(m.near_hi, m.near_lo), m.end, plus_clamped(hi, m.half_window));
      if (m.near_lo == m.near_hi) return false;
    }
    return true;
  }

  // Extends a tuple whose common interval is [lo, hi] by the member at Depth.
  // At depth 1 the interval is the reference's own, for which the coarse
  // range is already exact.
  // The depth is a template argument so that the descent never indexes past
  // the four inputs and compiles into straight-line code per level.
  template <int Depth>
  void step(std::int64_t lo, std::int64_t hi) {
    if (Depth == size_) {
      ++count_;
      return;
    }
    const GroupMember& m = members_[static_cast<std::size_t>(Depth)];
    const std::int64_t* first = m.near_lo;
    const std::int64_t* last = m.near_hi;
    if constexpr (Depth > 1) {
      // Deeper levels see a narrower interval than the coarse range.
      first = std::lower_bound(first, last, minus_clamped(lo, m.half_window));
      last = std::upper_bound(first, last, plus_clamped(hi, m.half_window));
    }
    if (Depth + 1 == size_) {
      // Every time in [first, last) overlaps [lo, hi] and completes a tuple.
      count_ += last - first;
      return;
    }
    if constexpr (Depth + 1 < kInputCount) {
      for (const std::int64_t* u = first; u != last; ++u) {
        const std::int64_t narrowed_lo = std::max(minus_clamped(*u, m.half_window), lo);
        const std::int64_t narrowed_hi = std::min(plus_clamped(*u, m.half_window), hi);
        if (narrowed_lo <= narrowed_hi) step<Depth + 1>(narrowed_lo, narrowed_hi);
      }
    }
  }

  std::array<GroupMember, kInputCount> members_{};
  int size_;
  std::int64_t count_ = 0;
};

// Orders the group by list size, ascending; equal sizes keep their order.
void order_by_list_size(std::array<std::int32_t, kInputCount>& group, int size,
                        const PerInputTimes& times) {
  const auto length = [&](std::int32_t input) { return times[static_cast<std::size_t>(input)].size(); };
  for (int i = 1; i < size; ++i) {
    const std::int32_t moving = group[static_cast<std::size_t>(i)];
    int j = i;
    while (j > 0 && length(group[static_cast<std::size_t>(j - 1)]) > length(moving)) {
      group[static_cast<std::size_t>(j)] = group[static_cast<std::size_t>(j - 1)];
      --j;
    }
    group[static_cast<std::size_t>(j)] = moving;
  }
}

}  // namespace

std::int64_t count_coincidence_group(const PerInputTimes& times, const CoincidenceWindowConfig& config,
                                     const std::array<std::int32_t, kInputCount>& inputs,
                                     std::int32_t group_size) {
  if (group_size < 1 || group_size > kInputCount) return 0;
  const std::uint8_t mask = effective_input_mask(config.group_mask);
  for (int d = 0; d < group_size; ++d) {
    const std::int32_t input = inputs[static_cast<std::size_t>(d)];
    if (input < 0 || input >= kInputCount) return 0;
    if ((mask & (1u << input)) == 0) return 0;
    if (times[static_cast<std::size_t>(input)].empty()) return 0;
  }
  std::array<std::int32_t, kInputCount> ordered = inputs;
  order_by_list_size(ordered, group_size, times);
  return GroupCounter(times, config, ordered, group_size).count();
}

}  // namespace zolt::timing::detail
