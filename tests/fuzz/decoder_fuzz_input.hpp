#pragma once

// Shared by the decoder fuzz targets: the first bytes of an input choose the
// header settings and chunk sizes, the rest is the stream.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "stream/stream_decoder.hpp"

namespace zolt::timing::fuzz {

inline void decode_in_chunks(StreamFormat format, const std::uint8_t* data, std::size_t size) {
  if (size < 3) return;
  StreamFileHeader header;
  header.stream_format = format;
  header.channel_mask = data[0] & 0x0F;
  header.mode = (data[0] & 0x10) ? TimestampMode::internal : TimestampMode::external;
  header.raw64_tag_format = (data[0] & 0x20) ? "raw_cf" : "ps";
  header.delta_bits = (data[0] & 0x40) ? static_cast<std::uint8_t>(data[1] % 40) : 16;
  const std::size_t chunk = 1 + data[2] * 7U;
  StreamDecoder decoder(header, [](std::string_view) {});
  std::vector<TimeTag> tags;
  const std::span<const std::uint8_t> stream(data + 3, size - 3);
  for (std::size_t at = 0; at < stream.size(); at += chunk) {
    decoder.feed(stream.subspan(at, std::min(chunk, stream.size() - at)), tags);
  }
  decoder.feed(std::span<const std::uint8_t>(), tags);
  for (const TimeTag& tag : tags) {
    if (tag.channel > 3) __builtin_trap();
  }
}

}  // namespace zolt::timing::fuzz
