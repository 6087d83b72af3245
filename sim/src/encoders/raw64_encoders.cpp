#include <algorithm>
#include <cmath>
#include <random>

#include "zolt_sim/encoders.hpp"

namespace zolt_sim {

namespace {

void put_be64(std::uint64_t word, std::vector<std::uint8_t>& out) {
  for (int shift = 56; shift >= 0; shift -= 8) out.push_back(static_cast<std::uint8_t>(word >> shift));
}

std::uint64_t counter_ps(std::int64_t time_ps) {
  return static_cast<std::uint64_t>(time_ps % kCounterWrapPs);
}

}  // namespace

void Raw64TagEncoder::encode(const InputEvent& event, std::vector<std::uint8_t>& out) const {
  put_be64((static_cast<std::uint64_t>(event.input & 3U) << 61) | counter_ps(event.time_ps), out);
}

DelayLine::DelayLine(std::uint32_t seed, double mean_tap_ps, double spread) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> jitter(-1.0, 1.0);
  const double bow_phase = jitter(random) * 3.14159;
  double edge = 0.0;
  for (int tap = 0; edge < static_cast<double>(kCoarsePeriodPs) && tap < 8191; ++tap) {
    const double bow = 0.5 * std::sin(bow_phase + tap / 23.0);
    const double width = mean_tap_ps * (1.0 + spread * (0.5 * jitter(random) + bow));
    edge += std::max(width, 1.0);
    edges_.push_back(edge);
  }
}

std::uint16_t DelayLine::code_for(std::int64_t delay_ps) const {
  const auto passed = std::upper_bound(edges_.begin(), edges_.end(), static_cast<double>(delay_ps)) - edges_.begin();
  return static_cast<std::uint16_t>(std::min<std::ptrdiff_t>(passed, static_cast<std::ptrdiff_t>(edges_.size()) - 1));
}

Raw64CalibrationEncoder::Raw64CalibrationEncoder(std::array<DelayLine, 4> lines) : lines_(std::move(lines)) {}

// The coarse count is that of the first clock edge at or after the event;
// the delay line measures how long before that edge the event came.
Raw64CalibrationEncoder::Reading Raw64CalibrationEncoder::read(const InputEvent& event) const {
  const std::int64_t edge = (event.time_ps + kCoarsePeriodPs - 1) / kCoarsePeriodPs;
  const std::int64_t delay = edge * kCoarsePeriodPs - event.time_ps;
  return Reading{static_cast<std::uint32_t>(edge), lines_[event.input & 3U].code_for(delay)};
}

void Raw64CalibrationEncoder::encode(const InputEvent& event, std::vector<std::uint8_t>& out) const {
  const Reading reading = read(event);
  const std::uint64_t word = (static_cast<std::uint64_t>(event.input & 3U) << 61) | (0xA5C3ULL << 45) |
                             (static_cast<std::uint64_t>(reading.coarse) << 13) | reading.fine;
  put_be64(word, out);
}

}  // namespace zolt_sim
