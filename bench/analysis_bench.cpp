// Throughput of the analysis functions on a realistic recording: ten million
// tags from four inputs with Poisson rates of 1, 2, 5 and 10 M tags/s, where
// half of the input-2 events have a partner on input 3 about 2 ns later
// (50 ps jitter), as from a photon-pair source.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "zolt_timing.h"

namespace {

constexpr std::size_t kTagCount = 10'000'000;

struct Recording {
  std::vector<tt_tag> tags;  // merged, in time order
  std::vector<std::int64_t> input2;
  std::vector<std::int64_t> input3;
  std::int64_t duration_ps = 0;
};

std::vector<std::int64_t> poisson_times(std::mt19937_64& rng, double rate_per_s, double duration_ps) {
  std::exponential_distribution<double> gap(rate_per_s * 1e-12);
  std::vector<std::int64_t> times;
  for (double t = gap(rng); t < duration_ps; t += gap(rng)) times.push_back(static_cast<std::int64_t>(t));
  return times;
}

Recording make_recording() {
  std::mt19937_64 rng(12345);
  const double total_rate = 1e6 + 2e6 + 5e6 + 10e6;
  const double duration_ps = 1.01e12 * static_cast<double>(kTagCount) / total_rate;
  std::vector<std::vector<std::int64_t>> inputs{poisson_times(rng, 1e6, duration_ps),
                                                poisson_times(rng, 2e6, duration_ps),
                                                poisson_times(rng, 5e6, duration_ps),
                                                poisson_times(rng, 7.5e6, duration_ps)};
  std::normal_distribution<double> jitter(2000.0, 50.0);
  std::bernoulli_distribution paired(0.5);
  for (const std::int64_t t : inputs[2]) {
    if (paired(rng)) inputs[3].push_back(t + static_cast<std::int64_t>(std::lround(jitter(rng))));
  }
  std::sort(inputs[3].begin(), inputs[3].end());

  Recording r;
  for (std::uint32_t input = 0; input < 4; ++input) {
    for (const std::int64_t t : inputs[input]) r.tags.push_back(tt_tag{input, t});
  }
  std::sort(r.tags.begin(), r.tags.end(), [](const tt_tag& a, const tt_tag& b) {
    return a.time_ps != b.time_ps ? a.time_ps < b.time_ps : a.channel < b.channel;
  });
  r.tags.resize(kTagCount);
  for (const tt_tag& tag : r.tags) {
    if (tag.channel == 2) r.input2.push_back(tag.time_ps);
    if (tag.channel == 3) r.input3.push_back(tag.time_ps);
  }
  r.duration_ps = r.tags.back().time_ps + 1;
  return r;
}

const Recording& recording() {
  static const Recording r = make_recording();
  return r;
}

void report_tags(benchmark::State& state, std::size_t tags_per_call) {
  state.counters["tags/s"] = benchmark::Counter(static_cast<double>(tags_per_call) * static_cast<double>(state.iterations()),
                                                benchmark::Counter::kIsRate);
}

void BM_AnalyzeCoincidences(benchmark::State& state) {
  std::vector<tt_tag> tags = recording().tags;
  if (state.range(0) != 0) std::shuffle(tags.begin(), tags.end(), std::mt19937_64(1));
  tt_coincidence_window_config config{};
  std::fill(std::begin(config.window_ps), std::end(config.window_ps), 1000);  // 1 ns half-windows
  tt_coincidence_analysis out{};
  for (auto _ : state) {
    if (tt_analyze_coincidences(tags.data(), tags.size(), &config, &out) != TT_OK) state.SkipWithError("failed");
    benchmark::DoNotOptimize(out);
  }
  report_tags(state, tags.size());
  state.counters["pairs23"] = static_cast<double>(out.pairs[5]);
}
BENCHMARK(BM_AnalyzeCoincidences)->ArgName("shuffled")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_CrossCorrelation(benchmark::State& state) {
  const Recording& r = recording();
  const std::int64_t range = 100'000, width = 100;  // +-100 ns in 100 ps bins
  std::size_t nbins = 0;
  zolt_analysis_xcorr_bin_count(range, width, &nbins);
  std::vector<std::uint64_t> counts(nbins);
  std::vector<std::int64_t> lags(nbins);
  for (auto _ : state) {
    if (zolt_analysis_cross_correlation(r.input2.data(), r.input2.size(), r.input3.data(), r.input3.size(), range,
                                        width, 0, counts.data(), lags.data(), nbins) != TT_OK) {
      state.SkipWithError("failed");
    }
    benchmark::DoNotOptimize(counts.data());
  }
  const double pairs = static_cast<double>(std::accumulate(counts.begin(), counts.end(), std::uint64_t{0}));
  report_tags(state, r.input2.size() + r.input3.size());
  state.counters["pairs/s"] =
      benchmark::Counter(pairs * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["pairs/call"] = pairs;
}
BENCHMARK(BM_CrossCorrelation)->Unit(benchmark::kMillisecond);

void BM_CountCoincidences(benchmark::State& state) {
  const Recording& r = recording();
  zolt_analysis_coincidence_counts out{};
  for (auto _ : state) {
    if (zolt_analysis_count_coincidences(r.tags.data(), r.tags.size(), 1000, nullptr, 0, &out) != TT_OK) {
      state.SkipWithError("failed");
    }
    benchmark::DoNotOptimize(out);
  }
  report_tags(state, r.tags.size());
}
BENCHMARK(BM_CountCoincidences)->Unit(benchmark::kMillisecond);

void BM_CountBins(benchmark::State& state) {
  const Recording& r = recording();
  const std::int64_t width = 1'000'000;  // 1 us bins over the whole recording
  const auto bins = static_cast<std::size_t>(r.duration_ps / width + 1);
  std::vector<std::uint64_t> out(4 * bins);
  for (auto _ : state) {
    if (zolt_analysis_count_bins(r.tags.data(), r.tags.size(), 4, 0, width, bins, out.data()) != TT_OK) {
      state.SkipWithError("failed");
    }
    benchmark::DoNotOptimize(out.data());
  }
  report_tags(state, r.tags.size());
}
BENCHMARK(BM_CountBins)->Unit(benchmark::kMillisecond);

}  // namespace
