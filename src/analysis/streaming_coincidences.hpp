#pragma once

// Coincidence counting in one pass over time-ordered tags, the way a live
// counter sees them: each tag looks back over the window for partners.

#include <cstddef>
#include <cstdint>

#include "zolt_timing.h"

namespace zolt::timing {

struct StreamingCoincidenceSetup {
  std::int64_t window_ps = 0;
  const std::int64_t* offsets_ps = nullptr;  // 4 values, or null for none
  std::uint8_t mask = 0;                     // 0 means all four inputs
};

// Zeroes *out, then (when the window is >= 0) counts the tags into it;
// returns -1 for a negative window, leaving *out zeroed. tags must hold count
// records.
tt_status count_streaming_coincidences(const tt_tag* tags, std::size_t count, const StreamingCoincidenceSetup& setup,
                                       zolt_analysis_coincidence_counts& out);

}  // namespace zolt::timing
