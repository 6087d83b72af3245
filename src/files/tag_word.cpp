#include "files/tag_word.hpp"

#include <algorithm>
#include <limits>

namespace zolt::timing {
namespace {

template <class Tag>
Tag make_tag(std::uint64_t channel, std::uint64_t time) noexcept {
  return Tag{static_cast<decltype(Tag{}.channel)>(channel), static_cast<std::int64_t>(time)};
}

// The stored time: 44 bits can hold up to 2P-1, so it is reduced modulo P.
inline std::uint64_t stored_time(std::uint64_t word) noexcept {
  const std::uint64_t raw = word & kTagWordTimeMask;
  return raw - (raw >= kWrapPeriodPs ? kWrapPeriodPs : 0);
}

}  // namespace

template <class Tag>
std::size_t TagWordDecoder::decode(const std::uint8_t* data, std::size_t size, Tag* out, std::size_t room,
                                   std::size_t& produced) {
  std::size_t consumed = 0;
  produced = 0;
  while (produced < room && size - consumed >= kTagWordBytes) {
    const std::size_t words = std::min({(size - consumed) / kTagWordBytes, room - produced, kRunWords});
    if (decode_run_without_events(data + consumed, words, out + produced)) {
      consumed += words * kTagWordBytes;
      produced += words;
      continue;
    }
    std::size_t made = 0;
    consumed += decode_word_by_word(data + consumed, size - consumed, out + produced, words, made);
    produced += made;
  }
  return consumed;
}

// The common case, without a branch per tag: a run of well-formed words in
// which no input's time wraps. If every stored time of the run, and the
// previous time of each input that appears in it, lie within half a period
// of each other, no time can fall by more than half a period, so the offsets
// stay as they are. Otherwise (a stray byte, a wrap) the run is decoded again
// word by word; what this attempt wrote to out is overwritten then.
template <class Tag>
bool TagWordDecoder::decode_run_without_events(const std::uint8_t* data, std::size_t words, Tag* out) noexcept {
  const std::array<std::uint64_t, 4> offset = offset_;
  std::array<std::uint64_t, 4> last = previous_;
  std::uint64_t any_bits = 0;
  std::uint64_t lowest = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t highest = 0;
  unsigned inputs_seen = 0;
  for (std::size_t i = 0; i < words; ++i) {
    const std::uint64_t word = detail::load_be64(data + i * kTagWordBytes);
    any_bits |= word;
    const std::uint64_t channel = (word >> kTagWordChannelShift) & 3;
    const std::uint64_t time = stored_time(word);
    lowest = std::min(lowest, time);
    highest = std::max(highest, time);
    inputs_seen |= 1U << channel;
    last[channel] = time;
    out[i] = make_tag<Tag>(channel, time + offset[channel]);
  }
  if (any_bits & kTagWordReservedMask) return false;
  for (std::size_t channel = 0; channel < 4; ++channel) {
    // A previous time of 0 (no tag yet) is one no time falls below.
    if (!((inputs_seen >> channel) & 1U) || previous_[channel] == 0) continue;
    lowest = std::min(lowest, previous_[channel]);
    highest = std::max(highest, previous_[channel]);
  }
  if (highest - lowest > kHalfWrapPeriodPs) return false;
  previous_ = last;
  return true;
}

template <class Tag>
std::size_t TagWordDecoder::decode_word_by_word(const std::uint8_t* data, std::size_t size, Tag* out,
                                                std::size_t room, std::size_t& produced) noexcept {
  const std::uint8_t* const begin = data;
  const std::uint8_t* const end = data + size;
  Tag* next = out;
  Tag* const full = out + room;
  while (next != full && end - data >= static_cast<std::ptrdiff_t>(kTagWordBytes)) {
    const std::uint64_t word = detail::load_be64(data);
    if (word & kTagWordReservedMask) {
      ++data;  // not a tag: resynchronise byte by byte
      continue;
    }
    data += kTagWordBytes;
    const std::uint64_t channel = word >> kTagWordChannelShift;
    const std::uint64_t time = stored_time(word);
    // A fall by more than half a period is a wrap of the counter. Before an
    // input's first tag its previous time is 0, which no time falls below.
    offset_[channel] += time + kHalfWrapPeriodPs < previous_[channel] ? kWrapPeriodPs : 0;
    previous_[channel] = time;
    *next++ = make_tag<Tag>(channel, time + offset_[channel]);
  }
  produced = static_cast<std::size_t>(next - out);
  return static_cast<std::size_t>(data - begin);
}

template std::size_t TagWordDecoder::decode(const std::uint8_t*, std::size_t, TimeTag*, std::size_t, std::size_t&);
template std::size_t TagWordDecoder::decode(const std::uint8_t*, std::size_t, tt_tag*, std::size_t, std::size_t&);

}  // namespace zolt::timing
