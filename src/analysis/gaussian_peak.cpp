#include "analysis/gaussian_peak.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

namespace zolt::timing {
namespace {

constexpr double kFwhmPerSigma = 2.3548200450309493;

__extension__ typedef __int128 WideSum;

std::size_t peak_index(const std::uint64_t* counts, std::size_t n) {
  return static_cast<std::size_t>(std::max_element(counts, counts + n) - counts);  // first among equals
}

bool within_range(std::int64_t position, std::int64_t peak_position, std::int64_t fit_range) {
  if (fit_range == 0) return true;
  return std::fabs(static_cast<double>(position) - static_cast<double>(peak_position)) <=
         static_cast<double>(fit_range);
}

// A point's weight is its height above the baseline; a point at the baseline
// weighs its whole count instead. That makes a flat histogram a plain
// count-weighted average; the rule is kept exactly as users have calibrated
// against it.
double weight_of(std::uint64_t count, std::uint64_t baseline) {
  const std::uint64_t above = count - baseline;  // baseline is the minimum of the chosen points
  return static_cast<double>(above > 0 ? above : count);
}

// Mean of the positive spacings between neighbouring positions, 1 when there
// is none.
double mean_positive_spacing(const std::int64_t* positions, std::size_t n) {
  WideSum sum = 0;
  std::uint64_t gaps = 0;
  for (std::size_t i = 1; i < n; ++i) {
    const WideSum gap = static_cast<WideSum>(positions[i]) - positions[i - 1];
    if (gap > 0) {
      sum += gap;
      ++gaps;
    }
  }
  return gaps == 0 ? 1.0 : static_cast<double>(sum) / static_cast<double>(gaps);
}

}  // namespace

zolt_analysis_gaussian_fit estimate_gaussian_peak(const std::int64_t* positions, const std::uint64_t* counts,
                                                  std::size_t n, std::int64_t fit_range) {
  zolt_analysis_gaussian_fit fit{};
  if (n == 0) return fit;
  const std::size_t peak = peak_index(counts, n);
  if (counts[peak] == 0) return fit;

  std::vector<std::size_t> chosen;
  for (std::size_t i = 0; i < n; ++i) {
    if (within_range(positions[i], positions[peak], fit_range)) chosen.push_back(i);
  }
  fit.points = chosen.size();
  if (chosen.empty()) return fit;

  std::uint64_t baseline = counts[chosen.front()];
  for (const std::size_t i : chosen) baseline = std::min(baseline, counts[i]);

  double weight_sum = 0.0;
  double weighted_position = 0.0;
  for (const std::size_t i : chosen) {
    if (counts[i] == 0) continue;
    const double w = weight_of(counts[i], baseline);
    weight_sum += w;
    weighted_position += w * static_cast<double>(positions[i]);
  }
  if (weight_sum <= 0.0) return fit;
  fit.mean = weighted_position / weight_sum;

  double weighted_square = 0.0;
  for (const std::size_t i : chosen) {
    if (counts[i] == 0) continue;
    const double deviation = static_cast<double>(positions[i]) - fit.mean;
    weighted_square += weight_of(counts[i], baseline) * deviation * deviation;
  }
  const double variance = weighted_square / weight_sum;
  if (variance > 0.0) {
    fit.sigma = std::sqrt(variance);
    fit.fwhm = kFwhmPerSigma * fit.sigma;
    fit.valid = 1;
  }
  fit.area = n == 1 ? weight_sum : weight_sum * mean_positive_spacing(positions, n);
  fit.amplitude = static_cast<double>(counts[peak] - baseline);
  fit.baseline = static_cast<double>(baseline);
  return fit;
}

}  // namespace zolt::timing
