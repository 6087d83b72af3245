#include "files/stream_tag_summary.hpp"

#include <vector>

namespace zolt::timing {

namespace {
constexpr std::size_t kSummaryBatchTags = 1 << 16;
}  // namespace

tt_stream_tag_summary summarize_stream_tags(StreamFileReader& reader) {
  tt_stream_tag_summary summary{};
  reader.rewind_payload();
  std::vector<TimeTag> batch;
  bool first = true;
  for (;;) {
    batch.clear();
    reader.decode_next_tags(kSummaryBatchTags, batch);
    if (batch.empty()) break;
    for (const TimeTag& tag : batch) {
      if (tag.channel > 3) continue;
      ++summary.tags;
      ++summary.input_tags[tag.channel];
      if (first) summary.first_time_ps = tag.time;
      first = false;
      summary.last_time_ps = tag.time;
    }
  }
  summary.payload_bytes = reader.decoded_payload_bytes();
  reader.rewind_payload();
  return summary;
}

}  // namespace zolt::timing
