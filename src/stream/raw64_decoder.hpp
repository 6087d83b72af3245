#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "calibration/fine_lut.hpp"
#include "stream/time_tag.hpp"

namespace zolt::timing {

// raw64 records: 8-byte words, either tag-stream words (picoseconds modulo
// the counter wrap) or calibration-format words (coarse count and fine code).
// Each input keeps its own epoch so that times grow across counter wraps.
class Raw64Decoder {
 public:
  explicit Raw64Decoder(bool calibration_words);

  // Decodes whole words from the start of data, appends tags to out and
  // returns the number of leading bytes used up; the rest (under 8 bytes)
  // belongs to the next word.
  std::size_t decode(const std::uint8_t* data, std::size_t size, std::vector<TimeTag>& out);

  // Table for calibration-format words of one input (0..3).
  void set_fine_lut(unsigned channel, FineLut lut);

 private:
  struct Channel {
    bool has_previous = false;
    std::uint64_t previous = 0;  // last time (tag words) or coarse count (calibration words)
    std::uint64_t epoch = 0;     // picoseconds (tag words) or coarse counts (calibration words)
  };

  std::size_t decode_tag_words(const std::uint8_t* data, std::size_t size, std::vector<TimeTag>& out);
  std::size_t decode_calibration_words(const std::uint8_t* data, std::size_t size,
                                       std::vector<TimeTag>& out);

  bool calibration_words_;
  std::array<Channel, 4> channels_{};
  std::vector<FineLut> luts_;  // one per input, calibration words only
};

}  // namespace zolt::timing
