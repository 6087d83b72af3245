// Host-side coincidence counting, checked against a brute-force count of
// every tuple and against hand-worked cases.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

#include "analysis/coincidence_analysis.hpp"
#include "zolt_timing.h"

namespace zolt::timing {
namespace {

__extension__ typedef __int128 Wide;

constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

const std::vector<std::vector<int>> kPairs{{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}};
const std::vector<std::vector<int>> kTriples{{0, 1, 2}, {0, 1, 3}, {0, 2, 3}, {1, 2, 3}};

// Adjusted times per input, by the definition: wrap-around offset, inputs
// above 3 and outside the mask dropped. Unsorted on purpose.
std::vector<std::vector<std::int64_t>> reference_lists(const std::vector<TimeTag>& tags,
                                                       const CoincidenceWindowConfig& config, unsigned mask) {
  std::vector<std::vector<std::int64_t>> lists(4);
  for (const TimeTag& tag : tags) {
    if (tag.channel > 3 || (mask & (1u << tag.channel)) == 0) continue;
    const std::uint64_t sum = static_cast<std::uint64_t>(tag.time) + static_cast<std::uint64_t>(config.offset_ps[tag.channel]);
    lists[tag.channel].push_back(static_cast<std::int64_t>(sum));
  }
  return lists;
}

// Counts every tuple (one time per input of the group) whose closed
// intervals [t - |w|, t + |w|] share a point, in 128-bit arithmetic.
std::uint64_t brute_force_group(const std::vector<std::vector<std::int64_t>>& lists, const std::vector<int>& group,
                                const CoincidenceWindowConfig& config, unsigned mask) {
  for (const int input : group) {
    if ((mask & (1u << input)) == 0) return 0;
  }
  std::uint64_t count = 0;
  std::vector<std::size_t> index(group.size(), 0);
  for (const int input : group) {
    if (lists[static_cast<std::size_t>(input)].empty()) return 0;
  }
  while (true) {
    Wide lo = std::numeric_limits<Wide>::min(), hi = std::numeric_limits<Wide>::max();
    for (std::size_t g = 0; g < group.size(); ++g) {
      const auto input = static_cast<std::size_t>(group[g]);
      const Wide t = lists[input][index[g]];
      Wide w = config.window_ps[input];
      if (w < 0) w = -w;
      lo = std::max(lo, t - w);
      hi = std::min(hi, t + w);
    }
    if (lo <= hi) ++count;
    std::size_t g = 0;
    while (g < group.size() && ++index[g] == lists[static_cast<std::size_t>(group[g])].size()) index[g++] = 0;
    if (g == group.size()) return count;
  }
}

struct Expected {
  std::array<std::uint64_t, 4> singles{};
  std::uint64_t total = 0;
  std::array<std::uint64_t, 6> pairs{};
  std::array<std::uint64_t, 4> triples{};
  std::uint64_t quadruples = 0;
};

Expected brute_force(const std::vector<TimeTag>& tags, const CoincidenceWindowConfig& config) {
  const unsigned mask = config.group_mask == 0 ? 15u : (config.group_mask & 15u);
  const auto lists = reference_lists(tags, config, mask);
  Expected e;
  for (std::size_t i = 0; i < 4; ++i) {
    e.singles[i] = lists[i].size();
    e.total += lists[i].size();
  }
  for (std::size_t i = 0; i < 6; ++i) e.pairs[i] = brute_force_group(lists, kPairs[i], config, mask);
  for (std::size_t i = 0; i < 4; ++i) e.triples[i] = brute_force_group(lists, kTriples[i], config, mask);
  e.quadruples = brute_force_group(lists, {0, 1, 2, 3}, config, mask);
  return e;
}

void expect_matches(const CoincidenceAnalysis& got, const Expected& want, const std::string& what) {
  EXPECT_EQ(got.singles, want.singles) << what;
  EXPECT_EQ(got.total, want.total) << what;
  EXPECT_EQ(got.pairs, want.pairs) << what;
  EXPECT_EQ(got.triples, want.triples) << what;
  EXPECT_EQ(got.quadruples, want.quadruples) << what;
}

// Small random tag sets in the shapes that break coincidence counters:
// duplicates, negative times, zero and negative windows, offsets, inputs
// beyond 3 and every mask.
struct RandomCase {
  std::vector<TimeTag> tags;
  CoincidenceWindowConfig config;
};

RandomCase random_case(std::mt19937_64& rng) {
  RandomCase c;
  const int span = std::uniform_int_distribution<int>(0, 3)(rng) == 0 ? 5 : 60;  // small span: many duplicates
  const int count = std::uniform_int_distribution<int>(0, 14)(rng);
  for (int i = 0; i < count; ++i) {
    // One tag in ten is on an input that does not exist (4..6).
    const auto channel = static_cast<std::uint8_t>(rng() % 10 == 0 ? 4 + rng() % 3 : rng() % 4);
    c.tags.push_back(TimeTag{channel, std::uniform_int_distribution<std::int64_t>(-span, span)(rng)});
  }
  for (std::size_t i = 0; i < 4; ++i) {
    c.config.offset_ps[i] = std::uniform_int_distribution<std::int64_t>(0, 2)(rng) == 0 ? 0 : std::uniform_int_distribution<std::int64_t>(-15, 15)(rng);
    c.config.window_ps[i] = std::uniform_int_distribution<std::int64_t>(0, 3)(rng) == 0 ? 0 : std::uniform_int_distribution<std::int64_t>(-12, 12)(rng);
  }
  c.config.group_mask = static_cast<std::uint8_t>(rng() % 256);
  return c;
}

TEST(AnalyzeCoincidences, MatchesEveryTupleCountedByBruteForce) {
  std::mt19937_64 rng(20240611);
  for (int round = 0; round < 3000; ++round) {
    const RandomCase c = random_case(rng);
    const CoincidenceAnalysis got = analyze_coincidences(c.tags.data(), c.tags.size(), c.config);
    expect_matches(got, brute_force(c.tags, c.config), "round " + std::to_string(round));
    EXPECT_EQ(got.effective_mask, c.config.group_mask == 0 ? 15 : (c.config.group_mask & 15));
    EXPECT_EQ(got.offset_ps, c.config.offset_ps);
    EXPECT_EQ(got.window_ps, c.config.window_ps);
    if (HasFailure()) return;
  }
}

TEST(AnalyzeCoincidences, ExtremeTimesAndWindowsNeitherOverflowNorMiscount) {
  // Times and windows at the ends of the 64-bit range: intervals reach past
  // it and offsets wrap around; the count must still follow the definition.
  std::mt19937_64 rng(7);
  const std::vector<std::int64_t> edges{kMin, kMin + 1, -1, 0, 1, kMax - 1, kMax};
  for (int round = 0; round < 400; ++round) {
    RandomCase c;
    for (int i = 0; i < 8; ++i) {
      c.tags.push_back(TimeTag{static_cast<std::uint8_t>(rng() % 4), edges[rng() % edges.size()]});
    }
    for (std::size_t i = 0; i < 4; ++i) {
      c.config.window_ps[i] = edges[rng() % edges.size()];
      c.config.offset_ps[i] = rng() % 3 == 0 ? edges[rng() % edges.size()] : 0;
    }
    expect_matches(analyze_coincidences(c.tags.data(), c.tags.size(), c.config), brute_force(c.tags, c.config),
                   "round " + std::to_string(round));
    if (HasFailure()) return;
  }
}

TEST(AnalyzeCoincidences, WorkedCases) {
  CoincidenceWindowConfig config;
  config.window_ps = {50, 50, 50, 50};
  const std::vector<TimeTag> touching{{0, 100}, {0, 300}, {1, 200}};
  // [50,150] and [150,250] touch at 150, [250,350] and [150,250] at 250.
  EXPECT_EQ(analyze_coincidences(touching.data(), touching.size(), config).pairs[0], 2u);
  config.window_ps = {49, 49, 49, 49};
  EXPECT_EQ(analyze_coincidences(touching.data(), touching.size(), config).pairs[0], 0u);

  // A negative window works as its magnitude and is reported as given.
  config.window_ps = {-50, 50, 0, 0};
  const CoincidenceAnalysis negative = analyze_coincidences(touching.data(), touching.size(), config);
  EXPECT_EQ(negative.pairs[0], 2u);
  EXPECT_EQ(negative.window_ps[0], -50);

  // Windows 0: only exactly equal adjusted times; offsets line inputs up.
  CoincidenceWindowConfig exact;
  exact.offset_ps = {0, -10, 0, 0};
  const std::vector<TimeTag> shifted{{0, 5}, {1, 15}, {1, 16}, {2, 5}, {3, 5}, {7, 5}};
  const CoincidenceAnalysis equal = analyze_coincidences(shifted.data(), shifted.size(), exact);
  EXPECT_EQ(equal.pairs, (std::array<std::uint64_t, 6>{1, 1, 1, 1, 1, 1}));
  EXPECT_EQ(equal.triples, (std::array<std::uint64_t, 4>{1, 1, 1, 1}));
  EXPECT_EQ(equal.quadruples, 1u);
  EXPECT_EQ(equal.total, 5u) << "input 7 is not counted";

  // A tag is never consumed: one input-0 tag with three partners on input 1.
  CoincidenceWindowConfig wide;
  wide.window_ps = {10, 10, 10, 10};
  const std::vector<TimeTag> shared{{0, 0}, {1, -5}, {1, 0}, {1, 5}, {2, 1}};
  const CoincidenceAnalysis reused = analyze_coincidences(shared.data(), shared.size(), wide);
  EXPECT_EQ(reused.pairs[0], 3u);
  EXPECT_EQ(reused.pairs[3], 3u);
  EXPECT_EQ(reused.triples[0], 3u);
  EXPECT_EQ(reused.pairs[2], 0u) << "input 3 has no tags";
  EXPECT_EQ(reused.quadruples, 0u);
}

TEST(AnalyzeCoincidences, MaskSelectsInputsEverywhere) {
  CoincidenceWindowConfig config;
  config.window_ps = {5, 5, 5, 5};
  const std::vector<TimeTag> all_together{{0, 0}, {1, 0}, {2, 0}, {3, 0}};
  config.group_mask = 0x13;  // bit 4 is ignored: inputs 0 and 1 only
  const CoincidenceAnalysis two = analyze_coincidences(all_together.data(), all_together.size(), config);
  EXPECT_EQ(two.effective_mask, 3);
  EXPECT_EQ(two.singles, (std::array<std::uint64_t, 4>{1, 1, 0, 0}));
  EXPECT_EQ(two.total, 2u);
  EXPECT_EQ(two.pairs, (std::array<std::uint64_t, 6>{1, 0, 0, 0, 0, 0}));
  EXPECT_EQ(two.triples, (std::array<std::uint64_t, 4>{}));
  EXPECT_EQ(two.quadruples, 0u);

  config.group_mask = 0;  // all four
  const CoincidenceAnalysis four = analyze_coincidences(all_together.data(), all_together.size(), config);
  EXPECT_EQ(four.effective_mask, 15);
  EXPECT_EQ(four.quadruples, 1u);
  // Only 0 means all inputs: a mask with no input bit lets none take part.
  config.group_mask = 0x10;
  const CoincidenceAnalysis none = analyze_coincidences(all_together.data(), all_together.size(), config);
  EXPECT_EQ(none.effective_mask, 0);
  EXPECT_EQ(none.total, 0u);
  EXPECT_EQ(none.pairs, (std::array<std::uint64_t, 6>{}));
  EXPECT_EQ(none.quadruples, 0u);
}

TEST(AnalyzeCoincidences, EmptyAndNullArrays) {
  CoincidenceWindowConfig config;
  config.offset_ps = {1, 2, 3, 4};
  config.window_ps = {-1, 0, 1, 2};
  config.group_mask = 6;
  const CoincidenceAnalysis empty = analyze_coincidences(static_cast<const TimeTag*>(nullptr), 0, config);
  EXPECT_EQ(empty.total, 0u);
  EXPECT_EQ(empty.pairs, (std::array<std::uint64_t, 6>{}));
  EXPECT_EQ(empty.effective_mask, 6);
  EXPECT_EQ(empty.offset_ps, config.offset_ps);
  EXPECT_EQ(empty.window_ps, config.window_ps);
  try {
    analyze_coincidences(static_cast<const TimeTag*>(nullptr), 3, config);
    FAIL() << "a null array with tags must be refused";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "analyze_coincidences: null tag array");
  }
}

TEST(CountCoincidenceGroup, AnyInputOrderGivesTheBruteForceCount) {
  std::mt19937_64 rng(99);
  for (int round = 0; round < 1500; ++round) {
    detail::PerInputTimes times;
    CoincidenceWindowConfig config;
    for (std::size_t i = 0; i < 4; ++i) {
      const int n = std::uniform_int_distribution<int>(0, 6)(rng);
      for (int k = 0; k < n; ++k) times[i].push_back(std::uniform_int_distribution<std::int64_t>(-20, 20)(rng));
      std::sort(times[i].begin(), times[i].end());
      config.window_ps[i] = std::uniform_int_distribution<std::int64_t>(-6, 6)(rng);
    }
    config.group_mask = static_cast<std::uint8_t>(rng() % 32);
    const unsigned mask = config.group_mask == 0 ? 15u : (config.group_mask & 15u);
    std::vector<std::vector<std::int64_t>> lists;
    for (const auto& list : times) lists.emplace_back(list.begin(), list.end());
    std::array<std::int32_t, 4> group{0, 1, 2, 3};
    std::shuffle(group.begin(), group.end(), rng);
    const int size = std::uniform_int_distribution<int>(1, 4)(rng);
    const std::vector<int> members(group.begin(), group.begin() + size);
    EXPECT_EQ(static_cast<std::uint64_t>(detail::count_coincidence_group(times, config, group, size)),
              brute_force_group(lists, members, config, mask))
        << "round " << round;
    if (HasFailure()) return;
  }
}

TEST(CountCoincidenceGroup, RefusesGroupsItCannotCount) {
  detail::PerInputTimes times{{{0}, {0}, {0}, {}}};
  CoincidenceWindowConfig config;
  EXPECT_EQ(detail::count_coincidence_group(times, config, {0, 1, 0, 0}, 2), 1);
  EXPECT_EQ(detail::count_coincidence_group(times, config, {0, 4, 0, 0}, 2), 0) << "input above 3";
  EXPECT_EQ(detail::count_coincidence_group(times, config, {-1, 0, 0, 0}, 2), 0) << "negative input";
  EXPECT_EQ(detail::count_coincidence_group(times, config, {0, 3, 0, 0}, 2), 0) << "input without times";
  EXPECT_EQ(detail::count_coincidence_group(times, config, {0, 1, 2, 3}, 4), 0);
  EXPECT_EQ(detail::count_coincidence_group(times, config, {0, 1, 2, 3}, 0), 0);
  EXPECT_EQ(detail::count_coincidence_group(times, config, {0, 1, 2, 3}, 5), 0);
  config.group_mask = 0x1D;  // input 1 left out
  EXPECT_EQ(detail::count_coincidence_group(times, config, {0, 1, 0, 0}, 2), 0);
  EXPECT_EQ(detail::count_coincidence_group(times, config, {0, 2, 0, 0}, 2), 1);
}

TEST(CountCoincidenceGroup, LongListsAgreeWithTuplesCountedDirectly) {
  // Long lists of very different densities exercise every way the partner
  // ranges move forward: short steps, medium jumps and far jumps.
  std::mt19937_64 rng(5);
  for (const int dense : {60, 600, 6000, 20000}) {
    detail::PerInputTimes times;
    for (int i = 0; i < dense; ++i) times[1].push_back(std::uniform_int_distribution<std::int64_t>(0, 1000000)(rng));
    for (int i = 0; i < 40; ++i) times[0].push_back(std::uniform_int_distribution<std::int64_t>(0, 1000000)(rng));
    for (int i = 0; i < 3000; ++i) times[2].push_back(std::uniform_int_distribution<std::int64_t>(0, 1000000)(rng));
    for (auto& list : times) std::sort(list.begin(), list.end());
    CoincidenceWindowConfig config;
    config.window_ps = {30, 70, 200, 0};
    std::int64_t pairs = 0, triples = 0;
    for (const std::int64_t t : times[0]) {
      for (const std::int64_t u : times[1]) {
        if (u < t - 100 || u > t + 100) continue;
        ++pairs;
        const std::int64_t lo = std::max(t - 30, u - 70), hi = std::min(t + 30, u + 70);
        for (const std::int64_t v : times[2]) triples += (v + 200 >= lo && v - 200 <= hi) ? 1 : 0;
      }
    }
    EXPECT_EQ(detail::count_coincidence_group(times, config, {1, 0, 0, 0}, 2), pairs) << dense;
    EXPECT_EQ(detail::count_coincidence_group(times, config, {0, 1, 0, 0}, 2), pairs) << dense;
    EXPECT_EQ(detail::count_coincidence_group(times, config, {2, 1, 0, 0}, 3), triples) << dense;
  }
}

// The exported function: argument checks, defaults and the public layout.
TEST(TtAnalyzeCoincidences, ChecksArgumentsAndFillsThePublicRecord) {
  const std::vector<tt_tag> tags{{0, 100}, {0, 300}, {1, 200}, {1, 200}, {256, 200}, {4, 200}};
  tt_coincidence_analysis out;
  std::memset(&out, 0xAB, sizeof out);
  const tt_coincidence_analysis untouched = out;

  EXPECT_EQ(tt_analyze_coincidences(tags.data(), tags.size(), nullptr, nullptr), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_analyze_coincidences(nullptr, 1, nullptr, &out), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(std::memcmp(&out, &untouched, sizeof out), 0) << "nothing is written on failure";

  // No configuration: windows 0 and all inputs, so only the equal times pair.
  ASSERT_EQ(tt_analyze_coincidences(tags.data(), tags.size(), nullptr, &out), TT_OK);
  EXPECT_EQ(out.effective_mask, 15);
  EXPECT_EQ(out.singles[0], 2u);
  EXPECT_EQ(out.singles[1], 2u);
  EXPECT_EQ(out.total, 4u) << "channels 256 and 4 are not inputs";
  EXPECT_EQ(out.pairs[0], 0u);

  tt_coincidence_window_config config{};
  for (int i = 0; i < 4; ++i) config.window_ps[i] = -50;
  config.offset_ps[2] = 1000;  // copied back, inputs 2 and 3 are masked out anyway
  config.group_mask = 0x23;
  ASSERT_EQ(tt_analyze_coincidences(tags.data(), tags.size(), &config, &out), TT_OK);
  EXPECT_EQ(out.pairs[0], 4u) << "two input-1 tags, each touching both input-0 windows";
  EXPECT_EQ(out.effective_mask, 3);
  EXPECT_EQ(out.window_ps[2], -50);
  EXPECT_EQ(out.offset_ps[2], 1000);

  ASSERT_EQ(tt_analyze_coincidences(nullptr, 0, &config, &out), TT_OK);
  EXPECT_EQ(out.total, 0u);
  EXPECT_EQ(out.pairs[0], 0u);
  EXPECT_EQ(out.effective_mask, 3);

  config.group_mask = 0xF0;  // no input bit, but not 0: nothing takes part
  ASSERT_EQ(tt_analyze_coincidences(tags.data(), tags.size(), &config, &out), TT_OK);
  EXPECT_EQ(out.effective_mask, 0);
  EXPECT_EQ(out.total, 0u);
  EXPECT_EQ(out.pairs[0], 0u);
}

TEST(TtAnalyzeCoincidences, AgreesWithTheInternalAnalysis) {
  std::mt19937_64 rng(31);
  for (int round = 0; round < 300; ++round) {
    const RandomCase c = random_case(rng);
    std::vector<tt_tag> tags;
    for (const TimeTag& tag : c.tags) tags.push_back(to_public(tag));
    tt_coincidence_window_config config{};
    std::copy(c.config.offset_ps.begin(), c.config.offset_ps.end(), config.offset_ps);
    std::copy(c.config.window_ps.begin(), c.config.window_ps.end(), config.window_ps);
    config.group_mask = c.config.group_mask;
    tt_coincidence_analysis out{};
    ASSERT_EQ(tt_analyze_coincidences(tags.data(), tags.size(), &config, &out), TT_OK);
    const Expected want = brute_force(c.tags, c.config);
    EXPECT_TRUE(std::equal(want.pairs.begin(), want.pairs.end(), out.pairs)) << "round " << round;
    EXPECT_TRUE(std::equal(want.triples.begin(), want.triples.end(), out.triples)) << "round " << round;
    EXPECT_TRUE(std::equal(want.singles.begin(), want.singles.end(), out.singles)) << "round " << round;
    EXPECT_EQ(out.quadruples, want.quadruples);
    EXPECT_EQ(out.total, want.total);
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace zolt::timing
