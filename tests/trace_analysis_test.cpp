// Frequency traces and the streaming coincidence count, against references
// written from their definitions.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "zolt_timing.h"

namespace {

__extension__ typedef __int128 Wide;

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

// ---------------------------------------------------------- frequency trace

std::vector<zolt_analysis_frequency_point> reference_trace(std::vector<std::int64_t> times, std::int64_t window) {
  std::vector<zolt_analysis_frequency_point> points;
  if (times.empty()) return points;
  std::sort(times.begin(), times.end());
  const std::int64_t t0 = times.front();
  const std::int64_t open_window = (times.back() - t0) / window;
  for (std::int64_t k = 0; k < open_window; ++k) {
    zolt_analysis_frequency_point p{};
    p.time_s = static_cast<double>((k + 1) * window) / 1e12;
    for (const std::int64_t t : times) {
      if (t < t0 + k * window || t >= t0 + (k + 1) * window) continue;
      if (p.count++ == 0) p.first_ps = t;
      p.last_ps = t;
    }
    if (p.count >= 2 && p.last_ps > p.first_ps) {
      p.frequency_hz = static_cast<double>(p.count - 1) * 1e12 / static_cast<double>(p.last_ps - p.first_ps);
    }
    points.push_back(p);
  }
  return points;
}

void expect_same_points(const std::vector<zolt_analysis_frequency_point>& got,
                        const std::vector<zolt_analysis_frequency_point>& want, int round) {
  ASSERT_EQ(got.size(), want.size()) << "round " << round;
  for (std::size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(got[i].count, want[i].count) << "round " << round << " point " << i;
    EXPECT_EQ(got[i].first_ps, want[i].first_ps) << "round " << round << " point " << i;
    EXPECT_EQ(got[i].last_ps, want[i].last_ps) << "round " << round << " point " << i;
    EXPECT_DOUBLE_EQ(got[i].time_s, want[i].time_s) << "round " << round << " point " << i;
    EXPECT_DOUBLE_EQ(got[i].frequency_hz, want[i].frequency_hz) << "round " << round << " point " << i;
  }
}

TEST(FrequencyTrace, MatchesWindowsCountedOneByOne) {
  std::mt19937_64 rng(3);
  for (int round = 0; round < 1000; ++round) {
    std::vector<std::int64_t> times(rng() % 25);
    const std::int64_t span = rng() % 3 == 0 ? 4 : 500;
    for (auto& t : times) t = std::uniform_int_distribution<std::int64_t>(-span, span)(rng);
    const std::int64_t window = 1 + static_cast<std::int64_t>(rng() % 80);
    const auto want = reference_trace(times, window);
    std::size_t count = 12345;
    ASSERT_EQ(zolt_analysis_frequency_trace(times.data(), times.size(), window, nullptr, 0, &count), TT_OK);
    ASSERT_EQ(count, want.size());
    std::vector<zolt_analysis_frequency_point> got(count + 1);
    ASSERT_EQ(zolt_analysis_frequency_trace(times.data(), times.size(), window, got.data(), got.size(), &count),
              TT_OK);
    got.resize(count);
    expect_same_points(got, want, round);
    if (HasFailure()) return;
  }
}

TEST(FrequencyTrace, WorkedCasesAndCapacityRules) {
  const std::vector<std::int64_t> four{30, 0, 20, 10};
  std::array<zolt_analysis_frequency_point, 4> out{};
  std::size_t count = 0;
  ASSERT_EQ(zolt_analysis_frequency_trace(four.data(), 4, 25, out.data(), out.size(), &count), TT_OK);
  ASSERT_EQ(count, 1u) << "the window holding 30 is still open";
  EXPECT_EQ(out[0].count, 3u);
  EXPECT_DOUBLE_EQ(out[0].time_s, 25e-12);
  EXPECT_DOUBLE_EQ(out[0].frequency_hz, 1e11);
  EXPECT_EQ(out[0].first_ps, 0);
  EXPECT_EQ(out[0].last_ps, 20);

  // A gap of three windows between two times: the empty windows appear.
  const std::vector<std::int64_t> gap{0, 5, 100};
  ASSERT_EQ(zolt_analysis_frequency_trace(gap.data(), 3, 25, out.data(), out.size(), &count), TT_OK);
  ASSERT_EQ(count, 4u);
  EXPECT_EQ(out[0].count, 2u);
  EXPECT_DOUBLE_EQ(out[0].frequency_hz, 2e11);
  for (std::size_t i = 1; i < 4; ++i) {
    EXPECT_EQ(out[i].count, 0u);
    EXPECT_EQ(out[i].first_ps, 0);
    EXPECT_EQ(out[i].last_ps, 0);
    EXPECT_DOUBLE_EQ(out[i].frequency_hz, 0.0);
    EXPECT_DOUBLE_EQ(out[i].time_s, static_cast<double>(25 * (i + 1)) / 1e12);
  }

  // Capacity: too small gives -1 with the count set and nothing copied; 0 or
  // no array is a size query.
  zolt_analysis_frequency_point sentinel;
  std::memset(&sentinel, 0x77, sizeof sentinel);
  std::array<zolt_analysis_frequency_point, 3> small;
  small.fill(sentinel);
  count = 0;
  EXPECT_EQ(zolt_analysis_frequency_trace(gap.data(), 3, 25, small.data(), small.size(), &count),
            TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(std::memcmp(&small[0], &sentinel, sizeof sentinel), 0);
  count = 0;
  EXPECT_EQ(zolt_analysis_frequency_trace(gap.data(), 3, 25, small.data(), 0, &count), TT_OK);
  EXPECT_EQ(count, 4u);
  EXPECT_EQ(std::memcmp(&small[0], &sentinel, sizeof sentinel), 0);

  // Equal times: frequency 0; no times: no points.
  const std::vector<std::int64_t> equal{7, 7, 7, 40};
  ASSERT_EQ(zolt_analysis_frequency_trace(equal.data(), 4, 10, out.data(), out.size(), &count), TT_OK);
  ASSERT_EQ(count, 3u);
  EXPECT_EQ(out[0].count, 3u);
  EXPECT_DOUBLE_EQ(out[0].frequency_hz, 0.0);
  count = 99;
  EXPECT_EQ(zolt_analysis_frequency_trace(nullptr, 0, 10, nullptr, 0, &count), TT_OK);
  EXPECT_EQ(count, 0u);

  // Times across the whole range: the number of windows is not bounded by
  // the array, and the size query must not try to build them.
  const std::vector<std::int64_t> extremes{kMin, kMax};
  ASSERT_EQ(zolt_analysis_frequency_trace(extremes.data(), 2, 2, nullptr, 0, &count), TT_OK);
  EXPECT_EQ(count, static_cast<std::size_t>(kMax));
  EXPECT_EQ(zolt_analysis_frequency_trace(extremes.data(), 2, 2, out.data(), out.size(), &count),
            TT_ERR_INVALID_ARGUMENT);
}

TEST(FrequencyTrace, RejectsBadArgumentsWithoutTouchingTheCount) {
  const std::vector<std::int64_t> times{1, 2};
  std::size_t count = 99;
  EXPECT_EQ(zolt_analysis_frequency_trace(nullptr, 2, 10, nullptr, 0, &count), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_frequency_trace(times.data(), 2, 0, nullptr, 0, &count), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_frequency_trace(times.data(), 2, -10, nullptr, 0, &count), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(count, 99u);
  EXPECT_EQ(zolt_analysis_frequency_trace(times.data(), 2, 10, nullptr, 0, nullptr), TT_ERR_INVALID_ARGUMENT);
}

// ------------------------------------------------------ streaming coincidences

// Looks back from every tag (in time, then input order) over all earlier
// tags: quadratic, but plainly what the count means.
zolt_analysis_coincidence_counts reference_counts(const std::vector<tt_tag>& tags, std::int64_t window,
                                                  const std::int64_t* offsets, unsigned mask) {
  if (mask == 0) mask = 15;
  struct Adjusted {
    std::int64_t time;
    int input;
  };
  std::vector<Adjusted> kept;
  for (const tt_tag& tag : tags) {
    const auto input = static_cast<std::int32_t>(tag.channel);
    if (input < 0 || input > 3 || (mask & (1u << input)) == 0) continue;
    const std::uint64_t shifted = static_cast<std::uint64_t>(tag.time_ps) +
                                  static_cast<std::uint64_t>(offsets ? offsets[input] : 0);
    kept.push_back({static_cast<std::int64_t>(shifted), input});
  }
  std::stable_sort(kept.begin(), kept.end(), [](const Adjusted& l, const Adjusted& r) { return l.input < r.input; });
  std::stable_sort(kept.begin(), kept.end(), [](const Adjusted& l, const Adjusted& r) { return l.time < r.time; });
  const int pair_slot[4][4] = {{-1, 0, 1, 2}, {0, -1, 3, 4}, {1, 3, -1, 5}, {2, 4, 5, -1}};
  zolt_analysis_coincidence_counts out{};
  out.window_ps = static_cast<std::uint64_t>(window);
  for (std::size_t j = 0; j < kept.size(); ++j) {
    const int c = kept[j].input;
    ++out.singles[c];
    int present = 0;
    for (int k = 0; k < 4; ++k) {
      if (k == c) continue;
      bool seen = false;
      for (std::size_t i = 0; i < j; ++i) {
        const Wide gap = static_cast<Wide>(kept[j].time) - kept[i].time;
        seen = seen || (kept[i].input == k && gap <= window);
      }
      if (seen) {
        ++out.pairs[pair_slot[c][k]];
        ++present;
      }
    }
    if (present == 3) ++out.triples[3 - c];
  }
  out.total = out.singles[0] + out.singles[1] + out.singles[2] + out.singles[3];
  return out;
}

TEST(StreamingCoincidences, MatchesTheLookBackDefinitionForEveryMask) {
  std::mt19937_64 rng(4);
  for (int round = 0; round < 120; ++round) {
    std::vector<tt_tag> tags(rng() % 16);
    const std::int64_t span = rng() % 3 == 0 ? 3 : 60;
    for (auto& tag : tags) {
      tag.channel = static_cast<std::uint32_t>(rng() % 9 == 0 ? 0x80000000u + rng() % 5 : rng() % 5);
      tag.time_ps = std::uniform_int_distribution<std::int64_t>(-span, span)(rng);
    }
    const std::int64_t window = static_cast<std::int64_t>(rng() % 4 == 0 ? 0 : rng() % 20);
    std::array<std::int64_t, 4> offsets{};
    for (auto& o : offsets) o = std::uniform_int_distribution<std::int64_t>(-10, 10)(rng);
    const std::int64_t* maybe_offsets = rng() % 2 ? offsets.data() : nullptr;
    for (unsigned mask = 0; mask < 256; ++mask) {
      zolt_analysis_coincidence_counts got;
      std::memset(&got, 0xCC, sizeof got);
      ASSERT_EQ(zolt_analysis_count_coincidences(tags.data(), tags.size(), window, maybe_offsets,
                                                 static_cast<std::uint8_t>(mask), &got),
                TT_OK);
      const zolt_analysis_coincidence_counts want = reference_counts(tags, window, maybe_offsets, mask);
      EXPECT_EQ(std::memcmp(&got, &want, sizeof got), 0) << "round " << round << " mask " << mask;
      if (HasFailure()) return;
    }
  }
}

TEST(StreamingCoincidences, WorkedCases) {
  zolt_analysis_coincidence_counts out{};
  // Equal times, window 0: input 1 comes second and sees input 0, once.
  const std::vector<tt_tag> equal{{1, 500}, {0, 500}};
  ASSERT_EQ(zolt_analysis_count_coincidences(equal.data(), 2, 0, nullptr, 0, &out), TT_OK);
  EXPECT_EQ(out.pairs[0], 1u);
  EXPECT_EQ(out.total, 2u);

  // Many partners in the window still add one per pair and tag.
  const std::vector<tt_tag> burst{{0, 0}, {0, 1}, {0, 2}, {1, 3}};
  ASSERT_EQ(zolt_analysis_count_coincidences(burst.data(), 4, 10, nullptr, 0, &out), TT_OK);
  EXPECT_EQ(out.pairs[0], 1u);

  // A four-input event lands in the triple slot of the input that came last;
  // quadruples stays 0.
  for (std::uint32_t last = 0; last < 4; ++last) {
    std::vector<tt_tag> event;
    for (std::uint32_t input = 0; input < 4; ++input) event.push_back({input, input == last ? 10 : 0});
    ASSERT_EQ(zolt_analysis_count_coincidences(event.data(), 4, 10, nullptr, 0, &out), TT_OK);
    std::array<std::uint64_t, 4> triples{};
    triples[3 - last] = 1;
    EXPECT_TRUE(std::equal(triples.begin(), triples.end(), out.triples)) << "last input " << last;
    EXPECT_EQ(out.quadruples, 0u);
    EXPECT_EQ(out.window_ps, 10u);
  }

  // Offsets move an input into the window; a mask of missing inputs only
  // (bit 4) counts nothing, unlike mask 0.
  const std::vector<tt_tag> apart{{0, 0}, {2, 1000}};
  const std::array<std::int64_t, 4> offsets{0, 0, -995, 0};
  ASSERT_EQ(zolt_analysis_count_coincidences(apart.data(), 2, 5, offsets.data(), 0, &out), TT_OK);
  EXPECT_EQ(out.pairs[1], 1u);
  ASSERT_EQ(zolt_analysis_count_coincidences(apart.data(), 2, 5, offsets.data(), 0x10, &out), TT_OK);
  EXPECT_EQ(out.total, 0u);

  // Times far apart at the ends of the range do not wrap into the window.
  const std::vector<tt_tag> ends{{0, kMin}, {1, kMax}};
  ASSERT_EQ(zolt_analysis_count_coincidences(ends.data(), 2, kMax, nullptr, 0, &out), TT_OK);
  EXPECT_EQ(out.pairs[0], 0u);
}

TEST(StreamingCoincidences, RejectsBadArgumentsZeroingAfterThePointerChecks) {
  const std::vector<tt_tag> tags{{0, 1}};
  zolt_analysis_coincidence_counts poison;
  std::memset(&poison, 0xCC, sizeof poison);
  zolt_analysis_coincidence_counts out = poison;
  EXPECT_EQ(zolt_analysis_count_coincidences(nullptr, 1, 5, nullptr, 0, &out), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(std::memcmp(&out, &poison, sizeof out), 0);
  EXPECT_EQ(zolt_analysis_count_coincidences(tags.data(), 1, 5, nullptr, 0, nullptr), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(zolt_analysis_count_coincidences(tags.data(), 1, -1, nullptr, 0, &out), TT_ERR_INVALID_ARGUMENT);
  const zolt_analysis_coincidence_counts zero{};
  EXPECT_EQ(std::memcmp(&out, &zero, sizeof out), 0);
  EXPECT_EQ(zolt_analysis_count_coincidences(nullptr, 0, 0, nullptr, 0, &out), TT_OK);
  EXPECT_EQ(out.total, 0u);
}

}  // namespace
