#include "files/tag_word.hpp"

namespace zolt::timing {

std::size_t TagWordDecoder::decode(const std::uint8_t* data, std::size_t size, TimeTag* out, std::size_t room,
                                   std::size_t& produced) {
  // The unwrap state lives in locals during the loop: stores into out could
  // otherwise alias it and force a reload for every tag.
  std::array<std::uint64_t, 4> previous{};
  std::array<std::uint64_t, 4> offset{};
  for (std::size_t channel = 0; channel < 4; ++channel) {
    previous[channel] = channels_[channel].previous;
    offset[channel] = channels_[channel].offset;
  }
  const std::uint8_t* const begin = data;
  const std::uint8_t* const end = data + size;
  TimeTag* next = out;
  TimeTag* const full = out + room;
  while (next != full && end - data >= static_cast<std::ptrdiff_t>(kTagWordBytes)) {
    const std::uint64_t word = detail::load_be64(data);
    if (word & kTagWordReservedMask) [[unlikely]] {
      ++data;  // not a tag: resynchronise byte by byte
      continue;
    }
    data += kTagWordBytes;
    const auto channel = static_cast<std::uint8_t>(word >> kTagWordChannelShift);
    // 44 bits can hold up to 2P-1, so the stored time is reduced modulo P.
    std::uint64_t raw = word & kTagWordTimeMask;
    raw -= raw >= kWrapPeriodPs ? kWrapPeriodPs : 0;
    // A fall by more than half a period is a wrap of the counter. Before an
    // input's first tag its previous time is 0, which no time falls below.
    offset[channel] += raw + kHalfWrapPeriodPs < previous[channel] ? kWrapPeriodPs : 0;
    previous[channel] = raw;
    next->channel = channel;
    next->time = static_cast<std::int64_t>(raw + offset[channel]);
    ++next;
  }
  for (std::size_t channel = 0; channel < 4; ++channel) channels_[channel] = {previous[channel], offset[channel]};
  produced = static_cast<std::size_t>(next - out);
  return static_cast<std::size_t>(data - begin);
}

}  // namespace zolt::timing
