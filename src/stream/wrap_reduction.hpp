#pragma once

// Time arithmetic shared by the delta32 and packed-delta decoders.
//
// The instrument's coarse counter wraps at kCounterWrapPs, but it computes
// deltas modulo a power of two. A delta taken across the counter wrap
// therefore arrives too large by the distance between the wrap and the next
// multiple of that power of two (the "correction"). The rule below undoes
// that without mistaking a genuinely long gap for a wrapped one; it must stay
// exactly as it is, bit for bit, or recorded streams decode differently.

#include <algorithm>
#include <cstdint>

#include "stream/stream_types.hpp"

namespace zolt::timing::detail {

// Correction of the delta32 format: 7 * 2^41 - wrap.
inline constexpr std::uint64_t kDelta32WrapCorrection = 0xFB00000000ULL;
// A reduced delta up to this many picoseconds (10 s) is always believed.
inline constexpr std::uint64_t kReductionSlackPs = 10'000'000'000ULL;

// Smallest multiple of `modulus` that is at least the counter wrap, minus the
// wrap: the correction of a format whose deltas are taken modulo `modulus`.
constexpr std::uint64_t wrap_correction_for(std::uint64_t modulus) noexcept {
  const auto wrap = static_cast<std::uint64_t>(kCounterWrapPs);
  return (wrap + modulus - 1) / modulus * modulus - wrap;
}

// The delta to use for raw delta x, given the correction c (0: none) and the
// channel's previous time.
constexpr std::uint64_t reduce_wrapped_delta(std::uint64_t x, std::uint64_t c,
                                             std::int64_t prev) noexcept {
  if (c == 0 || x <= c) return x;
  const std::uint64_t reduced = x - c;
  if (reduced <= kReductionSlackPs) return reduced;
  const auto wrap = static_cast<std::uint64_t>(kCounterWrapPs);
  const std::uint64_t phase = static_cast<std::uint64_t>(std::max<std::int64_t>(prev, 0)) % wrap;
  return phase + reduced > wrap - 1 ? reduced : x;
}

}  // namespace zolt::timing::detail
