#include "analysis/cross_correlation.hpp"

#include <algorithm>
#include <array>
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

// Counts pairs into the lag bins. q = difference / width in double
// precision, rounded half away from zero (q + 0.5 or q - 0.5, then
// truncated). The rounding is written without a branch on the sign of q:
// that sign is random from one pair to the next and would be mispredicted
// half of the time.
class LagBinner {
 public:
  LagBinner(std::int64_t width, std::int64_t half, std::uint64_t* counts)
      : width_(static_cast<double>(width)),
        half_(half),
        // trunc(x) lies in [-H, H] exactly when |x| < H + 1; capped at 2^63
        // so that the conversion below is always defined.
        limit_(std::min(static_cast<double>(half) + 1.0, 9223372036854775808.0)),
        counts_(counts) {}

  void add(double difference) noexcept {
    const double q = difference / width_;
    const double shifted = q + std::copysign(0.5, q);
    if (!(std::fabs(shifted) < limit_)) return;
    const auto k = static_cast<std::int64_t>(shifted);
    if (k < -half_ || k > half_) return;  // only for axes too long for doubles to hold H exactly
    ++counts_[static_cast<std::uint64_t>(k) + static_cast<std::uint64_t>(half_)];
    ++pairs_;
  }

  std::uint64_t pairs() const noexcept { return pairs_; }

 private:
  double width_;
  std::int64_t half_;
  double limit_;
  std::uint64_t* counts_;
  std::uint64_t pairs_ = 0;
};

// Walks, for every t of a, the times u of b in [t + offset - reach, t + offset
// + reach] with reach = H * width + floor(width / 2), the widest difference
// that can still round into the axis.
class Correlator {
 public:
  Correlator(std::span<const std::int64_t> b, const CorrelationAxis& axis, std::int64_t half, std::uint64_t* counts)
      : b_(b), offset_(axis.offset_ps), binner_(axis.bin_width_ps, half, counts) {
    reach_ = static_cast<WideTime>(half) * axis.bin_width_ps + axis.bin_width_ps / 2;
  }

  std::uint64_t run(std::span<const std::int64_t> a) {
    if (a.empty() || b_.empty()) return 0;
    if (fits_in_64_bits(a)) {
      run_narrow(a);
    } else {
      run_wide(a);
    }
    return binner_.pairs();
  }

 private:
  // True when every sum and difference below stays within 64 bits: any
  // realistic recording (times below 2^61 ps, about 27 days).
  bool fits_in_64_bits(std::span<const std::int64_t> a) const noexcept {
    constexpr std::int64_t kLimit = std::int64_t{1} << 61;
    const auto inside = [](std::span<const std::int64_t> times) {
      return times.front() > -kLimit && times.back() < kLimit;
    };
    return reach_ < kLimit && offset_ > -kLimit && offset_ < kLimit && inside(a) && inside(b_);
  }

  // The common case, tuned for throughput: rather than walking each t's
  // partners in a loop whose length changes from one t to the next (a
  // mispredicted branch per t), a fixed run of kRun times of b is examined
  // without branches and the differences of the partners are collected;
  // they are binned later in one long, predictable loop.
  void run_narrow(std::span<const std::int64_t> a) {
    const std::int64_t* cursor = b_.data();
    const std::int64_t* end = b_.data() + b_.size();
    const auto reach = static_cast<std::int64_t>(reach_);
    std::size_t used = 0;
    for (const std::int64_t t : a) {
      const std::int64_t centre = t + offset_;
      const std::int64_t first = centre - reach;
      const std::int64_t last = centre + reach;
      cursor = detail::first_not_below(cursor, end, first);
      if (used + kRun > differences_.size()) used = flush(used);
      if (end - cursor >= static_cast<std::ptrdiff_t>(kRun) && cursor[kRun - 1] > last) {
        std::size_t partners = 0;
        for (std::size_t j = 0; j < kRun; ++j) {
          differences_[used + j] = cursor[j] - centre;
          partners += cursor[j] <= last ? 1 : 0;
        }
        used += partners;
      } else {
        for (const std::int64_t* u = cursor; u != end && *u <= last; ++u) {
          if (used == differences_.size()) used = flush(used);
          differences_[used++] = *u - centre;
        }
      }
    }
    flush(used);
  }

  std::size_t flush(std::size_t used) {
    for (std::size_t i = 0; i < used; ++i) binner_.add(static_cast<double>(differences_[i]));
    return 0;
  }

  void run_wide(std::span<const std::int64_t> a) {
    const std::int64_t* cursor = b_.data();
    const std::int64_t* end = b_.data() + b_.size();
    for (const std::int64_t t : a) {
      const WideTime centre = static_cast<WideTime>(t) + offset_;
      cursor = detail::first_not_below(cursor, end, clamp(centre - reach_));
      const WideTime last = centre + reach_;
      for (const std::int64_t* u = cursor; u != end && *u <= last; ++u) {
        binner_.add(static_cast<double>(*u - centre));
      }
    }
  }

  static std::int64_t clamp(WideTime value) noexcept {
    return static_cast<std::int64_t>(std::clamp<WideTime>(value, detail::kMinTime, detail::kMaxTime));
  }

  static constexpr std::size_t kRun = 8;

  std::span<const std::int64_t> b_;
  std::int64_t offset_;
  LagBinner binner_;
  WideTime reach_ = 0;
  std::array<std::int64_t, 4096> differences_{};  // partner differences not yet binned
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
