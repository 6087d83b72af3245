#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <variant>
#include <vector>

#include "calibration/fine_lut.hpp"
#include "files/stream_file_header.hpp"
#include "stream/delta32_decoder.hpp"
#include "stream/packed_debug_log.hpp"
#include "stream/packed_delta_decoder.hpp"
#include "stream/raw64_decoder.hpp"
#include "stream/time_tag.hpp"

namespace zolt::timing {

// Turns the instrument's raw stream bytes into time tags. Bytes may arrive in
// chunks of any size, cut anywhere; what cannot be decoded yet is kept for
// the next call. One decoder per stream; not thread-safe.
class StreamDecoder {
 public:
  // Format, input mask, packed width and quantum, mode and raw64 word kind
  // come from the header.
  explicit StreamDecoder(const StreamFileHeader& header);
  // As above, with the packed-delta diagnostic lines sent to `debug_sink`
  // instead of standard error (whatever the environment says).
  StreamDecoder(const StreamFileHeader& header, PackedDebugLog::Sink debug_sink);

  // Decodes `bytes` after what is buffered and appends the tags to `out`.
  // Returns the number of tags appended.
  std::size_t feed(std::span<const std::uint8_t> bytes, std::vector<TimeTag>& out);
  std::vector<TimeTag> feed(std::span<const std::uint8_t> bytes);

  // Fine table of one input (0..3) for raw64 calibration-format words; other
  // formats carry no fine codes and do not use it.
  void set_fine_lut(unsigned channel, FineLut lut);

  StreamFormat format() const noexcept { return format_; }
  // Bytes kept for the next call.
  std::size_t buffered_bytes() const noexcept { return pending_.size(); }
  // Whether the decoder currently knows where records start (raw64: always).
  bool locked() const noexcept;

 private:
  using Impl = std::variant<Raw64Decoder, Delta32Decoder, PackedDeltaDecoder>;
  static Impl make_impl(const StreamFileHeader& header, PackedDebugLog log);
  std::size_t decode(const std::uint8_t* data, std::size_t size, std::vector<TimeTag>& out);

  StreamFormat format_;
  Impl impl_;
  std::vector<std::uint8_t> pending_;
};

// Whether raw64 payloads of a stream with this header hold calibration-format
// words ("raw_cf"; an empty format means raw_cf with the internal clock).
bool raw64_uses_calibration_words(const StreamFileHeader& header);

}  // namespace zolt::timing
