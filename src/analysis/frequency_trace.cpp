#include "analysis/frequency_trace.hpp"

#include <span>

#include "analysis/sorted_times.hpp"

namespace zolt::timing {
namespace {

__extension__ typedef __int128 WideTime;

constexpr double kPicosecondsPerSecond = 1e12;

// Distance from the first time; times are sorted, so it is never negative
// and always fits in 64 unsigned bits.
std::uint64_t since(std::int64_t time, std::int64_t first) noexcept {
  return static_cast<std::uint64_t>(time) - static_cast<std::uint64_t>(first);
}

// Writes the points of the closed windows in time order.
class TraceWriter {
 public:
  TraceWriter(zolt_analysis_frequency_point* out, std::uint64_t window) : out_(out), window_(window) {}

  void run(std::span<const std::int64_t> times) {
    const std::int64_t t0 = times.front();
    for (const std::int64_t t : times) {
      const std::uint64_t index = since(t, t0) / window_;
      if (index != current_) {
        close_current();
        for (std::uint64_t empty = current_ + 1; empty < index; ++empty) emit(empty, 0, 0, 0);
        current_ = index;
        count_ = 0;
      }
      if (count_ == 0) first_ = t;
      last_ = t;
      ++count_;
    }
  }

 private:
  void close_current() { emit(current_, count_, first_, last_); }

  void emit(std::uint64_t index, std::uint64_t count, std::int64_t first, std::int64_t last) {
    zolt_analysis_frequency_point& point = *out_++;
    point.time_s = static_cast<double>((static_cast<WideTime>(index) + 1) * static_cast<WideTime>(window_)) /
                   kPicosecondsPerSecond;
    point.frequency_hz = count >= 2 && last > first
                             ? static_cast<double>(count - 1) * kPicosecondsPerSecond / static_cast<double>(last - first)
                             : 0.0;
    point.count = count;
    point.first_ps = first;
    point.last_ps = last;
  }

  zolt_analysis_frequency_point* out_;
  std::uint64_t window_;
  std::uint64_t current_ = 0;
  std::uint64_t count_ = 0;
  std::int64_t first_ = 0;
  std::int64_t last_ = 0;
};

}  // namespace

tt_status frequency_trace(const std::int64_t* times, std::size_t n, std::int64_t window_ps,
                          zolt_analysis_frequency_point* out, std::size_t capacity, std::size_t& point_count) {
  if (window_ps < 1) return TT_ERR_INVALID_ARGUMENT;
  const detail::SortedTimes sorted(times, n);
  const std::span<const std::int64_t> view = sorted.times();
  if (view.empty()) {
    point_count = 0;
    return TT_OK;
  }
  const auto window = static_cast<std::uint64_t>(window_ps);
  // Every window before the one holding the latest time is closed.
  const std::uint64_t points = since(view.back(), view.front()) / window;
  point_count = static_cast<std::size_t>(points);
  if (out == nullptr || capacity == 0) return TT_OK;
  if (capacity < points) return TT_ERR_INVALID_ARGUMENT;
  TraceWriter(out, window).run(view);
  return TT_OK;
}

}  // namespace zolt::timing
