#include <algorithm>
#include <bit>

#include "zolt_sim/encoders.hpp"

namespace zolt_sim {

namespace {
constexpr std::uint64_t kMask41 = (1ULL << 41) - 1;
// A sync's time lies at most this many quanta before the tag it precedes.
constexpr std::uint64_t kMaxSyncLead = 0x3FFF;
}  // namespace

PackedDeltaEncoder::PackedDeltaEncoder(Options options)
    : options_(options),
      shift_(static_cast<unsigned>(std::countr_zero(options.quantum_ps))),
      field_mask_((1ULL << options.delta_bits) - 1) {}

void PackedDeltaEncoder::put_record(unsigned input, bool overflow, std::uint64_t delta,
                                    std::vector<std::uint8_t>& out) {
  const unsigned width = options_.delta_bits + 3;
  const std::uint64_t record = (static_cast<std::uint64_t>(input) << (options_.delta_bits + 1)) |
                               (static_cast<std::uint64_t>(overflow) << options_.delta_bits) | (delta & field_mask_);
  bits_ = (bits_ << width) | record;
  bit_count_ += width;
  while (bit_count_ >= 8) {
    bit_count_ -= 8;
    out.push_back(static_cast<std::uint8_t>(bits_ >> bit_count_));
  }
  bits_ &= (1ULL << bit_count_) - 1;
}

// Overflow records carry whole multiples of 2^d quanta, each below the
// all-ones value that marks a sync.
void PackedDeltaEncoder::put_delta(unsigned input, std::uint64_t quanta, std::vector<std::uint8_t>& out) {
  for (std::uint64_t high = quanta >> options_.delta_bits; high > 0;) {
    const std::uint64_t part = std::min(high, field_mask_ - 1);
    put_record(input, true, part, out);
    high -= part;
  }
  put_record(input, false, quanta & field_mask_, out);
}

void PackedDeltaEncoder::encode(const InputEvent& event, std::vector<std::uint8_t>& out) {
  const unsigned input = event.input & 3U;
  const std::uint64_t now = static_cast<std::uint64_t>(event.time_ps % kCounterWrapPs) >> shift_;
  std::uint64_t from;
  const bool sync_due = options_.sync_every_tags != 0 && since_sync_[input] >= options_.sync_every_tags;
  if (!known_[input] || sync_due) {
    // The sync time is taken a little before the tag, never before the
    // input's previous tag nor across a counter wrap.
    std::uint64_t lead = std::min(now, kMaxSyncLead);
    if (known_[input] && last_[input] <= now) lead = std::min(lead, now - last_[input]);
    from = now - lead;
    put_record(input, true, field_mask_, out);
    const unsigned chunks = (options_.delta_bits + 40) / options_.delta_bits;
    for (unsigned chunk = 0; chunk < chunks; ++chunk) {
      put_record(input, false, ((from & kMask41) >> (chunk * options_.delta_bits)) & field_mask_, out);
    }
    since_sync_[input] = 0;
  } else {
    from = last_[input];
  }
  put_delta(input, (now - from) & kMask41, out);
  known_[input] = true;
  last_[input] = now;
  ++since_sync_[input];
}

void PackedDeltaEncoder::finish(std::vector<std::uint8_t>& out) {
  if (bit_count_ == 0) return;
  out.push_back(static_cast<std::uint8_t>(bits_ << (8 - bit_count_)));
  bits_ = 0;
  bit_count_ = 0;
}

}  // namespace zolt_sim
