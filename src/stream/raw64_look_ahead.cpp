#include "stream/raw64_look_ahead.hpp"

#include <cstring>

#include "stream/wire_words.hpp"

namespace zolt::timing {

namespace {
constexpr std::size_t kWordBytes = 8;
constexpr std::size_t kAlignmentBytes = 16;  // two words must agree
constexpr std::size_t kKeptUnaligned = 16;
}  // namespace

void Raw64LookAhead::reset(bool calibration_words) noexcept {
  size_ = 0;
  aligned_ = false;
  calibration_words_ = calibration_words;
}

// Tag words only promise a clear top bit; calibration words carry a marker.
bool Raw64LookAhead::looks_like_record(std::size_t offset) const noexcept {
  if (!calibration_words_) return offset < size_ && (buffer_[offset] & 0x80) == 0;
  return offset + kWordBytes <= size_ && detail::is_raw64_calibration_word(detail::read_be64(buffer_.data() + offset));
}

bool Raw64LookAhead::find_alignment() noexcept {
  for (std::size_t k = 0; k < kWordBytes; ++k) {
    if (looks_like_record(k) && looks_like_record(k + kWordBytes)) {
      drop_front(k);
      aligned_ = true;
      return true;
    }
  }
  if (size_ >= kCapacity) drop_front(size_ - kKeptUnaligned);
  return false;
}

bool Raw64LookAhead::take(tt_raw64_tag& tag) noexcept {
  for (;;) {
    if (aligned_) {
      if (size_ < kWordBytes) return false;
      if (looks_like_record(0)) {
        const std::uint64_t word = detail::read_be64(buffer_.data());
        drop_front(kWordBytes);
        tag.channel = static_cast<std::uint8_t>(detail::raw64_channel(word));
        tag.coarse = calibration_words_ ? detail::raw64_coarse(word) : 0;
        tag.fine = calibration_words_ ? detail::raw64_fine(word) : 0;
        tag.raw = word;
        return true;
      }
      aligned_ = false;
    }
    if (size_ < kAlignmentBytes || !find_alignment()) return false;
  }
}

void Raw64LookAhead::drop_front(std::size_t count) noexcept {
  std::memmove(buffer_.data(), buffer_.data() + count, size_ - count);
  size_ -= count;
}

}  // namespace zolt::timing
