#pragma once

// Count-rate trace of a list of times in fixed windows.

#include <cstddef>
#include <cstdint>

#include "zolt_timing.h"

namespace zolt::timing {

// Splits the sorted times into windows [t0 + k*W, t0 + (k+1)*W) from the
// earliest time t0 and describes every closed window, empty ones included;
// the window holding the latest time is still open and is not described.
// point_count receives the number of points. With out null or capacity 0 it
// is a size query; otherwise the points are written when capacity suffices
// and -1 is returned (nothing written) when it does not. -1 with point_count
// untouched when window_ps < 1. times must hold n values.
tt_status frequency_trace(const std::int64_t* times, std::size_t n, std::int64_t window_ps,
                          zolt_analysis_frequency_point* out, std::size_t capacity, std::size_t& point_count);

}  // namespace zolt::timing
