#pragma once

#include <cstdint>

#include "zolt_timing.h"

namespace zolt::timing {

// One decoded event: the input it arrived on and its absolute time.
struct TimeTag {
  std::uint8_t channel = 0;  // input 0..3
  std::int64_t time = 0;     // picoseconds on the stream's time base
};

inline tt_tag to_public(const TimeTag& tag) noexcept { return tt_tag{tag.channel, tag.time}; }

}  // namespace zolt::timing
