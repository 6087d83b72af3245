#include "stream/stream_decoder.hpp"

#include <utility>

#include "api/error.hpp"

namespace zolt::timing {

bool raw64_uses_calibration_words(const StreamFileHeader& header) {
  if (header.raw64_tag_format.empty()) return header.mode == TimestampMode::internal;
  return header.raw64_tag_format == "raw_cf";
}

StreamDecoder::Impl StreamDecoder::make_impl(const StreamFileHeader& header, PackedDebugLog log) {
  switch (header.stream_format) {
    case StreamFormat::raw64:
      return Impl(std::in_place_type<Raw64Decoder>, raw64_uses_calibration_words(header));
    case StreamFormat::delta32:
      return Impl(std::in_place_type<Delta32Decoder>);
    case StreamFormat::packed_delta:
      return Impl(std::in_place_type<PackedDeltaDecoder>, header, std::move(log));
  }
  throw Error(TT_ERR_INVALID_ARGUMENT, "StreamDecoder: unknown stream format");
}

StreamDecoder::StreamDecoder(const StreamFileHeader& header)
    : format_(header.stream_format), impl_(make_impl(header, PackedDebugLog())) {}

StreamDecoder::StreamDecoder(const StreamFileHeader& header, PackedDebugLog::Sink debug_sink)
    : format_(header.stream_format), impl_(make_impl(header, PackedDebugLog(std::move(debug_sink)))) {}

std::size_t StreamDecoder::decode(const std::uint8_t* data, std::size_t size, std::vector<TimeTag>& out) {
  return std::visit([&](auto& impl) { return impl.decode(data, size, out); }, impl_);
}

// With nothing buffered the new bytes are decoded where they lie and only the
// undecoded tail is copied; otherwise they are appended to the buffer first.
std::size_t StreamDecoder::feed(std::span<const std::uint8_t> bytes, std::vector<TimeTag>& out) {
  const std::size_t before = out.size();
  if (pending_.empty()) {
    const std::size_t used = decode(bytes.data(), bytes.size(), out);
    pending_.assign(bytes.begin() + static_cast<std::ptrdiff_t>(used), bytes.end());
  } else {
    pending_.insert(pending_.end(), bytes.begin(), bytes.end());
    const std::size_t used = decode(pending_.data(), pending_.size(), out);
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(used));
  }
  return out.size() - before;
}

std::vector<TimeTag> StreamDecoder::feed(std::span<const std::uint8_t> bytes) {
  std::vector<TimeTag> out;
  feed(bytes, out);
  return out;
}

void StreamDecoder::set_fine_lut(unsigned channel, FineLut lut) {
  if (channel > 3) throw Error(TT_ERR_INVALID_ARGUMENT, "StreamDecoder: fine LUT input must be 0..3");
  if (auto* raw64 = std::get_if<Raw64Decoder>(&impl_)) raw64->set_fine_lut(channel, std::move(lut));
}

bool StreamDecoder::locked() const noexcept {
  if (const auto* delta32 = std::get_if<Delta32Decoder>(&impl_)) return delta32->locked();
  if (const auto* packed = std::get_if<PackedDeltaDecoder>(&impl_)) return packed->locked();
  return true;
}

}  // namespace zolt::timing
