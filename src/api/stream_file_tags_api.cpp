// Exported functions that decode tags out of stream files: argument checks
// and the exception boundary; the work is in StreamFileReader and the
// stream decoder.

#include "api/boundary.hpp"
#include "api/file_handles.hpp"
#include "files/stream_tag_summary.hpp"
#include "zolt_timing.h"

using zolt::timing::detail::any_null;
using zolt::timing::detail::on_handle;

extern "C" {

ZOLT_TIMING_API tt_status tt_stream_file_reader_read_tags(tt_stream_file_reader* reader, tt_tag* out,
                                                          size_t capacity, size_t* count) {
  if (count) *count = 0;
  if (any_null(reader, out, count)) return TT_ERR_INVALID_ARGUMENT;
  return on_handle(reader, [&] {
    reader->reader.decode_next_tags(out, capacity, *count);
  });
}

ZOLT_TIMING_API tt_status tt_stream_file_reader_summarize_tags(tt_stream_file_reader* reader,
                                                               tt_stream_tag_summary* summary) {
  if (any_null(reader, summary)) return TT_ERR_INVALID_ARGUMENT;
  return on_handle(reader, [&] {
    *summary = tt_stream_tag_summary{};
    *summary = zolt::timing::summarize_stream_tags(reader->reader);
  });
}

}  // extern "C"
