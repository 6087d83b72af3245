#pragma once

#include <cstdint>

namespace zolt::timing {

// Milliseconds on the monotonic clock; deadlines and poll loops use this.
std::int64_t monotonic_ms() noexcept;

// Sleeps the whole duration even when signals interrupt it.
void sleep_ms(std::int64_t milliseconds) noexcept;

}  // namespace zolt::timing
