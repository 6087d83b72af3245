#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "link/clock.hpp"
#include "zolt_timing.h"

namespace zolt::timing {

// Reads raw64 records one at a time from a stream that arrives in pieces: a
// 128-byte look-ahead buffer that finds the record boundary and keeps it.
// Used by the device's single-tag read; one per device, emptied at every
// stream start and stop.
class Raw64LookAhead {
 public:
  static constexpr std::size_t kCapacity = 128;

  // calibration_words: the stream carries calibration-format words (their
  // marker identifies a record); otherwise tag words (bit 63 clear).
  explicit Raw64LookAhead(bool calibration_words = false) noexcept : calibration_words_(calibration_words) {}

  // Forgets buffered bytes and the alignment; also sets the word kind.
  void reset(bool calibration_words) noexcept;

  // Free room in the buffer, and where to put new bytes; commit(n) takes n
  // bytes written there (n <= space()).
  std::size_t space() const noexcept { return kCapacity - size_; }
  std::uint8_t* write_position() noexcept { return buffer_.data() + size_; }
  void commit(std::size_t count) noexcept { size_ += count; }

  // The next record from the buffered bytes, when there is one.
  bool take(tt_raw64_tag& tag) noexcept;

  std::size_t buffered() const noexcept { return size_; }
  bool aligned() const noexcept { return aligned_; }

  // Polls read_some(destination, capacity) -> bytes read (it may throw) until
  // a record is complete or timeout_ms pass (250 ms when 0), sleeping 1 ms
  // after each empty poll. False on timeout.
  template <class ReadSome>
  bool read(ReadSome&& read_some, unsigned timeout_ms, tt_raw64_tag& tag) {
    const std::int64_t deadline = monotonic_ms() + (timeout_ms == 0 ? 250 : static_cast<std::int64_t>(timeout_ms));
    for (;;) {
      if (take(tag)) return true;
      const std::size_t got = space() > 0 ? read_some(write_position(), space()) : 0;
      commit(got);
      if (got > 0) continue;
      if (monotonic_ms() >= deadline) return false;
      sleep_ms(1);
    }
  }

 private:
  bool looks_like_record(std::size_t offset) const noexcept;
  bool find_alignment() noexcept;
  void drop_front(std::size_t count) noexcept;

  std::array<std::uint8_t, kCapacity> buffer_{};
  std::size_t size_ = 0;
  bool aligned_ = false;
  bool calibration_words_;
};

}  // namespace zolt::timing
