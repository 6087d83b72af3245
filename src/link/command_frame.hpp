#pragma once

// The instrument's 9-byte command frame: the command id, then an 8-byte
// payload. A shorter payload is right-aligned (zeros in front), a longer one
// is cut to its first 8 bytes; numbers are big-endian. Replies carry the
// command id with bit 7 set.

#include <array>
#include <cstddef>
#include <cstdint>

namespace zolt::timing::detail {

inline constexpr std::size_t kFrameSize = 9;
inline constexpr std::size_t kFramePayloadSize = 8;

using CommandFrame = std::array<std::uint8_t, kFrameSize>;

CommandFrame build_command_frame(std::uint8_t id, const std::uint8_t* payload, std::size_t length) noexcept;

constexpr std::uint8_t response_id(std::uint8_t command_id) noexcept {
  return static_cast<std::uint8_t>(command_id | 0x80U);
}

// The big-endian number in `count` bytes starting at payload[first].
std::uint64_t payload_be(const std::uint8_t* payload, std::size_t first, std::size_t count) noexcept;

// `value` as `count` big-endian bytes into out[0 .. count-1].
void put_be(std::uint8_t* out, std::size_t count, std::uint64_t value) noexcept;

}  // namespace zolt::timing::detail
