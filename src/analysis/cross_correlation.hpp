#pragma once

// Cross-correlation histogram of two timestamp lists.

#include <cstddef>
#include <cstdint>

#include "zolt_timing.h"

namespace zolt::timing {

// The lag axis: 2 * half_count + 1 bins of bin_width_ps centred on
// -half_count * width .. +half_count * width.
struct CorrelationAxis {
  std::int64_t range_ps = 0;
  std::int64_t bin_width_ps = 1;
  std::int64_t offset_ps = 0;  // subtracted from every difference u - t
};

// Number of bins covering +-range_ps: 2 * ceil(range / width) + 1. -1 when the
// width is <= 0, the range < 0 or the half-count overflows (it is computed as
// (range + width - 1) / width with 64-bit wrap-around, as it always was).
tt_status correlation_bin_count(std::int64_t range_ps, std::int64_t bin_width_ps, std::size_t& bins);

struct CorrelationInput {
  const std::int64_t* times = nullptr;
  std::size_t count = 0;
};

// Counts every pair (t from a, u from b) into counts[k + H], where k is
// (u - t - offset) / width in double precision rounded half away from zero.
// lags (optional) receives the bin centres. Checks the axis and nbins first
// and leaves counts and lags untouched when they are rejected (-1). Returns
// the number of counted pairs through pairs_counted when given.
tt_status cross_correlate(CorrelationInput a, CorrelationInput b, const CorrelationAxis& axis, std::uint64_t* counts,
                          std::int64_t* lags, std::size_t nbins, std::uint64_t* pairs_counted = nullptr);

}  // namespace zolt::timing
