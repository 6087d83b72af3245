#include "files/stream_file_reader.hpp"

#include <algorithm>
#include <cstring>

#include "api/error.hpp"
#include "files/json_header_codec.hpp"
#include "files/stream_file_format.hpp"

namespace zolt::timing {
namespace {

[[noreturn]] void fail(tt_status status, const std::string& message) { throw Error(status, message); }

constexpr std::size_t kHeaderReadPiece = 1 << 20;

}  // namespace

void StreamFileReader::open(const std::string& path) {
  if (in_.is_open()) in_.close();
  in_.clear();
  in_.open(path, std::ios::binary | std::ios::in);
  if (!in_.is_open()) fail(TT_ERR_IO, "StreamFileReader: cannot open " + path);
  try {
    read_header();
  } catch (...) {
    in_.close();  // a file that failed to open is not half open
    throw;
  }
  reset_decoding();
}

void StreamFileReader::read_header() {

  char magic[8];
  read_exact_or_throw(magic, sizeof magic, TT_ERR_IO, "StreamFileReader: truncated magic");
  const std::string_view seen(magic, sizeof magic);
  if (seen != kStreamFileMagic && seen != kStreamFileOldMagic) {
    fail(TT_ERR_PROTOCOL, "StreamFileReader: not an Zolt timing stream file");
  }
  unsigned char length_le[kStreamFileLengthBytes];
  read_exact_or_throw(reinterpret_cast<char*>(length_le), sizeof length_le, TT_ERR_IO,
                      "stream file: truncated header length");
  const std::uint32_t length = std::uint32_t{length_le[0]} | std::uint32_t{length_le[1]} << 8 |
                               std::uint32_t{length_le[2]} << 16 | std::uint32_t{length_le[3]} << 24;
  read_header_text(length);

  header_ = detail::stream_header_from_json(header_json_);
  payload_offset_ = kStreamFilePrefixBytes + std::uint64_t{length};
}

void StreamFileReader::read_exact_or_throw(char* data, std::size_t size, tt_status status, const char* message) {
  in_.read(data, static_cast<std::streamsize>(size));
  if (static_cast<std::size_t>(in_.gcount()) != size) fail(status, message);
}

// The length field is trusted without an upper bound, but the text grows only
// as bytes actually arrive, so a damaged length cannot make us allocate
// gigabytes for a file that ends a few bytes later.
void StreamFileReader::read_header_text(std::size_t length) {
  header_json_.clear();
  while (header_json_.size() < length) {
    const std::size_t have = header_json_.size();
    const std::size_t piece = std::min(length - have, kHeaderReadPiece);
    header_json_.resize(have + piece);
    read_exact_or_throw(header_json_.data() + have, piece, TT_ERR_IO, "StreamFileReader: truncated JSON header");
  }
}

std::size_t StreamFileReader::read_payload(void* buffer, std::size_t size) {
  if (!in_.is_open()) fail(TT_ERR_INVALID_STATE, "StreamFileReader: not open");
  if (in_.eof()) {
    in_.clear();
    return 0;
  }
  if (!buffer && size != 0) fail(TT_ERR_INVALID_ARGUMENT, "StreamFileReader: null buffer");
  in_.read(static_cast<char*>(buffer), static_cast<std::streamsize>(size));
  if (in_.bad()) fail(TT_ERR_IO, "StreamFileReader: payload read failed");
  const auto count = static_cast<std::size_t>(in_.gcount());
  if (in_.eof()) in_.clear();  // a short read at the end is not an error
  return count;
}

void StreamFileReader::rewind_payload() {
  if (!in_.is_open()) fail(TT_ERR_INVALID_STATE, "StreamFileReader: not open");
  in_.clear();
  in_.seekg(static_cast<std::streamoff>(payload_offset_));
  if (in_.fail()) fail(TT_ERR_IO, "StreamFileReader: failed to seek payload");
  reset_decoding();
}

void StreamFileReader::reset_decoding() {
  block_begin_ = block_end_ = 0;
  payload_exhausted_ = false;
  tag_words_.reset();
  stream_decoder_.reset();
  pending_.clear();
  pending_begin_ = 0;
  decoded_tag_count_ = 0;
  decoded_payload_bytes_ = 0;
}

void StreamFileReader::require_decodable() const {
  if (!in_.is_open()) fail(TT_ERR_INVALID_STATE, "StreamFileReader: not open");
}

// Tag files carry raw64 words in the "ps" tag format; that is the payload this
// reader decodes itself. Other encodings need the stream decoder.
bool StreamFileReader::holds_tag_words() const {
  return header_.stream_format == StreamFormat::raw64 && header_.raw64_tag_format == "ps";
}

std::size_t StreamFileReader::decode_next_tags(tt_tag* out, std::size_t capacity) {
  std::size_t count = 0;
  decode_next_tags(out, capacity, count);
  return count;
}

void StreamFileReader::decode_next_tags(tt_tag* out, std::size_t capacity, std::size_t& count) {
  require_decodable();
  if (holds_tag_words()) {
    decode_tag_words(out, capacity, count);
  } else {
    decode_with_stream_decoder(out, capacity, count);
  }
}

void StreamFileReader::decode_tag_words(tt_tag* out, std::size_t capacity, std::size_t& count) {
  while (count < capacity) {
    std::size_t produced = 0;
    block_begin_ += tag_words_.decode(block_.get() + block_begin_, block_end_ - block_begin_, out + count,
                                      capacity - count, produced);
    count += produced;
    decoded_tag_count_ += produced;
    if (count == capacity || !refill_block()) return;
  }
}

// The stream decoder takes whole blocks (it keeps what it cannot decode yet)
// and its tags wait in pending_ until they are asked for.
void StreamFileReader::decode_with_stream_decoder(tt_tag* out, std::size_t capacity, std::size_t& count) {
  for (;;) {
    count += take_pending(out + count, capacity - count);
    if (count == capacity) return;
    feed_block_to_stream_decoder();
    if (pending_begin_ < pending_.size()) continue;
    if (!refill_block()) {
      drain_stream_decoder();
      count += take_pending(out + count, capacity - count);
      return;
    }
  }
}

std::size_t StreamFileReader::take_pending(tt_tag* out, std::size_t capacity) {
  const std::size_t taken = std::min(pending_.size() - pending_begin_, capacity);
  const auto first = pending_.begin() + static_cast<std::ptrdiff_t>(pending_begin_);
  std::transform(first, first + static_cast<std::ptrdiff_t>(taken), out, to_public);
  pending_begin_ += taken;
  decoded_tag_count_ += taken;
  if (pending_begin_ == pending_.size()) {
    pending_.clear();
    pending_begin_ = 0;
  }
  return taken;
}

void StreamFileReader::feed_block_to_stream_decoder() {
  if (block_begin_ == block_end_) return;
  if (!stream_decoder_) stream_decoder_.emplace(header_);
  stream_decoder_->feed(std::span<const std::uint8_t>(block_.get() + block_begin_, block_end_ - block_begin_),
                        pending_);
  block_begin_ = block_end_;
}

// At the end of the payload: a packed decoder that dropped its lock stops at
// that record and decodes the rest only when called again, so it is called
// until its buffer stops shrinking.
void StreamFileReader::drain_stream_decoder() {
  if (!stream_decoder_) return;
  for (;;) {
    const std::size_t before = stream_decoder_->buffered_bytes();
    const std::size_t tags = stream_decoder_->feed(std::span<const std::uint8_t>(), pending_);
    if (tags == 0 && stream_decoder_->buffered_bytes() >= before) return;
  }
}

// Moves the unconsumed tail to the front and appends the next payload block.
// False when the payload has no more bytes.
bool StreamFileReader::refill_block() {
  if (payload_exhausted_) return false;
  if (!block_) block_ = std::make_unique_for_overwrite<std::uint8_t[]>(kCarryBytes + kDecodeBlockBytes);
  const std::size_t tail = block_end_ - block_begin_;
  if (tail > kCarryBytes) fail(TT_ERR_IO, "StreamFileReader: decoder left too many bytes");
  std::memmove(block_.get(), block_.get() + block_begin_, tail);
  block_begin_ = 0;
  const std::size_t got = read_payload(block_.get() + tail, kDecodeBlockBytes);
  block_end_ = tail + got;
  decoded_payload_bytes_ += got;
  if (got == 0) payload_exhausted_ = true;
  return got != 0;
}

}  // namespace zolt::timing
