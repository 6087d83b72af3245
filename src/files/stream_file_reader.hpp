#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "files/stream_file_header.hpp"
#include "files/tag_word.hpp"
#include "stream/stream_decoder.hpp"
#include "stream/time_tag.hpp"

namespace zolt::timing {

// Reads a stream file: the header at open, then the payload as raw bytes or
// as decoded tags. Every failure throws Error with the reader's message.
class StreamFileReader {
 public:
  static constexpr std::size_t kDecodeBlockBytes = 1 << 20;
  // Room in front of a block for the unfinished word carried over.
  static constexpr std::size_t kCarryBytes = 64;

  // Opens path and reads magic, length and JSON header; the stream is then
  // positioned at the payload and the decoding state is fresh.
  void open(const std::string& path);

  // Reads up to size payload bytes; 0 at the end of the file, any number of
  // times.
  std::size_t read_payload(void* buffer, std::size_t size);

  // Back to the first payload byte, with fresh decoding state.
  void rewind_payload();

  // Decodes the next tags into out[0, capacity); fewer only at the end of the
  // payload. Tag-file payloads (raw64, "ps") are decoded here, straight into
  // out; the other encodings go through a StreamDecoder built from the header.
  std::size_t decode_next_tags(tt_tag* out, std::size_t capacity);
  // Fills out[count, capacity) in the same way, advancing count as tags are
  // delivered: when a read failure interrupts it, count still tells how many
  // of out are valid.
  void decode_next_tags(tt_tag* out, std::size_t capacity, std::size_t& count);

  bool is_open() const { return in_.is_open(); }
  // Whether the payload is tag words (raw64 in the "ps" tag format), as in
  // tag files.
  bool holds_tag_words() const;
  const StreamFileHeader& header() const { return header_; }
  const std::string& header_json() const { return header_json_; }
  std::uint64_t payload_offset() const { return payload_offset_; }
  // Payload bytes read for decoding since open or the last rewind.
  std::uint64_t decoded_payload_bytes() const { return decoded_payload_bytes_; }
  // Tags handed out by decode_next_tags since open or the last rewind.
  std::uint64_t decoded_tag_count() const { return decoded_tag_count_; }

 private:
  void read_header();
  void read_exact_or_throw(char* data, std::size_t size, tt_status status, const char* message);
  void read_header_text(std::size_t length);
  void reset_decoding();
  void require_decodable() const;
  bool refill_block();
  void decode_tag_words(tt_tag* out, std::size_t capacity, std::size_t& count);
  void decode_with_stream_decoder(tt_tag* out, std::size_t capacity, std::size_t& count);
  std::size_t take_pending(tt_tag* out, std::size_t capacity);
  void feed_block_to_stream_decoder();
  void drain_stream_decoder();

  std::ifstream in_;
  StreamFileHeader header_;
  std::string header_json_;
  std::uint64_t payload_offset_ = 0;

  // Decoding state. Payload bytes are read in blocks; bytes of a block the
  // decoder has not consumed yet (at most an unfinished word at its end) are
  // carried to the front of the next block.
  // Allocated on first use and not zero-filled: only the pages a read fills
  // are ever touched, which keeps small files cheap to open and read.
  std::unique_ptr<std::uint8_t[]> block_;
  std::size_t block_begin_ = 0;
  std::size_t block_end_ = 0;
  bool payload_exhausted_ = false;
  TagWordDecoder tag_words_;
  // For raw64 calibration words, delta32 and packed delta; made on first use.
  std::optional<StreamDecoder> stream_decoder_;
  // Tags decoded but not yet handed out: a decoder that turns a whole block
  // into tags at once leaves the surplus here.
  std::vector<TimeTag> pending_;
  std::size_t pending_begin_ = 0;
  std::uint64_t decoded_tag_count_ = 0;
  std::uint64_t decoded_payload_bytes_ = 0;
};

}  // namespace zolt::timing
