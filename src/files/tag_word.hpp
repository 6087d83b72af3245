#pragma once

// The 8-byte payload word of tag files (raw64 in the "ps" tag format), stored
// most significant byte first:
//   bit 63      0
//   bits 62..61 input 0..3
//   bits 60..44 0
//   bits 43..0  time in ps modulo the counter wrap period P
// Absolute time is not stored; readers unwrap each input's times, which is
// right while consecutive tags of one input are less than P/2 apart.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "stream/stream_types.hpp"
#include "stream/time_tag.hpp"

namespace zolt::timing {

inline constexpr std::size_t kTagWordBytes = 8;
inline constexpr std::uint64_t kTagWordChannelShift = 61;
inline constexpr std::uint64_t kTagWordTimeMask = (std::uint64_t{1} << 44) - 1;
// Bit 63 and bits 60..44: a word with any of them set is not a tag.
inline constexpr std::uint64_t kTagWordReservedMask = (std::uint64_t{1} << 63) | (((std::uint64_t{1} << 17) - 1) << 44);
inline constexpr std::uint64_t kWrapPeriodPs = static_cast<std::uint64_t>(kCounterWrapPs);
inline constexpr std::uint64_t kHalfWrapPeriodPs = kWrapPeriodPs / 2;

namespace detail {

inline std::uint64_t load_be64(const std::uint8_t* bytes) noexcept {
  std::uint64_t word;
  std::memcpy(&word, bytes, sizeof word);
  return __builtin_bswap64(word);
}

inline void store_be64(std::uint64_t word, std::uint8_t* bytes) noexcept {
  word = __builtin_bswap64(word);
  std::memcpy(bytes, &word, sizeof word);
}

// Time reduced into 0..P-1 (a negative remainder gets P added).
inline std::uint64_t wrap_time_ps(std::int64_t time_ps) noexcept {
  std::int64_t remainder = time_ps % kCounterWrapPs;
  if (remainder < 0) remainder += kCounterWrapPs;
  return static_cast<std::uint64_t>(remainder);
}

// The stored time of a word: 44 bits can hold up to 2P-1, so it is reduced
// modulo P.
inline std::uint64_t stored_tag_time(std::uint64_t word) noexcept {
  const std::uint64_t raw = word & kTagWordTimeMask;
  return raw - (raw >= kWrapPeriodPs ? kWrapPeriodPs : 0);
}

// channel must be 0..3 (checked by the caller).
inline std::uint64_t encode_tag_word(std::uint32_t channel, std::int64_t time_ps) noexcept {
  return (std::uint64_t{channel} << kTagWordChannelShift) | wrap_time_ps(time_ps);
}

}  // namespace detail

// Encodes tags into payload words. Reducing a time modulo P needs a 64-bit
// division; consecutive tags mostly fall into the same period, so the
// encoder remembers that period's start and divides only on leaving it.
class TagWordEncoder {
 public:
  std::uint64_t wrap_time_ps(std::int64_t time_ps) noexcept {
    std::int64_t into_period = 0;
    if (!__builtin_sub_overflow(time_ps, period_start_, &into_period) && into_period >= 0 &&
        into_period < kCounterWrapPs) {
      return static_cast<std::uint64_t>(into_period);
    }
    const std::uint64_t remainder = detail::wrap_time_ps(time_ps);
    std::int64_t start = 0;
    if (!__builtin_sub_overflow(time_ps, static_cast<std::int64_t>(remainder), &start)) period_start_ = start;
    return remainder;
  }

  // channel must be 0..3 (checked by the caller).
  std::uint64_t encode(std::uint32_t channel, std::int64_t time_ps) noexcept {
    return (std::uint64_t{channel} << kTagWordChannelShift) | wrap_time_ps(time_ps);
  }

 private:
  std::int64_t period_start_ = 0;
};

// Turns payload bytes back into tags, unwrapping each input's time. A byte
// sequence that is not a tag word is skipped one byte at a time, so the scan
// falls back into step after a stray or damaged byte.
class TagWordDecoder {
 public:
  // Decodes from data[0, size) into out until room tags are written or fewer
  // than 8 bytes are left. Returns the bytes consumed and sets produced; the
  // unconsumed bytes belong in front of the next call's data. Tag is TimeTag
  // or tt_tag.
  template <class Tag>
  std::size_t decode(const std::uint8_t* data, std::size_t size, Tag* out, std::size_t room, std::size_t& produced);

  // Forgets the unwrap state: times start again within the first period.
  void reset() noexcept { *this = TagWordDecoder(); }

 private:
  // Words decoded per attempt of the fast path.
  static constexpr std::size_t kRunWords = 1024;

  template <class Tag>
  bool decode_run_without_events(const std::uint8_t* data, std::size_t words, Tag* out) noexcept;
  template <class Tag>
  std::size_t decode_word_by_word(const std::uint8_t* data, std::size_t size, Tag* out, std::size_t room,
                                  std::size_t& produced) noexcept;

  // Per input: the last stored time (0 until the input's first tag) and
  // the multiple of P added to it.
  std::array<std::uint64_t, 4> previous_{};
  std::array<std::uint64_t, 4> offset_{};
};

}  // namespace zolt::timing
