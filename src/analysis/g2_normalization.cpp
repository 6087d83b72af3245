#include "analysis/g2_normalization.hpp"

#include <cmath>

namespace zolt::timing {
namespace {

bool positive_finite(double value) noexcept { return std::isfinite(value) && value > 0.0; }

}  // namespace

tt_status normalize_g2(const std::uint64_t* counts, std::size_t n, std::int64_t bin_width_ps,
                       const G2Factors& factors, double* out) {
  if (!positive_finite(factors.f1) || !positive_finite(factors.f2) || !positive_finite(factors.f3)) {
    return TT_ERR_INVALID_ARGUMENT;
  }
  if (bin_width_ps < 1) return TT_ERR_INVALID_ARGUMENT;
  const double norm = factors.f1 * factors.f2 * factors.f3 * static_cast<double>(bin_width_ps) * 1e-12;
  if (!positive_finite(norm)) return TT_ERR_INVALID_ARGUMENT;
  for (std::size_t i = 0; i < n; ++i) out[i] = static_cast<double>(counts[i]) / norm;
  return TT_OK;
}

}  // namespace zolt::timing
