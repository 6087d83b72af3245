#include "files/tag_file_reader.hpp"

#include <algorithm>

namespace zolt::timing {

void TagFileReader::decode_batch(std::size_t max_tags) {
  batch_.resize(max_tags);
  std::size_t count = 0;
  file_.decode_next_tags(batch_.data(), max_tags, count);
  batch_.resize(count);
}

void TagFileReader::open(const std::string& path) {
  file_.open(path);
  buffered_.clear();
}

void TagFileReader::rewind() {
  buffered_.clear();
  file_.rewind_payload();
}

std::size_t TagFileReader::take_buffered(tt_tag* out, std::size_t capacity) {
  const std::size_t taken = std::min(capacity, buffered_.size());
  const auto end = buffered_.begin() + static_cast<std::ptrdiff_t>(taken);
  std::copy(buffered_.begin(), end, out);
  buffered_.erase(buffered_.begin(), end);
  return taken;
}

std::size_t TagFileReader::read(tt_tag* out, std::size_t capacity) {
  std::size_t count = 0;
  read(out, capacity, count);
  return count;
}

void TagFileReader::read(tt_tag* out, std::size_t capacity, std::size_t& count) {
  count = take_buffered(out, capacity);
  file_.decode_next_tags(out, capacity, count);
}

std::size_t TagFileReader::read_tag_range(std::uint64_t first, std::uint64_t end, tt_tag* out,
                                          std::size_t capacity) {
  if (first == end) return 0;
  seek_tag(first);
  return read(out, static_cast<std::size_t>(std::min<std::uint64_t>(end - first, capacity)));
}

void TagFileReader::seek_tag(std::uint64_t index) {
  rewind();
  std::uint64_t remaining = index;
  while (remaining > 0) {
    const std::size_t asked = static_cast<std::size_t>(std::min<std::uint64_t>(remaining, kSeekBatchTags));
    decode_batch(asked);
    remaining -= batch_.size();
    if (batch_.size() < asked) break;  // the file ended first
  }
}

void TagFileReader::seek_time(std::int64_t time_ps) {
  rewind();
  for (;;) {
    decode_batch(kSeekBatchTags);
    const auto found =
        std::find_if(batch_.begin(), batch_.end(), [time_ps](const tt_tag& tag) { return tag.time_ps >= time_ps; });
    if (found != batch_.end()) {
      buffered_.insert(buffered_.end(), found, batch_.end());
      return;
    }
    if (batch_.size() < kSeekBatchTags) return;  // the file ended first
  }
}

std::size_t TagFileReader::read_time_range(std::int64_t start_ps, std::int64_t end_ps, tt_tag* out,
                                           std::size_t capacity) {
  if (start_ps == end_ps) return 0;
  seek_time(start_ps);
  std::size_t count = 0;
  std::vector<tt_tag> scratch(std::min(kRangeBatchTags, capacity));
  while (count < capacity) {
    const std::size_t got = read(scratch.data(), std::min(kRangeBatchTags, capacity - count));
    if (got == 0) break;
    for (std::size_t i = 0; i < got; ++i) {
      const tt_tag& tag = scratch[i];
      if (tag.time_ps >= end_ps) {
        // The rest of the batch was taken ahead of the range's end. It goes
        // back in front of whatever is still buffered so that the next read
        // continues in file order.
        buffered_.insert(buffered_.begin(), scratch.begin() + static_cast<std::ptrdiff_t>(i),
                         scratch.begin() + static_cast<std::ptrdiff_t>(got));
        return count;
      }
      if (tag.time_ps >= start_ps) out[count++] = tag;
    }
  }
  return count;
}

}  // namespace zolt::timing
