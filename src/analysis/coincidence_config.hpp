#pragma once

// The configuration and result of host-side coincidence counting. Both are
// laid out like their public twins so the exported function can copy them
// field for field.

#include <array>
#include <cstdint>

namespace zolt::timing {

inline constexpr int kInputCount = 4;
inline constexpr std::uint8_t kAllInputsMask = 0x0F;

// Per-input offsets and half-windows and the inputs that take part.
struct CoincidenceWindowConfig {
  std::array<std::int64_t, kInputCount> offset_ps{};  // added to every time of input i
  std::array<std::int64_t, kInputCount> window_ps{};  // half-width; only |value| is used
  std::uint8_t group_mask = 0;                        // bits 0..3; 0 means all inputs
};

// Singles and coincidence counts of one tag array.
struct CoincidenceAnalysis {
  std::array<std::uint64_t, kInputCount> singles{};
  std::uint64_t total = 0;
  std::array<std::uint64_t, 6> pairs{};    // 01, 02, 03, 12, 13, 23
  std::array<std::uint64_t, 4> triples{};  // 012, 013, 023, 123
  std::uint64_t quadruples = 0;
  std::uint8_t effective_mask = kAllInputsMask;
  std::array<std::int64_t, kInputCount> offset_ps{};
  std::array<std::int64_t, kInputCount> window_ps{};  // sign kept as configured
};

// The inputs a mask lets take part: bits 0..3, and all four when the mask is
// 0. A mask with only bits above 3 set is not 0 and lets no input take part.
constexpr std::uint8_t effective_input_mask(std::uint8_t mask) noexcept {
  return mask == 0 ? kAllInputsMask : static_cast<std::uint8_t>(mask & kAllInputsMask);
}

}  // namespace zolt::timing
