#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace zolt::timing {

// Picoseconds per fine code of one delay line: entry c is the time that fine
// code c stands for within one coarse period. Always kSize entries.
class FineLut {
 public:
  static constexpr std::size_t kSize = 8192;

  // The table used until a calibration is loaded: 18.5 ps per code (halves
  // rounded up), capped one below the period.
  static FineLut identity(long period_ps);

  std::int64_t operator[](std::size_t code) const noexcept { return values_[code]; }
  std::size_t size() const noexcept { return values_.size(); }
  const std::int64_t* data() const noexcept { return values_.data(); }

 private:
  explicit FineLut(std::vector<std::int64_t> values) : values_(std::move(values)) {}

  std::vector<std::int64_t> values_;
};

}  // namespace zolt::timing
