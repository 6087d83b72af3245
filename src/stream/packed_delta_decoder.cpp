#include "stream/packed_delta_decoder.hpp"

#include <algorithm>
#include <bit>
#include <utility>

#include "stream/packed_alignment_probe.hpp"
#include "stream/packed_record.hpp"
#include "stream/wrap_reduction.hpp"

namespace zolt::timing {

namespace {

constexpr std::size_t kMinAlignBytes = 4096;        // wait for this much before giving up on alignment
constexpr std::size_t kMaxUnalignedBytes = 65536;   // beyond this an unalignable buffer is trimmed
constexpr std::size_t kKeptUnalignedBytes = 4096;
constexpr std::uint64_t kMaxSyncStepBackPs = 1'000'000;     // a tag after a sync may lie this far back
constexpr std::uint64_t kMaxStepBackPs = 1'000'000;         // deltas this close below the modulus are steps back
constexpr std::uint64_t kMaxInternalDeltaPs = 1'000'000'000'000;  // internal clock: no gap above 1 s
constexpr std::uint64_t kMinImbalanceTags = 4096;
constexpr std::uint64_t kMask41 = (1ULL << 41) - 1;
constexpr auto kWrap = static_cast<std::uint64_t>(kCounterWrapPs);

}  // namespace

PackedDeltaDecoder::PackedDeltaDecoder(const StreamFileHeader& header, PackedDebugLog log)
    : delta_bits_(header.delta_bits == 0 ? 16U : header.delta_bits),
      width_(delta_bits_ + 3),
      active_mask_(static_cast<std::uint8_t>((header.channel_mask & 0x0F) == 0 ? 0x0F : header.channel_mask & 0x0F)),
      quantum_shift_(static_cast<unsigned>(std::countr_zero(header.quantum_ps == 0 ? std::uint16_t{8} : header.quantum_ps))),
      internal_mode_(header.mode == TimestampMode::internal),
      modulus_((1ULL << 41) << std::min(quantum_shift_, 22U)),
      correction_(detail::wrap_correction_for(modulus_)),
      sync_span_(std::min(modulus_, kWrap)),
      plain_delta_limit_(std::min({modulus_ / 2, correction_ == 0 ? modulus_ : correction_,
                                   internal_mode_ ? kMaxInternalDeltaPs : modulus_})),
      log_(std::move(log)) {}

std::size_t PackedDeltaDecoder::decode(const std::uint8_t* data, std::size_t size, std::vector<TimeTag>& out) {
  // Without a usable width nothing can ever be decoded; keep nothing either.
  if (delta_bits_ < 1 || delta_bits_ > 31) return size;
  std::size_t consumed = 0;
  if (!locked_ && !try_lock(data, size, consumed)) return consumed;
  data += consumed;
  size -= consumed;

  const std::uint64_t records = (8 * static_cast<std::uint64_t>(size) - bit_offset_) / width_;
  const std::size_t first_new = out.size();
  detail::reserve_tags(out, records);
  // Tags go through a small buffer that stays in cache and are appended in
  // blocks: cheaper than a push_back per tag or zero-filling the output.
  constexpr std::size_t kBlock = 512;
  TimeTag block[kBlock];
  TimeTag* next = block;
  const auto flush = [&] {
    out.insert(out.end(), block, next);
    next = block;
  };
  const unsigned d = delta_bits_;
  // The fast path works on local copies of the inputs' times and overflow
  // counts, which the compiler can keep apart from the output stores; the
  // slow path sees the members, so the copies are written back around it.
  std::int64_t times[4];
  std::uint64_t overflows[4];
  const auto reload = [&] {
    for (unsigned c = 0; c < 4; ++c) {
      times[c] = channels_[c].last_time;
      overflows[c] = channels_[c].overflow;
    }
  };
  const auto spill = [&] {
    for (unsigned c = 0; c < 4; ++c) {
      channels_[c].last_time = times[c];
      channels_[c].overflow = overflows[c];
    }
  };
  reload();
  // Settings in locals too: the output's byte-sized channel field may alias
  // any member as far as the compiler knows.
  const unsigned width = width_, shift = quantum_shift_;
  const std::uint64_t limit = plain_delta_limit_;
  const std::uint64_t sync_marker = (1ULL << d) - 1;
  unsigned fast = fast_inputs_;
  std::uint64_t bit = bit_offset_;
  std::uint64_t r = 0;
  // Decodes records r..end, a block of output at a time; false when a record
  // dropped the lock (r is then that record).
  const auto decode_records = [&](std::uint64_t end, auto record_at) {
    while (r < end) {
      const std::uint64_t block_end = std::min<std::uint64_t>(end, r + static_cast<std::uint64_t>(block + kBlock - next));
      for (; r < block_end; ++r, bit += width) {
        const std::uint64_t record = record_at(bit);
        const auto f = detail::split_packed_record(record, d);
        // The common cases on an input with a known time: a plain tag, and
        // an overflow count (long gaps between tags are frequent at a few
        // MHz per input).
        if ((fast >> f.channel) & 1U) [[likely]] {
          if (!f.overflow) [[likely]] {
            const std::uint64_t raw = ((overflows[f.channel] << d) + f.delta) << shift;
            if (raw <= limit) [[likely]] {
              overflows[f.channel] = 0;
              times[f.channel] = static_cast<std::int64_t>(static_cast<std::uint64_t>(times[f.channel]) + raw);
              *next++ = TimeTag{static_cast<std::uint8_t>(f.channel), times[f.channel]};
              continue;
            }
          } else if (f.delta != sync_marker) {
            overflows[f.channel] += f.delta;
            continue;
          }
        }
        spill();
        const Outcome outcome = take_record(record, r, records, next);
        reload();
        fast = fast_inputs_;
        if (outcome == Outcome::drop) return false;
      }
      if (next == block + kBlock) flush();
    }
    return true;
  };
  // Records whose eight bytes all lie inside data load without a bounds
  // check; only the last few take the checked path.
  const std::uint64_t whole_word_records =
      size < 8 ? 0 : std::min(records, (8 * static_cast<std::uint64_t>(size - 8) + 7 - bit) / width + 1);
  const bool kept_lock =
      decode_records(whole_word_records, [&](std::uint64_t at) { return detail::packed_record_in(data, at, width); }) &&
      decode_records(records, [&](std::uint64_t at) { return detail::packed_record_at(data, size, at, width); });
  if (!kept_lock) {
    flush();
    const std::size_t used = consume_records(r + 1);
    drop_lock();
    return consumed + used;
  }
  spill();
  flush();
  if (out.size() != first_new && imbalanced(out.data() + first_new, out.data() + out.size(), records)) {
    out.resize(first_new);
    const std::size_t used = consume_records(records);
    drop_lock();
    return consumed + used;
  }
  return consumed + consume_records(records);
}

bool PackedDeltaDecoder::try_lock(const std::uint8_t* data, std::size_t size, std::size_t& consumed) {
  const PackedAlignment alignment =
      probe_packed_alignment(data, size, PackedProbeSettings{delta_bits_, active_mask_, internal_mode_}, log_);
  if (!alignment.found) {
    if (size < kMinAlignBytes) return false;
    log_.line("no alignment bits=", active_mask_, " width=", width_, " raw_bytes=", size);
    if (size > kMaxUnalignedBytes) {
      consumed = size - kKeptUnalignedBytes;
      bit_offset_ = 0;
    }
    return false;
  }
  consumed = alignment.drop_bytes;
  bit_offset_ = alignment.bit_offset;
  locked_ = true;
  log_.line("locked bits=", alignment.synced_mask, " drop_bytes=", alignment.drop_bytes, " bit_offset=",
            alignment.bit_offset, " raw_bytes=", size);
  return true;
}

PackedDeltaDecoder::Outcome PackedDeltaDecoder::take_record(std::uint64_t record, std::uint64_t index,
                                                            std::uint64_t count, TimeTag*& out) {
  const auto f = detail::split_packed_record(record, delta_bits_);
  if (!((active_mask_ >> f.channel) & 1U)) [[unlikely]] {
    log_.line("drop inactive ch=", f.channel, " active_mask=0x", Hex{active_mask_}, " record=", index,
              " records=", count);
    return Outcome::drop;
  }
  if (sync_chunks_left_ >= 1) [[unlikely]] return take_sync_chunk(f.channel, f.overflow, f.delta, index);
  if (!f.overflow) {
    Channel& ch = channels_[f.channel];
    const std::uint64_t raw = ((ch.overflow << delta_bits_) + f.delta) << quantum_shift_;
    ch.overflow = 0;
    return take_tag(f.channel, raw, index, out);
  }
  if (f.delta == (1ULL << delta_bits_) - 1) {
    sync_channel_ = static_cast<int>(f.channel);
    sync_value_ = 0;
    sync_bits_ = 0;
    sync_chunks_left_ = static_cast<int>(detail::packed_sync_chunks(delta_bits_));
    channels_[f.channel].overflow = 0;
    update_fast_inputs();
  } else {
    channels_[f.channel].overflow += f.delta;
  }
  return Outcome::keep;
}

// A tag record with its raw delta in picoseconds (overflow counts included).
PackedDeltaDecoder::Outcome PackedDeltaDecoder::take_tag(unsigned channel, std::uint64_t raw, std::uint64_t index,
                                                         TimeTag*& out) {
  Channel& ch = channels_[channel];
  if (pending_channel_ == static_cast<int>(channel)) [[unlikely]] return take_tag_after_sync(channel, raw, index, out);
  if (!ch.time_valid) [[unlikely]] return Outcome::keep;
  std::int64_t delta;
  if (raw > modulus_ / 2 && raw <= modulus_ && modulus_ - raw <= kMaxStepBackPs) [[unlikely]] {
    delta = static_cast<std::int64_t>(raw) - static_cast<std::int64_t>(modulus_);  // a small step backwards
  } else {
    const std::uint64_t reduced = detail::reduce_wrapped_delta(raw, correction_, ch.last_time);
    if (internal_mode_ && reduced > kMaxInternalDeltaPs) [[unlikely]] {
      log_.line("drop implausible delta ch=", channel, " delta=", reduced, " prev=", ch.last_time, " record=", index);
      return Outcome::drop;
    }
    delta = static_cast<std::int64_t>(reduced);
  }
  ch.last_time = static_cast<std::int64_t>(static_cast<std::uint64_t>(ch.last_time) + static_cast<std::uint64_t>(delta));
  emit(channel, ch.last_time, out);
  return Outcome::keep;
}

PackedDeltaDecoder::Outcome PackedDeltaDecoder::take_tag_after_sync(unsigned channel, std::uint64_t raw,
                                                                    std::uint64_t index, TimeTag*& out) {
  Channel& ch = channels_[channel];
  const std::uint64_t next_bits = raw + pending_time_;
  const auto next = static_cast<std::int64_t>(next_bits);
  if (ch.time_valid) {
    const std::int64_t prev = ch.last_time;
    if (prev > next && static_cast<std::uint64_t>(prev) - next_bits > kMaxSyncStepBackPs) {
      log_.line("drop nonmonotonic sync ch=", channel, " next=", next, " prev=", prev, " record=", index);
      return Outcome::drop;
    }
    if (prev == next) {
      log_.line("drop implausible sync delta ch=", channel, " delta=", 0, " next=", next, " prev=", prev,
                " record=", index);
      return Outcome::drop;
    }
    // Unsigned on purpose: a step backwards counts as a huge delta.
    const std::uint64_t delta = next_bits - static_cast<std::uint64_t>(prev);
    if (internal_mode_ && delta > kMaxInternalDeltaPs) {
      log_.line("drop implausible sync delta ch=", channel, " delta=", delta, " next=", next, " prev=", prev,
                " record=", index);
      return Outcome::drop;
    }
  }
  ch.last_time = next;
  ch.time_valid = true;
  pending_channel_ = -1;
  pending_time_ = 0;
  update_fast_inputs();
  emit(channel, next, out);
  return Outcome::keep;
}

PackedDeltaDecoder::Outcome PackedDeltaDecoder::take_sync_chunk(unsigned channel, bool overflow,
                                                                std::uint64_t delta_field, std::uint64_t index) {
  if (static_cast<int>(channel) != sync_channel_) {
    log_.line("drop sync channel mismatch ch=", channel, " expected=", sync_channel_, " record=", index,
              " chunks_left=", sync_chunks_left_);
    return Outcome::drop;
  }
  if (overflow) {
    log_.line("drop ovf in sync ch=", channel, " record=", index, " chunks_left=", sync_chunks_left_);
    return Outcome::drop;
  }
  sync_value_ |= delta_field << sync_bits_;
  sync_bits_ += delta_bits_;
  if (--sync_chunks_left_ == 0) finish_sync();
  return Outcome::keep;
}

// The sync carries the input's time modulo the sync span; the input's last
// time (or last emitted time) says which span it falls in.
void PackedDeltaDecoder::finish_sync() {
  const Channel& ch = channels_[static_cast<unsigned>(sync_channel_)];
  std::uint64_t t = ((sync_value_ & kMask41) << quantum_shift_) % sync_span_;
  if (ch.time_valid) {
    const std::int64_t ref = ch.last_time;
    const auto r = static_cast<std::uint64_t>(std::max<std::int64_t>(ref, 0));
    t += r - r % sync_span_;
    if (t + sync_span_ / 2 < r) t += sync_span_;
    if (modulus_ <= kWrap && r < t) t = r + detail::reduce_wrapped_delta(t - r, correction_, ref);
  }
  pending_channel_ = sync_channel_;
  pending_time_ = t;
  sync_chunks_left_ = 0;
  sync_channel_ = -1;
  sync_value_ = 0;
  sync_bits_ = 0;
  update_fast_inputs();
}

void PackedDeltaDecoder::emit(unsigned channel, std::int64_t time, TimeTag*& out) {
  *out++ = TimeTag{static_cast<std::uint8_t>(channel), time};
}

void PackedDeltaDecoder::update_fast_inputs() {
  fast_inputs_ = 0;
  if (sync_chunks_left_ >= 1) return;
  for (unsigned c = 0; c < 4; ++c) {
    if (((active_mask_ >> c) & 1U) && channels_[c].time_valid && pending_channel_ != static_cast<int>(c)) {
      fast_inputs_ = static_cast<std::uint8_t>(fast_inputs_ | (1U << c));
    }
  }
}

// With the internal clock every active input ticks; a lock that yields a
// lopsided share of tags sits on a false alignment.
bool PackedDeltaDecoder::imbalanced(const TimeTag* begin, const TimeTag* end, std::uint64_t records) {
  if (!internal_mode_ || std::popcount(active_mask_) < 2) return false;
  std::uint64_t counts[4] = {};
  for (const TimeTag* tag = begin; tag != end; ++tag) ++counts[tag->channel];
  std::uint64_t min = UINT64_MAX, max = 0, total = 0;
  for (unsigned c = 0; c < 4; ++c) {
    if (!((active_mask_ >> c) & 1U)) continue;
    min = std::min(min, counts[c]);
    max = std::max(max, counts[c]);
    total += counts[c];
  }
  if (total < kMinImbalanceTags || (min != 0 && 8 * min >= max)) return false;
  log_.line("drop internal imbalanced lock min=", min, " max=", max, " total=", total, " records=", records);
  return true;
}

std::size_t PackedDeltaDecoder::consume_records(std::uint64_t records) {
  const std::uint64_t bits = bit_offset_ + records * width_;
  bit_offset_ = static_cast<unsigned>(bits & 7);
  return static_cast<std::size_t>(bits >> 3);
}

void PackedDeltaDecoder::drop_lock() {
  locked_ = false;
  bit_offset_ = 0;
  channels_ = {};
  sync_chunks_left_ = 0;
  sync_channel_ = -1;
  sync_value_ = 0;
  sync_bits_ = 0;
  pending_channel_ = -1;
  pending_time_ = 0;
  update_fast_inputs();
}

}  // namespace zolt::timing
