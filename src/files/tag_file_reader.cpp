#include "files/tag_file_reader.hpp"

#include <algorithm>

#include "api/error.hpp"

namespace zolt::timing {
namespace {

// Inputs 0..3 only; a decoder may produce other numbers (markers), which a
// tag file reader never hands out.
bool is_input(const TimeTag& tag) { return tag.channel < 4; }

// Decoding in bounded batches keeps the scratch tags in the L2 cache.
constexpr std::size_t kReadBatchTags = 1 << 13;

}  // namespace

void TagFileReader::decode_tag_words(std::size_t max_tags) {
  if (!file_.holds_tag_words()) {
    throw Error(TT_ERR_UNSUPPORTED, "StreamFileReader: no tag decoder for this stream format");
  }
  file_.decode_next_tags(max_tags, batch_);
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
  std::transform(buffered_.begin(), buffered_.begin() + static_cast<std::ptrdiff_t>(taken), out, to_public);
  buffered_.erase(buffered_.begin(), buffered_.begin() + static_cast<std::ptrdiff_t>(taken));
  return taken;
}

std::size_t TagFileReader::read(tt_tag* out, std::size_t capacity) {
  std::size_t count = 0;
  read(out, capacity, count);
  return count;
}

void TagFileReader::read(tt_tag* out, std::size_t capacity, std::size_t& count) {
  count = take_buffered(out, capacity);
  std::size_t missing = capacity - count;
  while (missing > 0) {
    const std::size_t asked = std::min(missing, kReadBatchTags);
    batch_.clear();
    decode_tag_words(asked);
    for (const TimeTag& tag : batch_) {
      // Written unconditionally, kept only for inputs: no branch per tag.
      out[count] = to_public(tag);
      count += is_input(tag) ? 1 : 0;
    }
    missing -= asked;
    if (batch_.size() < asked) break;  // end of the payload
  }
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
    batch_.clear();
    decode_tag_words(asked);
    remaining -= batch_.size();
    if (batch_.size() < asked) break;  // the file ended first
  }
}

void TagFileReader::seek_time(std::int64_t time_ps) {
  rewind();
  for (;;) {
    batch_.clear();
    decode_tag_words(kSeekBatchTags);
    const auto found = std::find_if(batch_.begin(), batch_.end(),
                                    [time_ps](const TimeTag& tag) { return is_input(tag) && tag.time >= time_ps; });
    if (found != batch_.end()) {
      std::copy_if(found, batch_.end(), std::back_inserter(buffered_), is_input);
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
        std::vector<TimeTag> rest;
        for (std::size_t j = i; j < got; ++j) {
          rest.push_back(TimeTag{static_cast<std::uint8_t>(scratch[j].channel), scratch[j].time_ps});
        }
        buffered_.insert(buffered_.begin(), rest.begin(), rest.end());
        return count;
      }
      if (tag.time_ps >= start_ps) out[count++] = tag;
    }
  }
  return count;
}

}  // namespace zolt::timing
