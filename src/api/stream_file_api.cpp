// Exported raw stream file functions: argument checks and the exception
// boundary; the work is in StreamFileWriter and StreamFileReader.

#include <cstring>
#include <memory>
#include <stdexcept>

#include "api/boundary.hpp"
#include "api/file_handles.hpp"
#include "api/text_copy.hpp"
#include "zolt_timing.h"

namespace zolt::timing {
namespace {

// The options record checked and turned into a header; NULL gives the
// all-default header.
StreamFileHeader header_from_options(const tt_stream_file_options* options) {
  StreamFileHeader header;
  if (!options) return header;
  if (options->stream_format > 2 || options->mode > 1 || options->stream_transport > 1) {
    throw std::invalid_argument("invalid stream file option enum value");
  }
  header.stream_format = static_cast<StreamFormat>(options->stream_format);
  header.mode = static_cast<TimestampMode>(options->mode);
  header.stream_transport = static_cast<StreamTransport>(options->stream_transport);
  header.channel_mask = options->channel_mask == 0 ? 15 : static_cast<std::uint8_t>(options->channel_mask & 15);
  header.tdl_index = options->tdl_index;
  header.delta_bits = options->delta_bits == 0 ? 16 : options->delta_bits;
  header.quantum_ps = options->quantum_ps == 0 ? 8 : options->quantum_ps;
  const bool no_format = !options->raw64_tag_format || options->raw64_tag_format[0] == '\0';
  header.raw64_tag_format = no_format ? (header.mode == TimestampMode::internal ? "raw_cf" : "ps")
                                      : options->raw64_tag_format;
  return header;
}

}  // namespace
}  // namespace zolt::timing

using zolt::timing::detail::any_null;
using zolt::timing::detail::on_handle;
using zolt::timing::detail::open_handle;

extern "C" {

ZOLT_TIMING_API tt_status tt_stream_file_writer_open(tt_stream_file_writer** out, const char* path,
                                                     const tt_stream_file_options* options) {
  if (out) *out = nullptr;
  if (any_null(out, path)) return TT_ERR_INVALID_ARGUMENT;
  return open_handle(out, [&](tt_stream_file_writer& handle) {
    handle.writer.open(path, zolt::timing::header_from_options(options));
  });
}

ZOLT_TIMING_API tt_status tt_stream_file_writer_write(tt_stream_file_writer* writer, const void* data,
                                                      size_t size, size_t* written) {
  if (written) *written = 0;
  if (!writer || (!data && size != 0)) return TT_ERR_INVALID_ARGUMENT;
  return on_handle(writer, [&] {
    writer->writer.write(data, size);
    if (written) *written = size;
  });
}

ZOLT_TIMING_API uint64_t tt_stream_file_writer_payload_bytes(const tt_stream_file_writer* writer) {
  return writer ? writer->writer.payload_bytes() : 0;
}

ZOLT_TIMING_API tt_status tt_stream_file_writer_close(tt_stream_file_writer* writer) {
  if (!writer) return TT_ERR_INVALID_ARGUMENT;
  writer->writer.close();
  writer->last_error.clear();
  return TT_OK;
}

ZOLT_TIMING_API void tt_stream_file_writer_free(tt_stream_file_writer* writer) { delete writer; }

ZOLT_TIMING_API const char* tt_stream_file_writer_last_error(const tt_stream_file_writer* writer) {
  return writer ? writer->last_error.c_str() : "";
}

ZOLT_TIMING_API tt_status tt_stream_file_reader_open(tt_stream_file_reader** out, const char* path) {
  if (out) *out = nullptr;
  if (any_null(out, path)) return TT_ERR_INVALID_ARGUMENT;
  return open_handle(out, [&](tt_stream_file_reader& handle) { handle.reader.open(path); });
}

ZOLT_TIMING_API tt_status tt_stream_file_reader_info(const tt_stream_file_reader* reader, tt_stream_file_info* info) {
  if (any_null(reader, info)) return TT_ERR_INVALID_ARGUMENT;
  using zolt::timing::detail::copy_cut;
  std::memset(info, 0, sizeof *info);
  const auto& header = reader->reader.header();
  info->stream_format = static_cast<uint32_t>(header.stream_format);
  info->mode = static_cast<uint32_t>(header.mode);
  info->stream_transport = static_cast<uint32_t>(header.stream_transport);
  info->channel_mask = header.channel_mask;
  info->tdl_index = header.tdl_index;
  info->delta_bits = header.delta_bits;
  info->quantum_ps = header.quantum_ps;
  copy_cut(info->raw64_tag_format, header.raw64_tag_format);
  copy_cut(info->created_utc, header.created_utc);
  info->payload_offset = reader->reader.payload_offset();
  return TT_OK;
}

ZOLT_TIMING_API const char* tt_stream_file_reader_header_json(const tt_stream_file_reader* reader) {
  return reader ? reader->reader.header_json().c_str() : "";
}

ZOLT_TIMING_API tt_status tt_stream_file_reader_read_payload(tt_stream_file_reader* reader, void* buffer,
                                                             size_t capacity, size_t* count) {
  if (!count) return TT_ERR_INVALID_ARGUMENT;
  *count = 0;
  if (!reader || (!buffer && capacity != 0)) return TT_ERR_INVALID_ARGUMENT;
  return on_handle(reader, [&] { *count = reader->reader.read_payload(buffer, capacity); });
}

ZOLT_TIMING_API tt_status tt_stream_file_reader_rewind(tt_stream_file_reader* reader) {
  if (!reader) return TT_ERR_INVALID_ARGUMENT;
  return on_handle(reader, [&] { reader->reader.rewind_payload(); });
}

ZOLT_TIMING_API void tt_stream_file_reader_free(tt_stream_file_reader* reader) { delete reader; }

ZOLT_TIMING_API const char* tt_stream_file_reader_last_error(const tt_stream_file_reader* reader) {
  return reader ? reader->last_error.c_str() : "";
}

}  // extern "C"
