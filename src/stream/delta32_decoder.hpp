#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "stream/time_tag.hpp"

namespace zolt::timing {

// delta32 records: 4-byte words carrying per-input time deltas, with sync,
// time-base and overflow words in between. Decoding starts at a sync word
// (bytes EB 5A 55 AA); any word out of place loses the lock and decoding
// resumes at the next sync word. The inputs' last times survive a lost lock.
class Delta32Decoder {
 public:
  // Decodes from the start of data, appends tags to out and returns the
  // number of leading bytes used up; the rest is kept for the next call.
  std::size_t decode(const std::uint8_t* data, std::size_t size, std::vector<TimeTag>& out);

  bool locked() const noexcept { return locked_; }

 private:
  enum class Phase : std::uint8_t { running, after_sync, after_base_low };

  // False when the word breaks the lock.
  bool take_word(std::uint32_t word, std::vector<TimeTag>& out);
  bool take_tag(unsigned channel, std::uint32_t payload, std::vector<TimeTag>& out);
  void restart_after_sync();
  void lose_lock();

  bool locked_ = false;
  Phase phase_ = Phase::running;
  std::uint32_t base_low_ = 0;
  std::uint64_t time_base_ = 0;
  bool base_valid_ = false;
  std::uint64_t overflow_ = 0;
  std::array<std::int64_t, 4> last_time_{};
  std::array<bool, 4> seen_{};
};

}  // namespace zolt::timing
