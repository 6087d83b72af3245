#include <algorithm>

#include "zolt_sim/encoders.hpp"

namespace zolt_sim {

namespace {

constexpr std::uint64_t kMask41 = (1ULL << 41) - 1;
constexpr std::uint32_t kSyncWord = 0xEB5A55AAU;
constexpr std::uint32_t kOverflowWord = 0x8A000000U;  // flag, subtype 0, type 5
constexpr std::uint32_t kBaseLowWord = 0xAA000000U;   // flag, subtype 1, type 5
constexpr std::uint32_t kBaseHighWord = 0xCA000000U;  // flag, subtype 2, type 5
constexpr std::uint32_t kTagType = 10U << 25;
constexpr std::uint64_t kMaxOverflowCount = 0xFFFF;
constexpr std::uint64_t kMaxTagPayload = 0x1FFFFFF;

void put_be32(std::uint32_t word, std::vector<std::uint8_t>& out) {
  out.push_back(static_cast<std::uint8_t>(word >> 24));
  out.push_back(static_cast<std::uint8_t>(word >> 16));
  out.push_back(static_cast<std::uint8_t>(word >> 8));
  out.push_back(static_cast<std::uint8_t>(word));
}

}  // namespace

void Delta32Encoder::encode(const InputEvent& event, std::vector<std::uint8_t>& out) {
  const unsigned input = event.input & 3U;
  const auto counter = static_cast<std::uint64_t>(event.time_ps % kCounterWrapPs);
  const bool block_due = options_.sync_every_tags != 0 && tags_since_sync_ >= options_.sync_every_tags;
  std::uint64_t from;
  if (!started_ || !known_[input] || block_due) {
    // The base is sampled after the previous tag (half way to this one, and
    // close enough for the tag's delta to need no overflow word: none may
    // come between a base and its tag) or, when the counter wrapped in
    // between, at this tag.
    std::uint64_t base = counter;
    if (started_ && now_ <= counter) base = counter - std::min((counter - now_) / 2, kMaxTagPayload);
    put_be32(kSyncWord, out);
    put_be32(kBaseLowWord | static_cast<std::uint32_t>(base & 0x1FFFFFF), out);
    put_be32(kBaseHighWord | static_cast<std::uint32_t>((base >> 25) & 0xFFFF), out);
    tags_since_sync_ = 0;
    from = base;
  } else {
    from = last_[input];
  }
  std::uint64_t delta = (counter - from) & kMask41;
  for (std::uint64_t count = delta >> 25; count > 0;) {
    const std::uint64_t part = count < kMaxOverflowCount ? count : kMaxOverflowCount;
    put_be32(kOverflowWord | static_cast<std::uint32_t>(part), out);
    count -= part;
  }
  delta &= 0x1FFFFFF;
  put_be32((input << 29) | kTagType | static_cast<std::uint32_t>(delta), out);
  started_ = true;
  known_[input] = true;
  last_[input] = counter;
  now_ = counter;
  ++tags_since_sync_;
}

}  // namespace zolt_sim
