#include "files/tag_word.hpp"

namespace zolt::timing {

std::size_t TagWordDecoder::decode(const std::uint8_t* data, std::size_t size, std::vector<TimeTag>& out,
                                   std::size_t until) {
  std::size_t position = 0;
  while (out.size() < until && size - position >= kTagWordBytes) {
    const std::uint64_t word = detail::load_be64(data + position);
    if (word & kTagWordReservedMask) {
      ++position;  // not a tag: resynchronise byte by byte
      continue;
    }
    position += kTagWordBytes;
    const auto channel = static_cast<std::uint8_t>(word >> kTagWordChannelShift);
    // 44 bits can hold up to 2P-1, so the stored time is reduced modulo P.
    std::uint64_t raw = word & kTagWordTimeMask;
    if (raw >= kWrapPeriodPs) raw -= kWrapPeriodPs;
    ChannelUnwrap& unwrap = channels_[channel];
    if (unwrap.has_previous && raw + kHalfWrapPeriodPs < unwrap.previous) unwrap.offset += kWrapPeriodPs;
    unwrap.previous = raw;
    unwrap.has_previous = true;
    out.push_back(TimeTag{channel, static_cast<std::int64_t>(raw + unwrap.offset)});
  }
  return position;
}

}  // namespace zolt::timing
