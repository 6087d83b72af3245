#include "analysis/bin_histogram.hpp"

#include <algorithm>
#include <limits>

namespace zolt::timing {
namespace {

bool layout_is_valid(const BinHistogramLayout& layout) noexcept {
  if (layout.channels < 1 || layout.bin_width_ps < 1 || layout.bins == 0) return false;
  const auto channels = static_cast<std::uint64_t>(layout.channels);
  return layout.bins <= std::numeric_limits<std::uint64_t>::max() / channels;
}

}  // namespace

tt_status count_bins(const tt_tag* tags, std::size_t count, const BinHistogramLayout& layout, std::uint64_t* out) {
  if (!layout_is_valid(layout)) return TT_ERR_INVALID_ARGUMENT;
  const auto channels = static_cast<std::uint64_t>(layout.channels);
  std::fill_n(out, channels * layout.bins, std::uint64_t{0});
  const auto width = static_cast<std::uint64_t>(layout.bin_width_ps);
  for (std::size_t i = 0; i < count; ++i) {
    const auto input = static_cast<std::int32_t>(tags[i].channel);
    if (input < 0 || static_cast<std::uint64_t>(input) >= channels) continue;
    const std::int64_t time = tags[i].time_ps;
    if (time < layout.start_ps) continue;
    // time >= start, so the distance fits in 64 unsigned bits.
    const std::uint64_t distance = static_cast<std::uint64_t>(time) - static_cast<std::uint64_t>(layout.start_ps);
    const std::uint64_t bin = distance / width;
    if (bin < layout.bins) ++out[bin * channels + static_cast<std::uint64_t>(input)];
  }
  return TT_OK;
}

}  // namespace zolt::timing
