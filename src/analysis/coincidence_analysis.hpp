#pragma once

// Counting coincidences among the four inputs in a finite array of tags.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "analysis/coincidence_config.hpp"
#include "analysis/large_buffer.hpp"
#include "stream/time_tag.hpp"
#include "zolt_timing.h"

namespace zolt::timing {

// Singles per input and the number of coincident pairs, triples and
// quadruples of every input combination. A tuple (one tag per input) is
// coincident when the intervals [adjusted time - |window|, adjusted time +
// |window|] of its tags share a point; tags are never consumed. Tags of inputs
// above 3 or outside the mask are skipped. Throws std::invalid_argument when
// tags is null and count is not 0.
CoincidenceAnalysis analyze_coincidences(const TimeTag* tags, std::size_t count,
                                         const CoincidenceWindowConfig& config);

// The same on public tag records, read in place rather than copied: each
// record counts exactly as its TimeTag would (channels that do not fit the
// 8-bit input number are out of range, they do not wrap onto input 0).
CoincidenceAnalysis analyze_coincidences(const tt_tag* tags, std::size_t count,
                                         const CoincidenceWindowConfig& config);

namespace detail {

// The adjusted times of each input, each list ascending.
using PerInputTimes = std::array<LargeVector<std::int64_t>, kInputCount>;

// Number of coincident tuples among the first group_size entries of inputs.
// 0 when an input of the group is outside 0..3, outside the configuration's
// effective mask or has no times, or when group_size is not 1..4.
std::int64_t count_coincidence_group(const PerInputTimes& times, const CoincidenceWindowConfig& config,
                                     const std::array<std::int32_t, kInputCount>& inputs,
                                     std::int32_t group_size);

}  // namespace detail
}  // namespace zolt::timing
