#pragma once

// The instrument's side of the 9-byte frame format. Written independently of
// the host library on purpose: the virtual instrument must not share code with
// the driver it is used to test, or a misunderstanding in one would be copied
// into the other and never show up.
//
// A frame is one id byte followed by an 8-byte payload. Numbers in a payload
// are big-endian and right-aligned (a 32-bit value occupies bytes 5..8 of the
// frame, i.e. payload indexes 4..7). A reply carries the command id with bit 7
// set; frames the instrument sends by itself carry ids of their own (0xD8).

#include <array>
#include <cstddef>
#include <cstdint>

namespace zolt_sim {

inline constexpr std::size_t kFrameSize = 9;
inline constexpr std::size_t kPayloadSize = 8;

using Frame = std::array<std::uint8_t, kFrameSize>;
using Payload = std::array<std::uint8_t, kPayloadSize>;

// A command as the frame engine hands it to a handler.
struct Command {
  std::uint8_t id = 0;
  Payload payload{};
};

constexpr std::uint8_t reply_id(std::uint8_t command_id) noexcept {
  return static_cast<std::uint8_t>(command_id | 0x80U);
}

// Reads `count` payload bytes starting at payload index `first` as one
// big-endian number. The caller keeps first + count <= 8.
constexpr std::uint64_t read_be(const Payload& payload, std::size_t first, std::size_t count) noexcept {
  std::uint64_t value = 0;
  for (std::size_t i = first; i < first + count && i < kPayloadSize; ++i) value = (value << 8U) | payload[i];
  return value;
}

// Writes the low `count` bytes of `value` big-endian into the payload,
// starting at payload index `first`.
constexpr void write_be(Payload& payload, std::size_t first, std::size_t count, std::uint64_t value) noexcept {
  for (std::size_t i = 0; i < count && first + i < kPayloadSize; ++i) {
    const std::size_t shift = 8U * (count - 1U - i);
    payload[first + i] = static_cast<std::uint8_t>((value >> shift) & 0xFFU);
  }
}

constexpr Frame make_frame(std::uint8_t id, const Payload& payload) noexcept {
  Frame frame{};
  frame[0] = id;
  for (std::size_t i = 0; i < kPayloadSize; ++i) frame[i + 1] = payload[i];
  return frame;
}

}  // namespace zolt_sim
