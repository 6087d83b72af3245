#pragma once

#include <cstddef>
#include <cstdint>

#include "stream/packed_debug_log.hpp"

namespace zolt::timing {

struct PackedProbeSettings {
  unsigned delta_bits;    // d, 1..31
  std::uint8_t active_mask;
  bool internal_mode;
};

struct PackedAlignment {
  bool found = false;
  std::uint8_t synced_mask = 0;  // inputs with tags after a complete sync
  std::size_t drop_bytes = 0;
  unsigned bit_offset = 0;
};

// Finds the bit position in data[0..size) from which packed records decode
// consistently: each candidate is scored by the tags that follow complete,
// uninterrupted sync markers of their inputs, over at most 64 KiB.
PackedAlignment probe_packed_alignment(const std::uint8_t* data, std::size_t size,
                                       const PackedProbeSettings& settings, PackedDebugLog& log);

}  // namespace zolt::timing
