#include "files/tag_word.hpp"

#include <algorithm>

#include "files/tag_word_run.hpp"

namespace zolt::timing {
namespace {

inline std::int64_t time_of(const TimeTag& tag) noexcept { return tag.time; }
inline std::int64_t time_of(const tt_tag& tag) noexcept { return tag.time_ps; }

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
  detail::TagRunSummary run = detail::decode_tag_run(data, words, out, offset_);
  if (run.any_bits & kTagWordReservedMask) return false;
  for (std::size_t channel = 0; channel < 4; ++channel) {
    // A previous time of 0 (no tag yet) is one no time falls below.
    if (!((run.inputs_seen >> channel) & 1U) || previous_[channel] == 0) continue;
    run.lowest = std::min(run.lowest, previous_[channel]);
    run.highest = std::max(run.highest, previous_[channel]);
  }
  if (run.highest - run.lowest > kHalfWrapPeriodPs) return false;
  // Each input's new previous time is the stored time of its last tag in
  // the run, found from the end.
  for (std::size_t i = words; run.inputs_seen != 0; --i) {
    const auto channel = static_cast<std::size_t>(out[i - 1].channel);
    if (!((run.inputs_seen >> channel) & 1U)) continue;
    run.inputs_seen &= ~(1U << channel);
    previous_[channel] = static_cast<std::uint64_t>(time_of(out[i - 1])) - offset_[channel];
  }
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
    const std::uint64_t time = detail::stored_tag_time(word);
    // A fall by more than half a period is a wrap of the counter. Before an
    // input's first tag its previous time is 0, which no time falls below.
    offset_[channel] += time + kHalfWrapPeriodPs < previous_[channel] ? kWrapPeriodPs : 0;
    previous_[channel] = time;
    *next++ = detail::make_tag<Tag>(channel, time + offset_[channel]);
  }
  produced = static_cast<std::size_t>(next - out);
  return static_cast<std::size_t>(data - begin);
}

template std::size_t TagWordDecoder::decode(const std::uint8_t*, std::size_t, TimeTag*, std::size_t, std::size_t&);
template std::size_t TagWordDecoder::decode(const std::uint8_t*, std::size_t, tt_tag*, std::size_t, std::size_t&);

}  // namespace zolt::timing
