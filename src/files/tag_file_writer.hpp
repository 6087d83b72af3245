#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "files/stream_file_header.hpp"
#include "files/stream_file_writer.hpp"
#include "files/tag_word.hpp"
#include "zolt_timing.h"

namespace zolt::timing {

// Texts recorded in the header of every part.
struct TagFileIdentity {
  std::string application = "zolt_timing";
  std::string device_product;
  std::string device_serial;
  std::string device_port;
};

// Writes tags as 8-byte words into a stream file, rolling over to a new
// numbered part file when the size limit would be exceeded. A part always
// takes at least one tag, so no limit can stall the writer.
class TagFileWriter {
 public:
  static constexpr std::int64_t kDefaultMaxFileSize = std::int64_t{1} << 30;
  static constexpr std::size_t kChunkTags = 1 << 20;

  void open(const std::string& path, const TagFileIdentity& identity);

  // Writes count tags. `written` follows the tags that reached the files, so
  // after a failure part-way it tells how many did. Throws Error.
  void write(const tt_tag* tags, std::size_t count, std::size_t& written);

  // 0 = unlimited; 1..7 cannot hold a tag and are refused. A negative size
  // compares as a huge unsigned number, i.e. no limit.
  void set_max_file_size(std::int64_t bytes);

  void close() noexcept;

  std::uint64_t file_index() const { return file_index_; }
  const std::string& current_path() const { return current_path_; }
  std::uint64_t tag_count() const { return tag_count_; }
  std::uint64_t part_tag_count() const { return part_tag_count_; }
  bool closed() const { return closed_; }

 private:
  static void check_channels(const tt_tag* tags, std::size_t count);
  std::size_t tags_fitting_current_part(std::size_t chunk) const;
  void roll_over();
  // Encodes into words_ and checks the inputs on the way; throws before
  // anything is written when one is out of range.
  void encode_chunk(const tt_tag* tags, std::size_t count);
  void write_encoded(std::size_t chunk, std::size_t& written);

  StreamFileWriter writer_;
  StreamFileHeader header_template_;
  std::string base_path_;
  std::string current_path_;
  std::int64_t max_file_size_ = kDefaultMaxFileSize;
  std::uint64_t file_index_ = 0;
  std::uint64_t tag_count_ = 0;
  std::uint64_t part_tag_count_ = 0;
  bool closed_ = true;
  TagWordEncoder encoder_;
  // One chunk of encoded words; allocated on first use, not zero-filled.
  std::unique_ptr<std::uint8_t[]> words_;
  std::size_t words_capacity_ = 0;
};

}  // namespace zolt::timing
