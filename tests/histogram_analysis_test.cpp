// Bin histograms, cross-correlation, the peak estimate and g2 normalisation,
// against brute-force references and hand-worked values.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "zolt_timing.h"

namespace {

__extension__ typedef __int128 Wide;

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::uint64_t kPoison = 0xDEADBEEFDEADBEEFull;

std::vector<tt_tag> random_tags(std::mt19937_64& rng, int count, int max_channel, std::int64_t span) {
  std::vector<tt_tag> tags;
  for (int i = 0; i < count; ++i) {
    const auto channel = static_cast<std::uint32_t>(rng() % 7 == 0 ? 0xFFFFFFFFu : rng() % static_cast<unsigned>(max_channel + 1));
    tags.push_back(tt_tag{channel, std::uniform_int_distribution<std::int64_t>(-span, span)(rng)});
  }
  return tags;
}

// ---------------------------------------------------------------- count_bins

std::vector<std::uint64_t> brute_force_bins(const std::vector<tt_tag>& tags, int channels, std::int64_t start,
                                            std::int64_t width, std::size_t bins) {
  std::vector<std::uint64_t> out(static_cast<std::size_t>(channels) * bins, 0);
  for (std::size_t b = 0; b < bins; ++b) {
    const Wide lo = static_cast<Wide>(start) + static_cast<Wide>(b) * width;
    for (const tt_tag& tag : tags) {
      const auto input = static_cast<std::int32_t>(tag.channel);
      if (input >= 0 && input < channels && tag.time_ps >= lo && tag.time_ps < lo + width) {
        ++out[b * static_cast<std::size_t>(channels) + static_cast<std::size_t>(input)];
      }
    }
  }
  return out;
}

TEST(CountBins, MatchesBinsCountedOneByOne) {
  std::mt19937_64 rng(1);
  for (int round = 0; round < 800; ++round) {
    const std::vector<tt_tag> tags = random_tags(rng, static_cast<int>(rng() % 30), 5, 200);
    const int channels = 1 + static_cast<int>(rng() % 5);
    const std::int64_t start = std::uniform_int_distribution<std::int64_t>(-150, 50)(rng);
    const std::int64_t width = 1 + static_cast<std::int64_t>(rng() % 40);
    const std::size_t bins = 1 + rng() % 12;
    std::vector<std::uint64_t> out(static_cast<std::size_t>(channels) * bins, kPoison);
    ASSERT_EQ(zolt_analysis_count_bins(tags.data(), tags.size(), channels, start, width, bins, out.data()), TT_OK);
    EXPECT_EQ(out, brute_force_bins(tags, channels, start, width, bins)) << "round " << round;
    if (HasFailure()) return;
  }
}

TEST(CountBins, LayoutAndRangeEdges) {
  // Bin-major table, one channel only counts input 0, times before the start
  // and beyond the last bin are dropped, distances past 2^63 do not wrap.
  const std::vector<tt_tag> tags{{0, 0}, {1, 0}, {1, 15}, {0, 29}, {0, 30}, {0, -1}, {0, kMax}, {0, kMin}};
  std::vector<std::uint64_t> out(6, kPoison);
  ASSERT_EQ(zolt_analysis_count_bins(tags.data(), tags.size(), 2, 0, 10, 3, out.data()), TT_OK);
  EXPECT_EQ(out, (std::vector<std::uint64_t>{1, 1, 0, 1, 1, 0}));
  ASSERT_EQ(zolt_analysis_count_bins(tags.data(), tags.size(), 1, 0, 10, 3, out.data()), TT_OK);
  EXPECT_EQ(out[0], 1u);
  EXPECT_EQ(out[2], 1u);
  ASSERT_EQ(zolt_analysis_count_bins(tags.data(), tags.size(), 1, kMin, kMax, 3, out.data()), TT_OK);
  EXPECT_EQ(out[0] + out[1] + out[2], 6u) << "every input-0 time fits into three bins of 2^63 - 1";
  EXPECT_EQ(zolt_analysis_count_bins(nullptr, 0, 1, 0, 1, 1, out.data()), TT_OK);
  EXPECT_EQ(out[0], 0u);
}

TEST(CountBins, RejectsEveryBadArgumentAndLeavesOutAlone) {
  const std::vector<tt_tag> tags{{0, 5}};
  std::vector<std::uint64_t> out(4, kPoison);
  EXPECT_EQ(zolt_analysis_count_bins(nullptr, 1, 1, 0, 1, 4, out.data()), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_count_bins(tags.data(), 1, 0, 0, 1, 4, out.data()), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_count_bins(tags.data(), 1, -3, 0, 1, 4, out.data()), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_count_bins(tags.data(), 1, 1, 0, 0, 4, out.data()), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_count_bins(tags.data(), 1, 1, 0, -5, 4, out.data()), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_count_bins(tags.data(), 1, 1, 0, 1, 0, out.data()), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_count_bins(tags.data(), 1, 1, 0, 1, 4, nullptr), TT_ERR_INVALID_ARGUMENT);
  const std::size_t huge = std::numeric_limits<std::size_t>::max() / 2 + 1;
  EXPECT_EQ(zolt_analysis_count_bins(tags.data(), 1, 2, 0, 1, huge, out.data()), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(out, std::vector<std::uint64_t>(4, kPoison));
}

// --------------------------------------------------------- cross-correlation

// Lag bin of an exact difference, rounded half away from zero in integers.
std::int64_t rounded_lag(Wide difference, std::int64_t width) {
  if (difference >= 0) return static_cast<std::int64_t>((2 * difference + width) / (2 * static_cast<Wide>(width)));
  return -static_cast<std::int64_t>((-2 * difference + width) / (2 * static_cast<Wide>(width)));
}

std::vector<std::uint64_t> brute_force_correlation(const std::vector<std::int64_t>& a,
                                                   const std::vector<std::int64_t>& b, std::int64_t range,
                                                   std::int64_t width, std::int64_t offset) {
  const std::int64_t half = (range + width - 1) / width;
  std::vector<std::uint64_t> counts(static_cast<std::size_t>(2 * half + 1), 0);
  for (const std::int64_t t : a) {
    for (const std::int64_t u : b) {
      const std::int64_t k = rounded_lag(static_cast<Wide>(u) - t - offset, width);
      if (k >= -half && k <= half) ++counts[static_cast<std::size_t>(k + half)];
    }
  }
  return counts;
}

TEST(CrossCorrelation, BinCountExamplesAndChecks) {
  std::size_t bins = 77;
  EXPECT_EQ(zolt_analysis_xcorr_bin_count(1000, 300, &bins), TT_OK);
  EXPECT_EQ(bins, 9u);
  EXPECT_EQ(zolt_analysis_xcorr_bin_count(0, 300, &bins), TT_OK);
  EXPECT_EQ(bins, 1u);
  EXPECT_EQ(zolt_analysis_xcorr_bin_count(900, 300, &bins), TT_OK);
  EXPECT_EQ(bins, 7u);
  bins = 77;
  EXPECT_EQ(zolt_analysis_xcorr_bin_count(1000, 0, &bins), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_xcorr_bin_count(1000, -1, &bins), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_xcorr_bin_count(-1, 300, &bins), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_xcorr_bin_count(1000, 300, nullptr), TT_ERR_INVALID_ARGUMENT);
  // range + width - 1 wraps past 2^63: the half-count turns negative.
  EXPECT_EQ(zolt_analysis_xcorr_bin_count(kMax, 2, &bins), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(bins, 77u);
  EXPECT_EQ(zolt_analysis_xcorr_bin_count(kMax - 1, 2, &bins), TT_OK);
  EXPECT_EQ(bins, static_cast<std::size_t>(kMax)) << "H = 2^62 - 1";
}

TEST(CrossCorrelation, MatchesEveryPairCountedByBruteForce) {
  std::mt19937_64 rng(2);
  for (int round = 0; round < 1500; ++round) {
    std::vector<std::int64_t> a(rng() % 15), b(rng() % 15);
    const std::int64_t span = rng() % 4 == 0 ? 3 : 400;  // small span: duplicates
    for (auto& t : a) t = std::uniform_int_distribution<std::int64_t>(-span, span)(rng);
    for (auto& u : b) u = std::uniform_int_distribution<std::int64_t>(-span, span)(rng);
    if (rng() % 2 == 0) std::sort(b.begin(), b.end());
    const std::int64_t width = 1 + static_cast<std::int64_t>(rng() % 60);
    const std::int64_t range = static_cast<std::int64_t>(rng() % 300);
    const std::int64_t offset = std::uniform_int_distribution<std::int64_t>(-100, 100)(rng);
    std::size_t nbins = 0;
    ASSERT_EQ(zolt_analysis_xcorr_bin_count(range, width, &nbins), TT_OK);
    std::vector<std::uint64_t> counts(nbins, kPoison);
    std::vector<std::int64_t> lags(nbins, 0);
    const std::vector<std::int64_t> a_before = a;
    ASSERT_EQ(zolt_analysis_cross_correlation(a.data(), a.size(), b.data(), b.size(), range, width, offset,
                                              counts.data(), rng() % 2 ? lags.data() : nullptr, nbins),
              TT_OK);
    EXPECT_EQ(counts, brute_force_correlation(a, b, range, width, offset)) << "round " << round;
    EXPECT_EQ(a, a_before) << "the caller's array is sorted in a copy";
    if (HasFailure()) return;
  }
}

TEST(CrossCorrelation, DenseListsMatchTheBruteForceCount) {
  // Many partners per time and long jumps between them: every path through
  // the partner search and the collection of differences.
  std::mt19937_64 rng(8);
  for (const std::int64_t span : {std::int64_t{2000}, std::int64_t{200000}, std::int64_t{20000000}}) {
    std::vector<std::int64_t> a(300), b(3000);
    for (auto& t : a) t = std::uniform_int_distribution<std::int64_t>(0, span)(rng);
    for (auto& u : b) u = std::uniform_int_distribution<std::int64_t>(0, span)(rng);
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    std::vector<std::uint64_t> counts(21, kPoison);
    ASSERT_EQ(zolt_analysis_cross_correlation(a.data(), a.size(), b.data(), b.size(), 1000, 100, 37, counts.data(),
                                              nullptr, 21),
              TT_OK);
    EXPECT_EQ(counts, brute_force_correlation(a, b, 1000, 100, 37)) << "span " << span;
  }
}

TEST(CrossCorrelation, HalfBinsRoundAwayFromZeroAndLagsAreBinCentres) {
  // width 100, range 200: H = 2, bins centred on -200, -100, 0, 100, 200.
  const std::vector<std::int64_t> a{1000};
  const std::vector<std::int64_t> b{1050, 950, 1049, 951, 1150, 750, 749, 1251};
  std::vector<std::uint64_t> counts(5, kPoison);
  std::vector<std::int64_t> lags(5, 0);
  ASSERT_EQ(zolt_analysis_cross_correlation(a.data(), 1, b.data(), b.size(), 200, 100, 0, counts.data(),
                                            lags.data(), 5),
            TT_OK);
  EXPECT_EQ(lags, (std::vector<std::int64_t>{-200, -100, 0, 100, 200}));
  // +50 -> +1, -50 -> -1, +49/-49 -> 0, +150 -> +2, -250 -> -3 (dropped),
  // -251 dropped, +251 -> +3 dropped.
  EXPECT_EQ(counts, (std::vector<std::uint64_t>{0, 1, 2, 1, 1}));

  // The offset is subtracted from every difference.
  ASSERT_EQ(zolt_analysis_cross_correlation(a.data(), 1, b.data(), b.size(), 200, 100, 150, counts.data(),
                                            nullptr, 5),
            TT_OK);
  // Differences -100, -200, -101, -199, 0, -400, -401, +101.
  EXPECT_EQ(counts, (std::vector<std::uint64_t>{2, 2, 1, 1, 0}));
  EXPECT_EQ(counts, brute_force_correlation(a, b, 200, 100, 150));
}

TEST(CrossCorrelation, TimesAtTheEndsOfTheRangeAreCountedExactly) {
  // The shifted times t + offset leave the 64-bit range; the differences
  // themselves are small and must land in the right bins.
  const std::vector<std::int64_t> a{kMax - 10, kMin + 5, kMax};
  const std::vector<std::int64_t> b{kMax, kMax - 3, kMin, kMin + 40};
  for (const std::int64_t offset : {std::int64_t{0}, std::int64_t{20}, std::int64_t{-20}, kMax / 2}) {
    std::vector<std::uint64_t> counts(11, kPoison);
    ASSERT_EQ(zolt_analysis_cross_correlation(a.data(), a.size(), b.data(), b.size(), 50, 10, offset,
                                              counts.data(), nullptr, 11),
              TT_OK);
    EXPECT_EQ(counts, brute_force_correlation(a, b, 50, 10, offset)) << "offset " << offset;
  }
}

TEST(CrossCorrelation, RejectsEveryBadArgumentAndLeavesOutputsAlone) {
  const std::vector<std::int64_t> a{1, 2}, b{3};
  std::vector<std::uint64_t> counts(9, kPoison);
  std::vector<std::int64_t> lags(9, 42);
  auto call = [&](const std::int64_t* pa, std::size_t na, const std::int64_t* pb, std::size_t nb, std::int64_t range,
                  std::int64_t width, std::uint64_t* out, std::size_t nbins) {
    return zolt_analysis_cross_correlation(pa, na, pb, nb, range, width, 0, out, lags.data(), nbins);
  };
  EXPECT_EQ(call(nullptr, 1, b.data(), 1, 1000, 300, counts.data(), 9), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(call(a.data(), 2, nullptr, 1, 1000, 300, counts.data(), 9), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(call(a.data(), 2, b.data(), 1, 1000, 0, counts.data(), 9), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(call(a.data(), 2, b.data(), 1, -1, 300, counts.data(), 9), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(call(a.data(), 2, b.data(), 1, 1000, 300, nullptr, 9), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(call(a.data(), 2, b.data(), 1, 1000, 300, counts.data(), 8), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(call(a.data(), 2, b.data(), 1, 1000, 300, counts.data(), 10), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(call(a.data(), 2, b.data(), 1, kMax, 2, counts.data(), 9), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(counts, std::vector<std::uint64_t>(9, kPoison));
  EXPECT_EQ(lags, std::vector<std::int64_t>(9, 42));
  // Empty lists are fine: a zeroed histogram.
  EXPECT_EQ(call(nullptr, 0, nullptr, 0, 1000, 300, counts.data(), 9), TT_OK);
  EXPECT_EQ(counts, std::vector<std::uint64_t>(9, 0));
}

// ------------------------------------------------------------ peak estimate

zolt_analysis_gaussian_fit poisoned_fit() {
  zolt_analysis_gaussian_fit fit;
  std::memset(&fit, 0x5A, sizeof fit);
  return fit;
}

bool all_zero(const zolt_analysis_gaussian_fit& fit) {
  const zolt_analysis_gaussian_fit zero{};
  return std::memcmp(&fit, &zero, sizeof fit) == 0;
}

TEST(GaussianPeak, WeightedMomentsOfAPeakOnABaseline) {
  const std::vector<std::int64_t> x{0, 10, 20, 30, 40};
  const std::vector<std::uint64_t> y{1, 3, 7, 3, 1};
  zolt_analysis_gaussian_fit fit = poisoned_fit();
  ASSERT_EQ(zolt_analysis_fit_gaussian_peak(x.data(), y.data(), 5, 0, &fit), TT_OK);
  // Baseline 1: the two edge points weigh their full count 1, the others
  // 2, 6, 2. W = 12, mean 20, variance (400 + 200 + 200 + 400) / 12 = 100.
  EXPECT_EQ(fit.valid, 1u);
  EXPECT_EQ(fit.points, 5u);
  EXPECT_DOUBLE_EQ(fit.mean, 20.0);
  EXPECT_DOUBLE_EQ(fit.sigma, 10.0);
  EXPECT_DOUBLE_EQ(fit.fwhm, 23.548200450309493);
  EXPECT_DOUBLE_EQ(fit.amplitude, 6.0);
  EXPECT_DOUBLE_EQ(fit.baseline, 1.0);
  EXPECT_DOUBLE_EQ(fit.area, 120.0);

  // Within 10 of the peak: 3, 7, 3 on baseline 3 -> weights 3, 4, 3.
  ASSERT_EQ(zolt_analysis_fit_gaussian_peak(x.data(), y.data(), 5, 10, &fit), TT_OK);
  EXPECT_EQ(fit.points, 3u);
  EXPECT_DOUBLE_EQ(fit.mean, 20.0);
  EXPECT_DOUBLE_EQ(fit.sigma, std::sqrt(60.0));
  EXPECT_DOUBLE_EQ(fit.amplitude, 4.0);
  EXPECT_DOUBLE_EQ(fit.baseline, 3.0);
  EXPECT_DOUBLE_EQ(fit.area, 100.0) << "spacing is taken over all positions";
}

TEST(GaussianPeak, FlatSinglePointAndTiedHistograms) {
  zolt_analysis_gaussian_fit fit = poisoned_fit();
  // Flat: every point sits on the baseline and weighs its whole count.
  const std::vector<std::int64_t> flat_x{0, 1, 2};
  const std::vector<std::uint64_t> flat_y{5, 5, 5};
  ASSERT_EQ(zolt_analysis_fit_gaussian_peak(flat_x.data(), flat_y.data(), 3, 0, &fit), TT_OK);
  EXPECT_DOUBLE_EQ(fit.mean, 1.0);
  EXPECT_DOUBLE_EQ(fit.sigma, std::sqrt(2.0 / 3.0));
  EXPECT_DOUBLE_EQ(fit.amplitude, 0.0);
  EXPECT_DOUBLE_EQ(fit.area, 15.0);

  // One point: no width, area is the weight itself.
  const std::int64_t one_x = 7;
  const std::uint64_t one_y = 4;
  ASSERT_EQ(zolt_analysis_fit_gaussian_peak(&one_x, &one_y, 1, 0, &fit), TT_OK);
  EXPECT_EQ(fit.valid, 0u);
  EXPECT_EQ(fit.points, 1u);
  EXPECT_DOUBLE_EQ(fit.mean, 7.0);
  EXPECT_DOUBLE_EQ(fit.sigma, 0.0);
  EXPECT_DOUBLE_EQ(fit.fwhm, 0.0);
  EXPECT_DOUBLE_EQ(fit.area, 4.0);

  // Equal maxima: the first one is the peak that the range is measured from.
  const std::vector<std::int64_t> tie_x{0, 100, 200};
  const std::vector<std::uint64_t> tie_y{2, 5, 5};
  ASSERT_EQ(zolt_analysis_fit_gaussian_peak(tie_x.data(), tie_y.data(), 3, 50, &fit), TT_OK);
  EXPECT_EQ(fit.points, 1u);
  EXPECT_DOUBLE_EQ(fit.mean, 100.0);

  // Unordered and repeated positions: only positive neighbour steps make the
  // spacing (30 -> 10 is skipped, 10 -> 20 counts), none at all means 1.
  const std::vector<std::int64_t> unordered_x{30, 10, 20};
  const std::vector<std::uint64_t> unordered_y{1, 1, 2};
  ASSERT_EQ(zolt_analysis_fit_gaussian_peak(unordered_x.data(), unordered_y.data(), 3, 0, &fit), TT_OK);
  EXPECT_DOUBLE_EQ(fit.area, 3.0 * 10.0);  // weights 1 (full), 1 (full), 1 (above baseline 1)
  const std::vector<std::int64_t> same_x{5, 5};
  const std::vector<std::uint64_t> same_y{1, 3};
  ASSERT_EQ(zolt_analysis_fit_gaussian_peak(same_x.data(), same_y.data(), 2, 0, &fit), TT_OK);
  EXPECT_DOUBLE_EQ(fit.area, 1.0 + 2.0);

  // Nothing counted: the zero result.
  const std::vector<std::uint64_t> empty_y{0, 0, 0};
  fit = poisoned_fit();
  ASSERT_EQ(zolt_analysis_fit_gaussian_peak(flat_x.data(), empty_y.data(), 3, 0, &fit), TT_OK);
  EXPECT_TRUE(all_zero(fit));
}

TEST(GaussianPeak, RejectsBadArgumentsZeroingOnlyAfterThePointerChecks) {
  const std::vector<std::int64_t> x{0, 1};
  const std::vector<std::uint64_t> y{1, 2};
  const zolt_analysis_gaussian_fit poison = poisoned_fit();
  zolt_analysis_gaussian_fit fit = poison;
  EXPECT_EQ(zolt_analysis_fit_gaussian_peak(nullptr, nullptr, 0, 0, nullptr), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_fit_gaussian_peak(nullptr, y.data(), 2, 0, &fit), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_fit_gaussian_peak(x.data(), nullptr, 2, 0, &fit), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_fit_gaussian_peak(x.data(), y.data(), 2, 0, nullptr), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(std::memcmp(&fit, &poison, sizeof fit), 0);
  EXPECT_EQ(zolt_analysis_fit_gaussian_peak(x.data(), y.data(), 2, -1, &fit), TT_ERR_INVALID_ARGUMENT);
  EXPECT_TRUE(all_zero(fit));
  fit = poison;
  EXPECT_EQ(zolt_analysis_fit_gaussian_peak(nullptr, nullptr, 0, -1, &fit), TT_ERR_INVALID_ARGUMENT);
  EXPECT_TRUE(all_zero(fit));
  fit = poison;
  EXPECT_EQ(zolt_analysis_fit_gaussian_peak(nullptr, nullptr, 0, 0, &fit), TT_OK);
  EXPECT_TRUE(all_zero(fit));
}

// ------------------------------------------------------------------------ g2

TEST(NormalizeG2, DividesByTheAccidentalRateAndRejectsBadFactors) {
  const std::vector<std::uint64_t> counts{0, 10, 20};
  std::vector<double> out(3, -1.0);
  // 1e6/s * 2e6/s * 10 s * 1000 ps = 2e4 accidental counts per bin.
  ASSERT_EQ(zolt_analysis_normalize_g2(counts.data(), 3, 1000, out.data(), 1e6, 2e6, 10.0), TT_OK);
  EXPECT_DOUBLE_EQ(out[0], 0.0);
  EXPECT_DOUBLE_EQ(out[1], 5e-4);
  EXPECT_DOUBLE_EQ(out[2], 1e-3);
  std::vector<double> reordered(3, -1.0);
  ASSERT_EQ(zolt_analysis_normalize_g2(counts.data(), 3, 1000, reordered.data(), 10.0, 1e6, 2e6), TT_OK);
  EXPECT_EQ(reordered, out);

  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  std::fill(out.begin(), out.end(), -1.0);
  EXPECT_EQ(zolt_analysis_normalize_g2(nullptr, 3, 1000, out.data(), 1, 1, 1), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_normalize_g2(counts.data(), 3, 1000, nullptr, 1, 1, 1), TT_ERR_INVALID_ARGUMENT);
  for (const double bad : {0.0, -1.0, inf, -inf, nan}) {
    EXPECT_EQ(zolt_analysis_normalize_g2(counts.data(), 3, 1000, out.data(), bad, 1, 1), TT_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(zolt_analysis_normalize_g2(counts.data(), 3, 1000, out.data(), 1, bad, 1), TT_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(zolt_analysis_normalize_g2(counts.data(), 3, 1000, out.data(), 1, 1, bad), TT_ERR_INVALID_ARGUMENT);
  }
  EXPECT_EQ(zolt_analysis_normalize_g2(counts.data(), 3, 0, out.data(), 1, 1, 1), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_normalize_g2(counts.data(), 3, 1000, out.data(), 1e200, 1e200, 1), TT_ERR_INVALID_ARGUMENT)
      << "the norm overflows";
  EXPECT_EQ(zolt_analysis_normalize_g2(counts.data(), 3, 1, out.data(), 1e-200, 1e-200, 1), TT_ERR_INVALID_ARGUMENT)
      << "the norm underflows to 0";
  EXPECT_EQ(out, std::vector<double>(3, -1.0));
  EXPECT_EQ(zolt_analysis_normalize_g2(nullptr, 0, 1, out.data(), 1, 1, 1), TT_OK);
}

TEST(AnalysisVersion, IsTheLibraryVersion) { EXPECT_STREQ(zolt_analysis_version(), "0.3.0"); }

}  // namespace
