#pragma once

// Normalisation of a coincidence histogram to g2.

#include <cstddef>
#include <cstdint>

#include "zolt_timing.h"

namespace zolt::timing {

// Two input rates (counts per second) and the measurement time (seconds), in
// any order: only their product matters.
struct G2Factors {
  double f1 = 0.0;
  double f2 = 0.0;
  double f3 = 0.0;
};

// out[i] = counts[i] / (f1 * f2 * f3 * bin_width_ps * 1e-12): the histogram
// divided by the counts two uncorrelated sources would give per bin. -1 with
// out untouched when a factor is not a positive finite number, bin_width_ps
// < 1 or the norm is not positive and finite.
tt_status normalize_g2(const std::uint64_t* counts, std::size_t n, std::int64_t bin_width_ps,
                       const G2Factors& factors, double* out);

}  // namespace zolt::timing
