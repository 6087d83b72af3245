#include "analysis/cross_correlation.hpp"

#include <algorithm>
#include <cmath>

#include "analysis/clamped_math.hpp"
#include "analysis/sorted_times.hpp"

namespace zolt::timing {
namespace {

__extension__ typedef __int128 WideTime;

// ceil(range / width) with the historical wrap-around of range + width - 1;
// negative means the axis is too long to represent.
std::int64_t half_bin_count(std::int64_t range_ps, std::int64_t bin_width_ps) noexcept {
  const std::int64_t numerator = detail::plus_wrapping(range_ps, bin_width_ps - 1);
  return numerator / bin_width_ps;
}

// Lag bin of one difference: q = difference / width in double precision,
// rounded half away from zero (q + 0.5 or q - 0.5, then truncated). Returns
// false when it falls outside the axis.
inline bool lag_bin(double difference, double width, std::int64_t half, std::size_t& bin) noexcept {
  const double q = difference / width;
  const double shifted = q >= 0.0 ? q + 0.5 : q - 0.5;
  if (!(std::fabs(shifted) < 9.2e18)) return false;  // beyond any axis (keeps the conversion defined)
  const auto k = static_cast<std::int64_t>(shifted);
  if (k < -half || k > half) return false;
  bin = static_cast<std::size_t>(static_cast<std::uint64_t>(k) + static_cast<std::uint64_t>(half));
  return true;
}

class Correlator {
 public:
  Correlator(std::span<const std::int64_t> b, const CorrelationAxis& axis, std::int64_t half, std::uint64_t* counts)
      : b_(b), axis_(axis), half_(half), counts_(counts), width_(static_cast<double>(axis.bin_width_ps)) {
    reach_ = static_cast<WideTime>(half) * axis.bin_width_ps + axis.bin_width_ps / 2;
    // Differences stay within 64 bits when every sum below does; that is
    // every realistic recording, and it keeps the inner loop on plain integers.
    narrow_ = reach_ < (WideTime{1} << 61) && detail::magnitude(axis.offset_ps) < (std::uint64_t{1} << 61);
  }

  std::uint64_t run(std::span<const std::int64_t> a) {
    if (a.empty() || b_.empty()) return 0;
    narrow_ = narrow_ && fits_narrow(a) && fits_narrow(b_);
    const std::int64_t* cursor = b_.data();
    for (const std::int64_t t : a) {
      const WideTime centre = static_cast<WideTime>(t) + axis_.offset_ps;
      cursor = detail::first_not_below(cursor, b_.data() + b_.size(), clamp(centre - reach_));
      if (narrow_) {
        walk_narrow(cursor, static_cast<std::int64_t>(centre));
      } else {
        walk_wide(cursor, centre);
      }
    }
    return pairs_;
  }

 private:
  static bool fits_narrow(std::span<const std::int64_t> times) noexcept {
    constexpr std::int64_t kLimit = std::int64_t{1} << 61;
    return times.front() > -kLimit && times.back() < kLimit;
  }

  static std::int64_t clamp(WideTime value) noexcept {
    return static_cast<std::int64_t>(std::clamp<WideTime>(value, detail::kMinTime, detail::kMaxTime));
  }

  void walk_narrow(const std::int64_t* u, std::int64_t centre) {
    const std::int64_t* end = b_.data() + b_.size();
    const std::int64_t last = centre + static_cast<std::int64_t>(reach_);
    for (; u != end && *u <= last; ++u) count(static_cast<double>(*u - centre));
  }

  void walk_wide(const std::int64_t* u, WideTime centre) {
    const std::int64_t* end = b_.data() + b_.size();
    const WideTime last = centre + reach_;
    for (; u != end && *u <= last; ++u) count(static_cast<double>(*u - centre));
  }

  void count(double difference) {
    std::size_t bin = 0;
    if (lag_bin(difference, width_, half_, bin)) {
      ++counts_[bin];
      ++pairs_;
    }
  }

  std::span<const std::int64_t> b_;
  const CorrelationAxis& axis_;
  std::int64_t half_;
  std::uint64_t* counts_;
  double width_;
  WideTime reach_ = 0;  // H * width + floor(width / 2)
  bool narrow_ = true;
  std::uint64_t pairs_ = 0;
};

}  // namespace

tt_status correlation_bin_count(std::int64_t range_ps, std::int64_t bin_width_ps, std::size_t& bins) {
  if (bin_width_ps <= 0 || range_ps < 0) return TT_ERR_INVALID_ARGUMENT;
  const std::int64_t half = half_bin_count(range_ps, bin_width_ps);
  if (half < 0) return TT_ERR_INVALID_ARGUMENT;
  bins = 2 * static_cast<std::size_t>(half) + 1;
  return TT_OK;
}

tt_status cross_correlate(CorrelationInput a, CorrelationInput b, const CorrelationAxis& axis, std::uint64_t* counts,
                          std::int64_t* lags, std::size_t nbins, std::uint64_t* pairs_counted) {
  std::size_t expected = 0;
  if (correlation_bin_count(axis.range_ps, axis.bin_width_ps, expected) != TT_OK) return TT_ERR_INVALID_ARGUMENT;
  if (nbins != expected) return TT_ERR_INVALID_ARGUMENT;
  const std::int64_t half = half_bin_count(axis.range_ps, axis.bin_width_ps);
  std::fill_n(counts, nbins, std::uint64_t{0});
  if (lags != nullptr) {
    for (std::size_t i = 0; i < nbins; ++i) {
      lags[i] = (static_cast<std::int64_t>(i) - half) * axis.bin_width_ps;
    }
  }
  const detail::SortedTimes sorted_a(a.times, a.count);
  const detail::SortedTimes sorted_b(b.times, b.count);
  const std::uint64_t pairs = Correlator(sorted_b.times(), axis, half, counts).run(sorted_a.times());
  if (pairs_counted != nullptr) *pairs_counted = pairs;
  return TT_OK;
}

}  // namespace zolt::timing
