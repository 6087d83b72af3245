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

void StreamFileReader::decode_next_tags(std::size_t max_tags, std::vector<TimeTag>& out) {
  require_decodable();
  const std::size_t start = out.size();
  const std::size_t until = start + std::min(max_tags, out.max_size() - start);
  take_pending(out, until);
  while (out.size() < until) {
    decode_block(out, until);
    if (out.size() >= until) break;
    if (!refill_block()) {
      drain_stream_decoder();
      take_pending(out, until);
      break;
    }
  }
  decoded_tag_count_ += out.size() - start;
}

void StreamFileReader::take_pending(std::vector<TimeTag>& out, std::size_t until) {
  const std::size_t available = pending_.size() - pending_begin_;
  const std::size_t taken = std::min(available, until - std::min(until, out.size()));
  out.insert(out.end(), pending_.begin() + static_cast<std::ptrdiff_t>(pending_begin_),
             pending_.begin() + static_cast<std::ptrdiff_t>(pending_begin_ + taken));
  pending_begin_ += taken;
  if (pending_begin_ == pending_.size()) {
    pending_.clear();
    pending_begin_ = 0;
  }
}

// One decode step over the unconsumed bytes of the current block, chosen by
// the payload's encoding. Tag words decode straight into out and stop at
// `until`; a decoder that turns a whole block into tags at once would put
// its surplus into pending_ instead.
void StreamFileReader::decode_block(std::vector<TimeTag>& out, std::size_t until) {
  if (!holds_tag_words()) {
    decode_block_with_stream_decoder();
    take_pending(out, until);
    return;
  }
  const std::size_t have = out.size();
  const std::size_t room = std::min(until - have, (block_end_ - block_begin_) / kTagWordBytes);
  if (room == 0) return;
  out.resize(have + room);
  std::size_t produced = 0;
  block_begin_ += tag_words_.decode(block_.get() + block_begin_, block_end_ - block_begin_, out.data() + have, room,
                                    produced);
  out.resize(have + produced);
}

// The stream decoder takes the whole block (it keeps what it cannot decode
// yet) and its tags wait in pending_.
void StreamFileReader::decode_block_with_stream_decoder() {
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
