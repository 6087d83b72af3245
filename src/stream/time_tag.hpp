#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "zolt_timing.h"

namespace zolt::timing {

// One decoded event: the input it arrived on and its absolute time.
struct TimeTag {
  std::uint8_t channel = 0;  // input 0..3
  std::int64_t time = 0;     // picoseconds on the stream's time base
};

inline tt_tag to_public(const TimeTag& tag) noexcept { return tt_tag{tag.channel, tag.time}; }

namespace detail {
// Makes room for `extra` more tags, growing geometrically: decoders call this
// once per chunk, and an exact-size reserve would copy the whole vector each
// time.
inline void reserve_tags(std::vector<TimeTag>& out, std::size_t extra) {
  const std::size_t needed = out.size() + extra;
  if (needed > out.capacity()) out.reserve(std::max(needed, 2 * out.capacity()));
}
}  // namespace detail

}  // namespace zolt::timing
