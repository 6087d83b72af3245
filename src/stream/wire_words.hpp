#pragma once

// Byte-order helpers and word layouts of the instrument's stream records.
// Every record is big-endian on the wire: first byte most significant.

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zolt::timing::detail {

inline std::uint64_t read_be64(const std::uint8_t* bytes) noexcept {
  std::uint64_t word;
  std::memcpy(&word, bytes, sizeof word);
  return __builtin_bswap64(word);
}

inline std::uint32_t read_be32(const std::uint8_t* bytes) noexcept {
  std::uint32_t word;
  std::memcpy(&word, bytes, sizeof word);
  return __builtin_bswap32(word);
}

// raw64 tag-stream word: bit 63 clear, bits 60..44 clear, channel in 62..61,
// picoseconds (modulo the counter wrap) in 43..0.
inline constexpr std::uint64_t kRaw64TagCheckMask = 0x9FFFF00000000000ULL;
inline constexpr std::uint64_t kRaw64TimeMask = 0xFFFFFFFFFFFULL;
// raw64 calibration-format word: marker 0xA5C3 in bits 60..45, coarse count
// in 44..13, fine code in 12..0.
inline constexpr std::uint64_t kRaw64CalibrationCheckMask = 0x9FFFE00000000000ULL;
inline constexpr std::uint64_t kRaw64CalibrationMarker = 0x14B8600000000000ULL;
inline constexpr unsigned kRaw64FineBits = 13;

constexpr bool is_raw64_tag_word(std::uint64_t word) noexcept { return (word & kRaw64TagCheckMask) == 0; }
constexpr bool is_raw64_calibration_word(std::uint64_t word) noexcept {
  return (word & kRaw64CalibrationCheckMask) == kRaw64CalibrationMarker;
}
constexpr unsigned raw64_channel(std::uint64_t word) noexcept { return (word >> 61) & 3U; }
constexpr std::uint32_t raw64_coarse(std::uint64_t word) noexcept {
  return static_cast<std::uint32_t>((word & 0x1FFFFFFFFFFFFFFFULL) >> kRaw64FineBits);
}
constexpr std::uint16_t raw64_fine(std::uint64_t word) noexcept {
  return static_cast<std::uint16_t>(word & 0x1FFF);
}

}  // namespace zolt::timing::detail
