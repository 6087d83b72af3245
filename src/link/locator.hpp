#pragma once

// What an open locator names: a serial device path, or an FTDI USB module
// ("ftdi://<serial>", "usb-fifo:<description>", any case), in which case the
// selector says which module.

#include <string>
#include <string_view>

namespace zolt::timing {

struct Locator {
  enum class Kind { serial_path, usb };

  Kind kind = Kind::serial_path;
  // USB only: the text after "://", else after the first ":", else empty
  // (any module, or the one ZOLT_TIMING_USB_SERIAL names).
  std::string usb_selector;
};

Locator classify_locator(std::string_view text);

// Texts tt_open_serial opens as they are instead of looking them up as a
// serial number: "ftdi://" / "FTDI://", "COM...", "\\.\..." and "/dev/...".
bool is_direct_locator(std::string_view text) noexcept;

}  // namespace zolt::timing
