#pragma once

// Reading W-bit records out of the packed-delta bit stream (most significant
// bit first within each byte, records packed across byte boundaries).

#include <cstddef>
#include <cstdint>

#include "stream/wire_words.hpp"

namespace zolt::timing::detail {

// The W-bit record (W <= 34) starting at bit `bit` of data, whose eight bytes
// from bit / 8 on must all be readable.
inline std::uint64_t packed_record_in(const std::uint8_t* data, std::uint64_t bit, unsigned width) noexcept {
  return (read_be64(data + (bit >> 3)) << (bit & 7)) >> (64 - width);
}

// The W-bit record (W <= 34) starting at bit `bit` of data[0..size); bits
// past the end read as 0, so callers only ask for records that fit.
inline std::uint64_t packed_record_at(const std::uint8_t* data, std::size_t size, std::uint64_t bit,
                                      unsigned width) noexcept {
  const std::size_t byte = static_cast<std::size_t>(bit >> 3);
  if (byte + 8 <= size) [[likely]] return packed_record_in(data, bit, width);
  std::uint64_t word = 0;
  for (std::size_t i = byte; i < size; ++i) word |= static_cast<std::uint64_t>(data[i]) << (56 - 8 * (i - byte));
  return (word << (bit & 7)) >> (64 - width);
}

// The fields of one record.
struct PackedFields {
  unsigned channel;
  bool overflow;
  std::uint64_t delta;
};

inline PackedFields split_packed_record(std::uint64_t record, unsigned delta_bits) noexcept {
  return PackedFields{static_cast<unsigned>(record >> (delta_bits + 1)) & 3U,
                      ((record >> delta_bits) & 1U) != 0, record & ((1ULL << delta_bits) - 1)};
}

// Number of delta-wide chunks that carry a sync marker's 41-bit time.
constexpr unsigned packed_sync_chunks(unsigned delta_bits) noexcept { return (delta_bits + 40) / delta_bits; }

}  // namespace zolt::timing::detail
