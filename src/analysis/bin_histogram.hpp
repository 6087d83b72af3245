#pragma once

// Histogram of tag times per input in fixed-width bins.

#include <cstddef>
#include <cstdint>

#include "zolt_timing.h"

namespace zolt::timing {

struct BinHistogramLayout {
  int channels = 1;             // inputs 0..channels-1 are counted
  std::int64_t start_ps = 0;    // left edge of bin 0
  std::int64_t bin_width_ps = 1;
  std::size_t bins = 0;
};

// Checks the layout (channels >= 1, width >= 1, bins >= 1, channels * bins
// fits in 64 bits), then zeroes out[0 .. channels * bins) and counts each tag
// with 0 <= input < channels into out[bin * channels + input]. Returns -1
// with out untouched when the layout is rejected. tags and out must be valid.
tt_status count_bins(const tt_tag* tags, std::size_t count, const BinHistogramLayout& layout, std::uint64_t* out);

}  // namespace zolt::timing
