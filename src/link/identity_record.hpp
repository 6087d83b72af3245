#pragma once

// The identity texts as the instrument sends them and as the public records
// carry them. The instrument pads each 8-byte text with NULs or blanks; the
// host trims that padding, insists on printable ASCII, and keeps the raw
// bytes at hand for the error message when the check fails.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "zolt_timing.h"

namespace zolt::timing::detail {

// The payload bytes up to the last one that is neither NUL nor blank. Bytes
// in front of it stay as they are, embedded NULs included.
std::string identity_field_text(const std::uint8_t* payload);

// Non-empty and every character in 0x20..0x7E.
bool printable_identity_field(std::string_view text) noexcept;

// The 8 payload bytes as upper-case hex pairs separated by single blanks.
std::string payload_hex(const std::uint8_t* payload);

// Copies text into a NUL-terminated field of `capacity` bytes, cutting it.
void copy_text(char* field, std::size_t capacity, std::string_view text) noexcept;

template <std::size_t N>
void copy_text(char (&field)[N], std::string_view text) noexcept {
  copy_text(field, N, text);
}

// Sets the three texts and the joined "<manufacturer>-<class>-<serial>".
void fill_identity(tt_identity& identity, std::string_view manufacturer, std::string_view device_class,
                   std::string_view serial) noexcept;

// The identity the host makes for an instrument it reaches over USB only:
// "ZOLT" / "TDC" / the USB serial number (at most 15 characters).
void fill_host_identity(tt_identity& identity, std::string_view usb_serial) noexcept;

// The display record of an identity found at (or opened through) `port`;
// its model is "<manufacturer> <class>", or the manufacturer alone when the
// class is empty.
tt_device_info device_info_from(const tt_identity& identity, std::string_view port) noexcept;

}  // namespace zolt::timing::detail
