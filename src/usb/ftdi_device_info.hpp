#pragma once

// FTDI interfaces that can carry the timestamp stream, as the D2XX runtime
// lists them, and the order in which they are tried.

#include <optional>
#include <string>
#include <vector>

namespace zolt::timing {

struct FtdiDeviceInfo {
  std::string description;
  std::string serial_number;
  // Preference flags, compared first by preferred_before:
  // the description names a board known to wire the FIFO (Digilent FPGA
  // boards, FTDI's FT2232H mini module);
  bool known_fifo_board = false;
  // the names mark the interface as interface A of a dual-channel FT2232H,
  // the only one of the two that runs the synchronous FIFO.
  bool interface_a = false;
  // Interfaces with the same key sit on one physical module.
  std::string module_key;
};

// "<description> [<serial>]"; an empty serial shows as "(unknown serial)".
std::string device_label(const FtdiDeviceInfo& info);

// Applies the name tests to one listed interface. Returns nothing when the
// interface is not a stream candidate:
// - interface B of an FT2232H (description ending in " b") is dropped: only
//   interface A can run the synchronous FIFO;
// - an interface without serial number is dropped: it is opened by serial;
// - otherwise it is kept when it is a known FIFO board or an interface A
//   (serial ending in "a", or description ending in " a"), and dropped when
//   it is neither (plain USB serial adapters, other FTDI chips).
// The module key is the lower-cased serial without its channel letter when
// the description carries the same letter (" A" / " B"), so both interfaces
// of one FT2232H share a key; otherwise the whole lower-cased serial.
std::optional<FtdiDeviceInfo> classify_ftdi_interface(const std::string& description,
                                                      const std::string& serial_number);

// Strict weak order, best candidate first: known boards, then interface A,
// then by lower-cased description and lower-cased serial, ascending.
bool preferred_before(const FtdiDeviceInfo& a, const FtdiDeviceInfo& b);

// Every stream candidate the D2XX runtime reports, in listing order. On
// failure returns an empty list with `error` set (the runtime's load error,
// or the failing call in the ft_status_text format).
std::vector<FtdiDeviceInfo> list_stream_candidates(std::string& error);

namespace detail {
std::string lower_case(std::string text);
}

}  // namespace zolt::timing
