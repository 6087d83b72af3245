#include "stream/raw64_decoder.hpp"

#include "api/error.hpp"
#include <utility>

#include "stream/stream_types.hpp"
#include "stream/wire_words.hpp"

namespace zolt::timing {

namespace {
constexpr std::uint64_t kWrap = static_cast<std::uint64_t>(kCounterWrapPs);
constexpr std::uint64_t kHalfWrap = 0x68280000000ULL;
// A coarse count this much below the previous one means the 32-bit counter
// wrapped.
constexpr std::uint64_t kCoarseWrapStep = 0x80000001ULL;
constexpr std::uint64_t kCoarseWrap = 1ULL << 32;
}  // namespace

Raw64Decoder::Raw64Decoder(bool calibration_words) : calibration_words_(calibration_words) {
  if (calibration_words_) luts_.assign(4, FineLut::identity(kCoarsePeriodPs));
}

void Raw64Decoder::set_fine_lut(unsigned channel, FineLut lut) {
  if (channel > 3) throw Error(TT_ERR_INVALID_ARGUMENT, "StreamDecoder: fine LUT input must be 0..3");
  if (luts_.empty()) luts_.assign(4, FineLut::identity(kCoarsePeriodPs));
  luts_[channel] = std::move(lut);
}

std::size_t Raw64Decoder::decode(const std::uint8_t* data, std::size_t size, std::vector<TimeTag>& out) {
  detail::reserve_tags(out, size / 8);
  return calibration_words_ ? decode_calibration_words(data, size, out) : decode_tag_words(data, size, out);
}

// Words that fail the layout test are skipped one byte at a time, which finds
// the word boundary again after a lost or inserted byte.
std::size_t Raw64Decoder::decode_tag_words(const std::uint8_t* data, std::size_t size,
                                           std::vector<TimeTag>& out) {
  std::size_t pos = 0;
  while (pos + 8 <= size) {
    const std::uint64_t word = detail::read_be64(data + pos);
    if (!detail::is_raw64_tag_word(word)) [[unlikely]] {
      ++pos;
      continue;
    }
    pos += 8;
    const unsigned channel = detail::raw64_channel(word);
    std::uint64_t t = word & detail::kRaw64TimeMask;  // below 2^44, less than twice the wrap
    if (t >= kWrap) t -= kWrap;
    Channel& state = channels_[channel];
    if (state.has_previous && state.previous > t && state.previous - t > kHalfWrap) state.epoch += kWrap;
    state.has_previous = true;
    state.previous = t;
    out.push_back(TimeTag{static_cast<std::uint8_t>(channel), static_cast<std::int64_t>(t + state.epoch)});
  }
  return pos;
}

std::size_t Raw64Decoder::decode_calibration_words(const std::uint8_t* data, std::size_t size,
                                                   std::vector<TimeTag>& out) {
  std::size_t pos = 0;
  while (pos + 8 <= size) {
    const std::uint64_t word = detail::read_be64(data + pos);
    if (!detail::is_raw64_calibration_word(word)) [[unlikely]] {
      ++pos;
      continue;
    }
    pos += 8;
    const unsigned channel = detail::raw64_channel(word);
    const std::uint64_t coarse = detail::raw64_coarse(word);
    const std::size_t fine = detail::raw64_fine(word);
    Channel& state = channels_[channel];
    if (state.has_previous && state.previous >= coarse + kCoarseWrapStep) state.epoch += kCoarseWrap;
    state.has_previous = true;
    state.previous = coarse;
    const FineLut& lut = luts_[channel];
    std::uint64_t time = (coarse + state.epoch) * static_cast<std::uint64_t>(kCoarsePeriodPs);
    if (fine < lut.size()) time -= static_cast<std::uint64_t>(lut[fine]);
    out.push_back(TimeTag{static_cast<std::uint8_t>(channel), static_cast<std::int64_t>(time)});
  }
  return pos;
}

}  // namespace zolt::timing
