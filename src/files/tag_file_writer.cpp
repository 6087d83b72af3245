#include "files/tag_file_writer.hpp"

#include <algorithm>

#include "api/error.hpp"
#include "files/tag_file_part_path.hpp"
#include "files/tag_word.hpp"

namespace zolt::timing {
namespace {

StreamFileHeader tag_file_header(const TagFileIdentity& identity) {
  StreamFileHeader header;
  header.stream_format = StreamFormat::raw64;
  header.mode = TimestampMode::external;
  header.stream_transport = StreamTransport::usb;
  header.channel_mask = 15;
  header.tdl_index = 0;
  header.delta_bits = 16;
  header.quantum_ps = 8;
  header.raw64_tag_format = "ps";
  header.application = identity.application;
  header.device_product = identity.device_product;
  header.device_serial = identity.device_serial;
  header.device_port = identity.device_port;
  // created_utc stays empty so that each part is stamped when it is opened.
  return header;
}

}  // namespace

void TagFileWriter::open(const std::string& path, const TagFileIdentity& identity) {
  header_template_ = tag_file_header(identity);
  base_path_ = path;
  max_file_size_ = kDefaultMaxFileSize;
  file_index_ = tag_count_ = part_tag_count_ = 0;
  current_path_ = detail::tag_file_part_path(base_path_, 0);
  writer_.open(current_path_, header_template_);
  closed_ = false;
}

void TagFileWriter::set_max_file_size(std::int64_t bytes) {
  if (bytes >= 1 && bytes < static_cast<std::int64_t>(kTagWordBytes)) {
    throw Error(TT_ERR_INVALID_ARGUMENT, "max file size must be zero or at least one tag");
  }
  max_file_size_ = bytes;
}

void TagFileWriter::check_channels(const tt_tag* tags, std::size_t count) {
  // One OR over all inputs (vectorised) instead of a test per tag.
  std::uint32_t any_bits = 0;
  for (std::size_t i = 0; i < count; ++i) any_bits |= tags[i].channel;
  if (any_bits > 3) throw Error(TT_ERR_INVALID_ARGUMENT, "tag input is out of range");
}

void TagFileWriter::write(const tt_tag* tags, std::size_t count, std::size_t& written) {
  written = 0;
  if (count == 0) return;
  if (closed_) {
    check_channels(tags, count);  // a bad input is reported before the closed state
    throw Error(TT_ERR_INVALID_STATE, "tag file writer is closed");
  }
  // All or nothing: tags past the first chunk are checked here, the first
  // chunk while it is encoded, and nothing is written before both passed.
  if (count > kChunkTags) check_channels(tags + kChunkTags, count - kChunkTags);
  while (written < count) {
    const std::size_t chunk = std::min(count - written, kChunkTags);
    encode_chunk(tags + written, chunk);
    write_encoded(chunk, written);
  }
}

// Writes the encoded chunk, rolling over to new parts as the limit demands.
void TagFileWriter::write_encoded(std::size_t chunk, std::size_t& written) {
  std::size_t done = 0;
  while (done < chunk) {
    const std::size_t fitting = tags_fitting_current_part(chunk - done);
    if (fitting == 0) {
      roll_over();
      continue;
    }
    writer_.write(words_.get() + done * kTagWordBytes, fitting * kTagWordBytes);
    done += fitting;
    tag_count_ += fitting;
    part_tag_count_ += fitting;
    written += fitting;
  }
}

// How many of the next `chunk` tags go into the current part; 0 means the
// part is full and the writer must roll over first.
std::size_t TagFileWriter::tags_fitting_current_part(std::size_t chunk) const {
  if (max_file_size_ == 0) return chunk;
  const auto limit = static_cast<std::uint64_t>(max_file_size_);
  const std::uint64_t used = writer_.file_bytes();
  if (part_tag_count_ == 0) {
    // A fresh part takes at least one tag, even past the limit.
    if (used >= limit || limit - used < kTagWordBytes) return 1;
  } else if (used + kTagWordBytes > limit) {
    return 0;
  }
  return static_cast<std::size_t>(std::min<std::uint64_t>((limit - used) / kTagWordBytes, chunk));
}

void TagFileWriter::roll_over() {
  writer_.close();
  closed_ = true;  // stays closed if the next part cannot be opened
  ++file_index_;
  current_path_ = detail::tag_file_part_path(base_path_, file_index_);
  part_tag_count_ = 0;
  writer_.open(current_path_, header_template_);
  closed_ = false;
}

void TagFileWriter::encode_chunk(const tt_tag* tags, std::size_t count) {
  const std::size_t bytes = count * kTagWordBytes;
  if (words_capacity_ < bytes) {
    words_ = std::make_unique_for_overwrite<std::uint8_t[]>(bytes);
    words_capacity_ = bytes;
  }
  std::uint32_t any_bits = 0;
  std::uint8_t* word = words_.get();
  for (std::size_t i = 0; i < count; ++i, word += kTagWordBytes) {
    any_bits |= tags[i].channel;
    detail::store_be64(encoder_.encode(tags[i].channel & 3u, tags[i].time_ps), word);
  }
  if (any_bits > 3) throw Error(TT_ERR_INVALID_ARGUMENT, "tag input is out of range");
}

void TagFileWriter::close() noexcept {
  writer_.close();
  closed_ = true;
}

}  // namespace zolt::timing
