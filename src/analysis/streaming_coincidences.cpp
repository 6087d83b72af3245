#include "analysis/streaming_coincidences.hpp"

#include <algorithm>
#include <array>

#include "analysis/clamped_math.hpp"
#include "analysis/coincidence_config.hpp"
#include "analysis/large_buffer.hpp"

namespace zolt::timing {
namespace {

struct AdjustedTag {
  std::int64_t time = 0;
  std::int32_t input = 0;
};

bool comes_before(const AdjustedTag& left, const AdjustedTag& right) noexcept {
  return left.time != right.time ? left.time < right.time : left.input < right.input;
}

// Index into pairs[] of inputs a != b: 01, 02, 03, 12, 13, 23.
constexpr std::array<std::array<int, kInputCount>, kInputCount> kPairSlot{{
    {-1, 0, 1, 2},
    {0, -1, 3, 4},
    {1, 3, -1, 5},
    {2, 4, 5, -1},
}};

// The triple slot that a tag of input c fills when the other three are all
// present: the slot named by those three (012 for 3, 013 for 2, 023 for 1,
// 123 for 0). A four-input event therefore lands in the slot of the input
// that arrived last and quadruples stays 0; users' numbers depend on this.
constexpr std::array<int, kInputCount> kTripleSlotOfLastInput{3, 2, 1, 0};

// Tags of the masked inputs with their offsets applied, visited in (time,
// input) order. Recordings are normally in that order already; then the
// records are read in place and nothing is copied.
class AdjustedTags {
 public:
  AdjustedTags(const tt_tag* tags, std::size_t count, const StreamingCoincidenceSetup& setup, std::uint8_t mask)
      : tags_(tags), count_(count), offsets_(setup.offsets_ps), mask_(mask) {
    if (in_order()) return;
    for (std::size_t i = 0; i < count; ++i) {
      AdjustedTag tag;
      if (adjust(tags[i], tag)) sorted_copy_.push_back(tag);
    }
    std::sort(sorted_copy_.begin(), sorted_copy_.end(), comes_before);
    copied_ = true;
  }

  template <class Visit>
  void for_each(Visit&& visit) const {
    if (copied_) {
      for (const AdjustedTag& tag : sorted_copy_) visit(tag);
      return;
    }
    AdjustedTag tag;
    for (std::size_t i = 0; i < count_; ++i) {
      if (adjust(tags_[i], tag)) visit(tag);
    }
  }

 private:
  bool adjust(const tt_tag& record, AdjustedTag& tag) const noexcept {
    const auto input = static_cast<std::int32_t>(record.channel);
    if (input < 0 || input >= kInputCount || (mask_ & (1u << input)) == 0) return false;
    const std::int64_t offset = offsets_ == nullptr ? 0 : offsets_[input];
    tag = AdjustedTag{detail::plus_wrapping(record.time_ps, offset), input};
    return true;
  }

  bool in_order() const noexcept {
    AdjustedTag previous{detail::kMinTime, -1};
    AdjustedTag tag;
    for (std::size_t i = 0; i < count_; ++i) {
      if (!adjust(tags_[i], tag)) continue;
      if (comes_before(tag, previous)) return false;
      previous = tag;
    }
    return true;
  }

  const tt_tag* tags_;
  std::size_t count_;
  const std::int64_t* offsets_;
  std::uint8_t mask_;
  bool copied_ = false;
  detail::LargeVector<AdjustedTag> sorted_copy_;
};

// Per input, the time of its latest tag. Tags arrive in time order, so an
// input's queue of recent times is non-empty exactly when its latest time is
// within the window; nothing older is needed.
class WindowCounter {
 public:
  WindowCounter(std::uint64_t window, std::uint8_t mask, zolt_analysis_coincidence_counts& out)
      : window_(window), mask_(mask), out_(out) {}

  void add(const AdjustedTag& tag) {
    const auto c = static_cast<std::size_t>(tag.input);
    ++out_.singles[c];
    int others_present = 0;
    for (std::size_t k = 0; k < kInputCount; ++k) {
      if (k == c || (mask_ & (1u << k)) == 0 || !recent(k, tag.time)) continue;
      ++out_.pairs[kPairSlot[c][k]];
      ++others_present;
    }
    if (others_present == kInputCount - 1) ++out_.triples[kTripleSlotOfLastInput[c]];
    latest_[c] = tag.time;
    seen_[c] = true;
  }

 private:
  bool recent(std::size_t input, std::int64_t now) const noexcept {
    // now >= latest: the unsigned difference is exact.
    return seen_[input] && static_cast<std::uint64_t>(now) - static_cast<std::uint64_t>(latest_[input]) <= window_;
  }

  std::uint64_t window_;
  std::uint8_t mask_;
  zolt_analysis_coincidence_counts& out_;
  std::array<std::int64_t, kInputCount> latest_{};
  std::array<bool, kInputCount> seen_{};
};

}  // namespace

tt_status count_streaming_coincidences(const tt_tag* tags, std::size_t count, const StreamingCoincidenceSetup& setup,
                                       zolt_analysis_coincidence_counts& out) {
  out = zolt_analysis_coincidence_counts{};
  if (setup.window_ps < 0) return TT_ERR_INVALID_ARGUMENT;
  out.window_ps = static_cast<std::uint64_t>(setup.window_ps);
  const std::uint8_t mask = effective_input_mask(setup.mask);
  const AdjustedTags adjusted(tags, count, setup, mask);
  WindowCounter counter(out.window_ps, mask, out);
  adjusted.for_each([&](const AdjustedTag& tag) { counter.add(tag); });
  for (const std::uint64_t singles : out.singles) out.total += singles;
  return TT_OK;
}

}  // namespace zolt::timing
