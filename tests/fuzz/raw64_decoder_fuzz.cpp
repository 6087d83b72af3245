#include <algorithm>

#include "decoder_fuzz_input.hpp"
#include "stream/raw64_look_ahead.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zolt::timing::fuzz::decode_in_chunks(zolt::timing::StreamFormat::raw64, data, size);
  // The single-record reader over the same bytes, a few at a time.
  if (size == 0) return 0;
  zolt::timing::Raw64LookAhead reader((data[0] & 1) != 0);
  tt_raw64_tag tag{};
  for (std::size_t at = 1; at < size;) {
    const std::size_t n = std::min({reader.space(), size - at, std::size_t{1} + data[at] % 13});
    std::copy_n(data + at, n, reader.write_position());
    reader.commit(n);
    at += n;
    while (reader.take(tag)) {
      if (tag.channel > 3) __builtin_trap();
    }
  }
  return 0;
}
