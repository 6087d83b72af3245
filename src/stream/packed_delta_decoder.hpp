#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "files/stream_file_header.hpp"
#include "stream/packed_debug_log.hpp"
#include "stream/time_tag.hpp"

namespace zolt::timing {

// Packed-delta records: a bit stream of (d + 3)-bit records (input, overflow
// flag, d-bit delta in time quanta). Per-input sync markers carry the 41-bit
// time in (d + 40) / d chunks. The decoder first finds the record alignment,
// then decodes; a record that cannot be right drops the lock and the
// alignment is searched again.
class PackedDeltaDecoder {
 public:
  PackedDeltaDecoder(const StreamFileHeader& header, PackedDebugLog log);

  // Decodes from the start of data, appends tags to out and returns the
  // number of leading bytes used up; the rest is kept for the next call.
  std::size_t decode(const std::uint8_t* data, std::size_t size, std::vector<TimeTag>& out);

  bool locked() const noexcept { return locked_; }

 private:
  struct Channel {
    std::uint64_t overflow = 0;  // in units of 2^d quanta
    bool time_valid = false;     // every emitted tag sets it: it doubles as "emitted"
    std::int64_t last_time = 0;  // and this as the last emitted time
  };
  enum class Outcome { keep, drop };

  bool try_lock(const std::uint8_t* data, std::size_t size, std::size_t& consumed);
  Outcome take_record(std::uint64_t record, std::uint64_t index, std::uint64_t count, TimeTag*& out);
  Outcome take_tag(unsigned channel, std::uint64_t raw, std::uint64_t index, TimeTag*& out);
  Outcome take_tag_after_sync(unsigned channel, std::uint64_t raw, std::uint64_t index, TimeTag*& out);
  Outcome take_sync_chunk(unsigned channel, bool overflow, std::uint64_t delta_field, std::uint64_t index);
  void finish_sync();
  void emit(unsigned channel, std::int64_t time, TimeTag*& out);
  // With the internal clock every active input ticks: a call whose tags
  // (begin..end) are lopsided across the inputs sits on a false alignment.
  bool imbalanced(const TimeTag* begin, const TimeTag* end, std::uint64_t records);
  std::size_t consume_records(std::uint64_t records);
  void drop_lock();
  void update_fast_inputs();

  // Settings from the header.
  unsigned delta_bits_;
  unsigned width_;
  std::uint8_t active_mask_;
  unsigned quantum_shift_;
  bool internal_mode_;
  std::uint64_t modulus_;     // deltas arrive modulo this many picoseconds
  std::uint64_t correction_;  // wrap correction for that modulus (0: none)
  std::uint64_t sync_span_;   // sync times are taken modulo this
  // A tag delta up to this needs none of the corrections below (no step
  // back, no wrap, not implausible).
  std::uint64_t plain_delta_limit_;

  bool locked_ = false;
  unsigned bit_offset_ = 0;
  std::array<Channel, 4> channels_{};
  int sync_chunks_left_ = 0;
  int sync_channel_ = -1;
  std::uint64_t sync_value_ = 0;
  unsigned sync_bits_ = 0;
  int pending_channel_ = -1;
  std::uint64_t pending_time_ = 0;
  // Inputs whose next tag record is a delta (plus any overflow count) from
  // the last time: active, time known, no sync pending for it and no sync
  // being assembled.
  std::uint8_t fast_inputs_ = 0;
  PackedDebugLog log_;
};

}  // namespace zolt::timing
