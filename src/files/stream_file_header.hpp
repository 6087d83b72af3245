#pragma once

#include <cstdint>
#include <string>

#include "stream/stream_types.hpp"

namespace zolt::timing {

// Description of a recorded stream: written as the JSON header of stream and
// tag files, and used to set up decoders. Defaults are what a reader assumes
// for keys that are missing.
struct StreamFileHeader {
  StreamFormat stream_format = StreamFormat::packed_delta;
  TimestampMode mode = TimestampMode::external;
  StreamTransport stream_transport = StreamTransport::usb;
  std::uint8_t channel_mask = 15;  // bit n = input n
  std::uint8_t tdl_index = 0;
  std::uint8_t delta_bits = 16;    // packed-delta field width
  std::uint16_t quantum_ps = 8;    // packed-delta time quantum
  std::string raw64_tag_format = "ps";  // "raw_cf" or "ps"; empty: by mode
  std::string created_utc;
  std::string application;
  std::string device_product;
  std::string device_serial;
  std::string device_port;
};

}  // namespace zolt::timing
