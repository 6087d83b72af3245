#include "link/command_frame.hpp"

#include <algorithm>

namespace zolt::timing::detail {

CommandFrame build_command_frame(std::uint8_t id, const std::uint8_t* payload, std::size_t length) noexcept {
  CommandFrame frame{};
  frame[0] = id;
  if (payload == nullptr) return frame;
  const std::size_t used = std::min(length, kFramePayloadSize);
  std::copy(payload, payload + used, frame.begin() + static_cast<std::ptrdiff_t>(kFrameSize - used));
  return frame;
}

std::uint64_t payload_be(const std::uint8_t* payload, std::size_t first, std::size_t count) noexcept {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < count; ++i) value = (value << 8U) | payload[first + i];
  return value;
}

void put_be(std::uint8_t* out, std::size_t count, std::uint64_t value) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    out[count - 1 - i] = static_cast<std::uint8_t>(value & 0xFFU);
    value >>= 8U;
  }
}

}  // namespace zolt::timing::detail
