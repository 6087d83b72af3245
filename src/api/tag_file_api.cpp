// Exported tag file functions: argument checks and the exception boundary;
// the work is in TagFileWriter and TagFileReader.

#include <cstring>
#include <memory>

#include "api/boundary.hpp"
#include "api/file_handles.hpp"
#include "api/text_copy.hpp"
#include "zolt_timing.h"

using zolt::timing::detail::any_null;
using zolt::timing::detail::on_handle;
using zolt::timing::detail::open_handle;

namespace {

zolt::timing::TagFileIdentity identity_from(const tt_tag_file_writer_options* options) {
  zolt::timing::TagFileIdentity identity;
  if (!options) return identity;
  // NULL keeps the default; an empty text is recorded as given.
  const auto take = [](const char* value, std::string& field) {
    if (value) field = value;
  };
  take(options->application, identity.application);
  take(options->device_product, identity.device_product);
  take(options->device_serial, identity.device_serial);
  take(options->device_port, identity.device_port);
  return identity;
}

bool bad_read_arguments(const tt_tag_file_reader* reader, const tt_tag* tags, size_t capacity, const size_t* count) {
  return any_null(reader, tags, count) || capacity == 0;
}

}  // namespace

extern "C" {

ZOLT_TIMING_API tt_status tt_tag_file_writer_open(tt_tag_file_writer** out, const char* path) {
  return tt_tag_file_writer_open_ex(out, path, nullptr);
}

ZOLT_TIMING_API tt_status tt_tag_file_writer_open_ex(tt_tag_file_writer** out, const char* path,
                                                     const tt_tag_file_writer_options* options) {
  if (out) *out = nullptr;
  if (any_null(out, path)) return TT_ERR_INVALID_ARGUMENT;
  return open_handle(out, [&](tt_tag_file_writer& handle) { handle.writer.open(path, identity_from(options)); });
}

ZOLT_TIMING_API tt_status tt_tag_file_writer_write(tt_tag_file_writer* writer, const tt_tag* tags, size_t count,
                                                   size_t* written) {
  if (!writer || (!tags && count != 0)) return TT_ERR_INVALID_ARGUMENT;
  size_t done = 0;
  const tt_status status = on_handle(writer, [&] { writer->writer.write(tags, count, done); });
  if (written) *written = done;
  return status;
}

ZOLT_TIMING_API tt_status tt_tag_file_writer_set_max_file_size(tt_tag_file_writer* writer, int64_t max_bytes) {
  if (!writer) return TT_ERR_INVALID_ARGUMENT;
  return on_handle(writer, [&] { writer->writer.set_max_file_size(max_bytes); });
}

ZOLT_TIMING_API uint64_t tt_tag_file_writer_file_index(const tt_tag_file_writer* writer) {
  return writer ? writer->writer.file_index() : 0;
}

ZOLT_TIMING_API const char* tt_tag_file_writer_current_path(const tt_tag_file_writer* writer) {
  return writer ? writer->writer.current_path().c_str() : "";
}

ZOLT_TIMING_API uint64_t tt_tag_file_writer_tag_count(const tt_tag_file_writer* writer) {
  return writer ? writer->writer.tag_count() : 0;
}

ZOLT_TIMING_API tt_status tt_tag_file_writer_close(tt_tag_file_writer* writer) {
  if (!writer) return TT_ERR_INVALID_ARGUMENT;
  writer->writer.close();
  writer->last_error.clear();
  return TT_OK;
}

ZOLT_TIMING_API void tt_tag_file_writer_free(tt_tag_file_writer* writer) { delete writer; }

ZOLT_TIMING_API const char* tt_tag_file_writer_last_error(const tt_tag_file_writer* writer) {
  return writer ? writer->last_error.c_str() : "";
}

ZOLT_TIMING_API tt_status tt_tag_file_reader_open(tt_tag_file_reader** out, const char* path) {
  if (out) *out = nullptr;
  if (any_null(out, path)) return TT_ERR_INVALID_ARGUMENT;
  return open_handle(out, [&](tt_tag_file_reader& handle) { handle.reader.open(path); });
}

ZOLT_TIMING_API tt_status tt_tag_file_reader_info(const tt_tag_file_reader* reader, tt_tag_file_info* info) {
  if (any_null(reader, info)) return TT_ERR_INVALID_ARGUMENT;
  using zolt::timing::detail::copy_cut;
  std::memset(info, 0, sizeof *info);
  const auto& header = reader->reader.file().header();
  copy_cut(info->created_utc, header.created_utc);
  copy_cut(info->application, header.application);
  copy_cut(info->device_product, header.device_product);
  copy_cut(info->device_serial, header.device_serial);
  copy_cut(info->device_port, header.device_port);
  return TT_OK;
}

ZOLT_TIMING_API tt_status tt_tag_file_reader_read(tt_tag_file_reader* reader, tt_tag* tags, size_t capacity,
                                                  size_t* count) {
  if (bad_read_arguments(reader, tags, capacity, count)) return TT_ERR_INVALID_ARGUMENT;
  *count = 0;
  return on_handle(reader, [&] { reader->reader.read(tags, capacity, *count); });
}

ZOLT_TIMING_API tt_status tt_tag_file_reader_read_tag_range(tt_tag_file_reader* reader, uint64_t first,
                                                            uint64_t end, tt_tag* tags, size_t capacity,
                                                            size_t* count) {
  if (bad_read_arguments(reader, tags, capacity, count) || end < first) return TT_ERR_INVALID_ARGUMENT;
  *count = 0;
  return on_handle(reader, [&] { *count = reader->reader.read_tag_range(first, end, tags, capacity); });
}

ZOLT_TIMING_API tt_status tt_tag_file_reader_read_time_range(tt_tag_file_reader* reader, int64_t start_ps,
                                                             int64_t end_ps, tt_tag* tags, size_t capacity,
                                                             size_t* count) {
  if (bad_read_arguments(reader, tags, capacity, count) || end_ps < start_ps) return TT_ERR_INVALID_ARGUMENT;
  *count = 0;
  return on_handle(reader, [&] { *count = reader->reader.read_time_range(start_ps, end_ps, tags, capacity); });
}

ZOLT_TIMING_API tt_status tt_tag_file_reader_seek_tag(tt_tag_file_reader* reader, uint64_t index) {
  if (!reader) return TT_ERR_INVALID_ARGUMENT;
  return on_handle(reader, [&] { reader->reader.seek_tag(index); });
}

ZOLT_TIMING_API tt_status tt_tag_file_reader_seek_time(tt_tag_file_reader* reader, int64_t time_ps) {
  if (!reader) return TT_ERR_INVALID_ARGUMENT;
  return on_handle(reader, [&] { reader->reader.seek_time(time_ps); });
}

ZOLT_TIMING_API tt_status tt_tag_file_reader_rewind(tt_tag_file_reader* reader) {
  if (!reader) return TT_ERR_INVALID_ARGUMENT;
  return on_handle(reader, [&] { reader->reader.rewind(); });
}

ZOLT_TIMING_API void tt_tag_file_reader_free(tt_tag_file_reader* reader) { delete reader; }

ZOLT_TIMING_API const char* tt_tag_file_reader_last_error(const tt_tag_file_reader* reader) {
  return reader ? reader->last_error.c_str() : "";
}

}  // extern "C"
