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
    bool time_valid = false;
    std::int64_t last_time = 0;
    std::int64_t last_delta = 0;
    bool emitted = false;
    std::int64_t last_emitted = 0;
  };
  enum class Outcome { keep, drop };

  bool try_lock(const std::uint8_t* data, std::size_t size, std::size_t& consumed);
  Outcome take_record(std::uint64_t record, std::uint64_t index, std::uint64_t count, std::vector<TimeTag>& out);
  Outcome take_tag(unsigned channel, std::uint64_t delta_field, std::uint64_t index, std::vector<TimeTag>& out);
  Outcome take_tag_after_sync(unsigned channel, std::uint64_t raw, std::uint64_t index, std::vector<TimeTag>& out);
  Outcome take_sync_chunk(unsigned channel, bool overflow, std::uint64_t delta_field, std::uint64_t index);
  void finish_sync();
  void emit(unsigned channel, std::int64_t time, std::vector<TimeTag>& out);
  bool imbalanced(std::uint64_t records);
  std::size_t consume_records(std::uint64_t records);
  void drop_lock();

  // Settings from the header.
  unsigned delta_bits_;
  unsigned width_;
  std::uint8_t active_mask_;
  unsigned quantum_shift_;
  bool internal_mode_;
  std::uint64_t modulus_;     // deltas arrive modulo this many picoseconds
  std::uint64_t correction_;  // wrap correction for that modulus (0: none)
  std::uint64_t sync_span_;   // sync times are taken modulo this

  bool locked_ = false;
  unsigned bit_offset_ = 0;
  std::array<Channel, 4> channels_{};
  std::array<std::uint64_t, 4> call_counts_{};
  int sync_chunks_left_ = 0;
  int sync_channel_ = -1;
  std::uint64_t sync_value_ = 0;
  unsigned sync_bits_ = 0;
  int pending_channel_ = -1;
  std::uint64_t pending_time_ = 0;
  PackedDebugLog log_;
};

}  // namespace zolt::timing
