#include "link/clock.hpp"

#include <cerrno>
#include <ctime>

namespace zolt::timing {

std::int64_t monotonic_ms() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void sleep_ms(std::int64_t milliseconds) noexcept {
  if (milliseconds <= 0) return;
  timespec remaining{static_cast<time_t>(milliseconds / 1000), static_cast<long>((milliseconds % 1000) * 1000000)};
  while (nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
  }
}

}  // namespace zolt::timing
