#pragma once

// Weighted-moment estimate of a histogram peak.

#include <cstddef>
#include <cstdint>

#include "zolt_timing.h"

namespace zolt::timing {

// Estimates mean, width and area of the peak of (positions[i], counts[i]),
// i < n, over the points within fit_range of the highest count (all points
// when fit_range is 0). Not an iterative fit: one pass of weighted moments.
// positions and counts must hold n values (they may be null when n is 0).
zolt_analysis_gaussian_fit estimate_gaussian_peak(const std::int64_t* positions, const std::uint64_t* counts,
                                                  std::size_t n, std::int64_t fit_range);

}  // namespace zolt::timing
