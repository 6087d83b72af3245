#include "files/stream_tag_summary.hpp"

#include <span>
#include <vector>

namespace zolt::timing {

namespace {
constexpr std::size_t kSummaryBatchTags = 1 << 16;
}  // namespace

tt_stream_tag_summary summarize_stream_tags(StreamFileReader& reader) {
  tt_stream_tag_summary summary{};
  reader.rewind_payload();
  std::vector<tt_tag> batch(kSummaryBatchTags);
  bool first = true;
  while (const std::size_t got = reader.decode_next_tags(batch.data(), batch.size())) {
    for (const tt_tag& tag : std::span(batch.data(), got)) {
      if (tag.channel > 3) continue;
      ++summary.tags;
      ++summary.input_tags[tag.channel];
      if (first) summary.first_time_ps = tag.time_ps;
      first = false;
      summary.last_time_ps = tag.time_ps;
    }
  }
  summary.payload_bytes = reader.decoded_payload_bytes();
  reader.rewind_payload();
  return summary;
}

}  // namespace zolt::timing
