#include "stream/delta32_decoder.hpp"

#include <algorithm>
#include <cstring>

#include "stream/wire_words.hpp"
#include "stream/wrap_reduction.hpp"

namespace zolt::timing {

namespace {

constexpr std::uint32_t kSyncWord = 0xEB5A55AAU;
constexpr std::uint8_t kSyncBytes[4] = {0xEB, 0x5A, 0x55, 0xAA};
constexpr std::uint32_t kSyncPayload = 0x15A55AAU;
constexpr std::uint32_t kPayloadMask = 0x1FFFFFFU;
constexpr unsigned kPayloadBits = 25;
constexpr std::uint32_t kHighPayloadLimit = 0x10000U;  // overflow counts and base high
constexpr std::uint64_t kMask41 = (1ULL << 41) - 1;

// Bits 31..25 of a tag word: F = 0, T = 10 (channel bits masked out).
constexpr std::uint32_t kKindMask = 0x9E000000U;
constexpr std::uint32_t kTagKind = 0x14000000U;
// F = 1, T = 5: overflow, base and sync words.
constexpr std::uint32_t kControlKind = 0x8A000000U;

enum ControlWord : unsigned { kOverflow = 0, kBaseLow = 1, kBaseHigh = 2, kSync = 3 };

const std::uint8_t* find_sync(const std::uint8_t* begin, const std::uint8_t* end) {
  while (end - begin >= 4) {
    const auto* first = static_cast<const std::uint8_t*>(std::memchr(begin, kSyncBytes[0], end - begin - 3));
    if (!first) return nullptr;
    if (std::memcmp(first, kSyncBytes, 4) == 0) return first;
    begin = first + 1;
  }
  return nullptr;
}

}  // namespace

std::size_t Delta32Decoder::decode(const std::uint8_t* data, std::size_t size, std::vector<TimeTag>& out) {
  detail::reserve_tags(out, size / 4);
  std::size_t pos = 0;
  for (;;) {
    if (!locked_) {
      const std::uint8_t* sync = find_sync(data + pos, data + size);
      if (!sync) {
        // A sync word may be cut after its first bytes: keep up to 3.
        return size - std::min<std::size_t>(3, size - pos);
      }
      pos = static_cast<std::size_t>(sync - data) + 4;
      locked_ = true;
      restart_after_sync();
    }
    bool lost = false;
    while (pos + 4 <= size) {
      const std::uint32_t word = detail::read_be32(data + pos);
      pos += 4;
      if (!take_word(word, out)) [[unlikely]] {
        lose_lock();
        lost = true;
        break;
      }
    }
    if (!lost) return pos;
  }
}

bool Delta32Decoder::take_word(std::uint32_t word, std::vector<TimeTag>& out) {
  const std::uint32_t payload = word & kPayloadMask;
  const unsigned sub = (word >> 29) & 3U;
  const bool control = (word & kKindMask) == kControlKind;
  if (phase_ == Phase::running) [[likely]] {
    if ((word & kKindMask) == kTagKind) [[likely]] return take_tag(sub, payload, out);
    if (!control) return false;
    if (sub == kSync) {
      // A control word of the sync kind with another payload means nothing.
      if (payload == kSyncPayload) restart_after_sync();
      return true;
    }
    if (sub == kOverflow && payload < kHighPayloadLimit && !base_valid_) {
      overflow_ += payload;
      return true;
    }
    return false;
  }
  if (word == kSyncWord) {
    if (phase_ == Phase::after_sync) {
      overflow_ = 0;
    } else {
      restart_after_sync();
    }
    return true;
  }
  if (phase_ == Phase::after_sync && control && sub == kBaseLow) {
    base_low_ = payload;
    phase_ = Phase::after_base_low;
    return true;
  }
  if (phase_ == Phase::after_base_low && control && sub == kBaseHigh && payload < kHighPayloadLimit) {
    time_base_ = (static_cast<std::uint64_t>(payload) << kPayloadBits) | base_low_;
    base_valid_ = true;
    phase_ = Phase::running;
    overflow_ = 0;
    return true;
  }
  return false;
}

bool Delta32Decoder::take_tag(unsigned channel, std::uint32_t payload, std::vector<TimeTag>& out) {
  const std::uint64_t delta = (overflow_ << kPayloadBits) + payload;
  overflow_ = 0;
  const std::int64_t prev = last_time_[channel];
  std::uint64_t now;
  if (base_valid_) {
    base_valid_ = false;  // a base belongs to the one tag after it
    const std::uint64_t base = time_base_ & kMask41;
    if (seen_[channel]) {
      // The base carries only the low 41 bits: place it next to the
      // channel's previous time.
      const auto p = static_cast<std::uint64_t>(std::max<std::int64_t>(prev, 0));
      std::uint64_t t = base + (p & ~kMask41);
      if (t + (1ULL << 40) < p) t += 1ULL << 41;
      if (p < t && t - p > detail::kDelta32WrapCorrection) {
        t = p + detail::reduce_wrapped_delta(t - p, detail::kDelta32WrapCorrection, prev);
      }
      now = delta + t;
      if (static_cast<std::int64_t>(now) <= prev) return false;
    } else {
      now = delta + base;
    }
  } else {
    if (!seen_[channel]) return true;  // no time to count from yet
    now = static_cast<std::uint64_t>(prev) + detail::reduce_wrapped_delta(delta, detail::kDelta32WrapCorrection, prev);
  }
  last_time_[channel] = static_cast<std::int64_t>(now);
  seen_[channel] = true;
  out.push_back(TimeTag{static_cast<std::uint8_t>(channel), static_cast<std::int64_t>(now)});
  return true;
}

void Delta32Decoder::restart_after_sync() {
  phase_ = Phase::after_sync;
  base_low_ = 0;
  time_base_ = 0;
  base_valid_ = false;
  overflow_ = 0;
}

void Delta32Decoder::lose_lock() {
  locked_ = false;
  phase_ = Phase::running;
  base_low_ = 0;
  time_base_ = 0;
  base_valid_ = false;
  overflow_ = 0;
}

}  // namespace zolt::timing
