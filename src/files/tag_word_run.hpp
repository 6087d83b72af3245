#pragma once

// The inner loop of tag file reading: a run of payload words turned into
// tags with fixed per-input offsets, and what it takes to tell afterwards
// whether the offsets really were fixed over the run. A portable version and,
// on x86-64 processors with AVX2, one that handles four words per step.

#include <array>
#include <cstddef>
#include <cstdint>

#include "stream/time_tag.hpp"
#include "zolt_timing.h"

namespace zolt::timing::detail {

// A TimeTag or tt_tag.
template <class Tag>
Tag make_tag(std::uint64_t channel, std::uint64_t time) noexcept {
  return Tag{static_cast<decltype(Tag{}.channel)>(channel), static_cast<std::int64_t>(time)};
}

struct TagRunSummary {
  std::uint64_t any_bits = 0;  // all words OR-ed: tells whether any was not a tag
  std::uint64_t lowest = UINT64_MAX;  // stored times (modulo P) seen in the run
  std::uint64_t highest = 0;
  unsigned inputs_seen = 0;  // bit n: input n occurs
};

// Writes out[i] = {input, stored time + offset[input]} for each of the
// words and summarises them. Words with reserved bits set still produce
// (meaningless) tags; the summary's any_bits tells the caller to discard
// the run. The best version for this processor.
template <class Tag>
TagRunSummary decode_tag_run(const std::uint8_t* data, std::size_t words, Tag* out,
                             const std::array<std::uint64_t, 4>& offset) noexcept;

// The two versions by name, so that they can be compared with each other.
template <class Tag>
TagRunSummary decode_tag_run_portable(const std::uint8_t* data, std::size_t words, Tag* out,
                                      const std::array<std::uint64_t, 4>& offset) noexcept;
// False when this processor (or build) has no vector version; out is then
// left alone.
template <class Tag>
bool decode_tag_run_vector(const std::uint8_t* data, std::size_t words, Tag* out,
                           const std::array<std::uint64_t, 4>& offset, TagRunSummary& summary) noexcept;

}  // namespace zolt::timing::detail
