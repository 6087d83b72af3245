#pragma once

#include <cstdint>

namespace zolt::timing {

// The values match the public tt_stream_format / tt_stream_transport numbers
// and the numbers the instrument and the stream files use.
enum class StreamFormat : std::uint32_t { raw64 = 0, delta32 = 1, packed_delta = 2 };
enum class StreamTransport : std::uint32_t { uart = 0, usb = 1, usb_async = 2 };

// Where the instrument's time base comes from. It changes how the packed
// decoder judges plausible sync markers.
enum class TimestampMode : std::uint32_t { internal = 0, external = 1 };

// The coarse clock: 300 MHz, one count is 3,333 ps; the 32-bit counter wraps
// after 2^32 counts.
inline constexpr std::int64_t kCoarsePeriodPs = 3333;
inline constexpr std::int64_t kCounterWrapPs = 0xD0500000000LL;

}  // namespace zolt::timing
