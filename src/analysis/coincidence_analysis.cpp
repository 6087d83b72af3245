// Singles and coincidence counts of a tag array.

#include "analysis/coincidence_analysis.hpp"

#include <stdexcept>

#include "analysis/clamped_math.hpp"
#include "analysis/sorted_times.hpp"

namespace zolt::timing {
namespace {

using detail::PerInputTimes;

constexpr std::array<std::array<std::int32_t, kInputCount>, 6> kPairGroups{
    {{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}}};
constexpr std::array<std::array<std::int32_t, kInputCount>, 4> kTripleGroups{
    {{0, 1, 2}, {0, 1, 3}, {0, 2, 3}, {1, 2, 3}}};
constexpr std::array<std::int32_t, kInputCount> kQuadrupleGroup{0, 1, 2, 3};

// Input number and time of the two tag records the analysis reads.
std::uint32_t input_of(const TimeTag& tag) noexcept { return tag.channel; }
std::uint32_t input_of(const tt_tag& tag) noexcept { return tag.channel; }
std::int64_t time_of(const TimeTag& tag) noexcept { return tag.time; }
std::int64_t time_of(const tt_tag& tag) noexcept { return tag.time_ps; }

bool takes_part(std::uint32_t input, std::uint8_t mask) noexcept {
  return input < kInputCount && (mask & (1u << input)) != 0;
}

// Splits the counted tags into one ascending list of adjusted times per input
// and fills the singles. The lists are sized by a counting pass first so that
// ten million tags cost no reallocation.
template <class Tag>
PerInputTimes split_by_input(const Tag* tags, std::size_t count, const CoincidenceWindowConfig& config,
                             CoincidenceAnalysis& result) {
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t input = input_of(tags[i]);
    if (takes_part(input, result.effective_mask)) ++result.singles[input];
  }
  PerInputTimes times;
  for (std::size_t input = 0; input < kInputCount; ++input) {
    times[input].reserve(result.singles[input]);
    result.total += result.singles[input];
  }
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t input = input_of(tags[i]);
    if (!takes_part(input, result.effective_mask)) continue;
    times[input].push_back(detail::plus_wrapping(time_of(tags[i]), config.offset_ps[input]));
  }
  for (auto& list : times) detail::sort_if_needed(list);
  return times;
}

void count_groups(const PerInputTimes& times, const CoincidenceWindowConfig& config, CoincidenceAnalysis& result) {
  CoincidenceWindowConfig working = config;
  working.group_mask = result.effective_mask;
  for (std::size_t i = 0; i < kPairGroups.size(); ++i) {
    result.pairs[i] = static_cast<std::uint64_t>(detail::count_coincidence_group(times, working, kPairGroups[i], 2));
  }
  for (std::size_t i = 0; i < kTripleGroups.size(); ++i) {
    result.triples[i] =
        static_cast<std::uint64_t>(detail::count_coincidence_group(times, working, kTripleGroups[i], 3));
  }
  result.quadruples = static_cast<std::uint64_t>(detail::count_coincidence_group(times, working, kQuadrupleGroup, 4));
}

template <class Tag>
CoincidenceAnalysis analyze_tag_records(const Tag* tags, std::size_t count, const CoincidenceWindowConfig& config) {
  if (tags == nullptr && count != 0) throw std::invalid_argument("analyze_coincidences: null tag array");
  CoincidenceAnalysis result;
  result.offset_ps = config.offset_ps;
  result.window_ps = config.window_ps;
  result.effective_mask = effective_input_mask(config.group_mask);
  const PerInputTimes times = split_by_input(tags, count, config, result);
  count_groups(times, config, result);
  return result;
}

}  // namespace

CoincidenceAnalysis analyze_coincidences(const TimeTag* tags, std::size_t count,
                                         const CoincidenceWindowConfig& config) {
  return analyze_tag_records(tags, count, config);
}

CoincidenceAnalysis analyze_coincidences(const tt_tag* tags, std::size_t count,
                                         const CoincidenceWindowConfig& config) {
  return analyze_tag_records(tags, count, config);
}

}  // namespace zolt::timing
