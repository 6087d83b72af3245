#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "files/stream_file_reader.hpp"
#include "zolt_timing.h"

namespace zolt::timing {

// Reads the tags of one tag file part, with positioning by tag index and by
// time. Tags decoded ahead of the caller (by a time seek or a time range
// that stopped inside a batch) wait in a carry-over buffer and are handed
// out first.
class TagFileReader {
 public:
  static constexpr std::size_t kSeekBatchTags = 16384;
  static constexpr std::size_t kRangeBatchTags = 4096;

  void open(const std::string& path);

  // Up to capacity tags; 0 means the end of the file.
  std::size_t read(tt_tag* out, std::size_t capacity);
  // The same, with count kept current as tags are delivered: when a read
  // failure interrupts it, count still tells how many of out are valid.
  void read(tt_tag* out, std::size_t capacity, std::size_t& count);
  // Tags [first, end) by index, at most capacity of them.
  std::size_t read_tag_range(std::uint64_t first, std::uint64_t end, tt_tag* out, std::size_t capacity);
  // Tags with start_ps <= time < end_ps, scanning from the first tag at or
  // after start_ps; the first tag at or after end_ps stays for the next read.
  std::size_t read_time_range(std::int64_t start_ps, std::int64_t end_ps, tt_tag* out, std::size_t capacity);

  // Skips index tags from the start; running off the end is not an error.
  void seek_tag(std::uint64_t index);
  // Positions at the first tag with time >= time_ps (a linear scan).
  void seek_time(std::int64_t time_ps);
  void rewind();

  const StreamFileReader& file() const { return file_; }

 private:
  // The next batch of at most max_tags tags into batch_. Tag words are the
  // usual payload; a raw stream recording is decoded by its own format.
  void decode_batch(std::size_t max_tags);
  std::size_t take_buffered(tt_tag* out, std::size_t capacity);

  StreamFileReader file_;
  std::deque<tt_tag> buffered_;
  std::vector<tt_tag> batch_;
};

}  // namespace zolt::timing
