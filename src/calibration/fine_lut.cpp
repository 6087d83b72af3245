#include "calibration/fine_lut.hpp"

#include <algorithm>

namespace zolt::timing {

FineLut FineLut::identity(long period_ps) {
  const std::int64_t cap = std::max<std::int64_t>(period_ps, 1) - 1;
  std::vector<std::int64_t> values(kSize);
  for (std::size_t code = 0; code < kSize; ++code) {
    values[code] = std::min<std::int64_t>((37 * static_cast<std::int64_t>(code) + 1) / 2, cap);
  }
  return FineLut(std::move(values));
}

}  // namespace zolt::timing
