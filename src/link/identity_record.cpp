#include "link/identity_record.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "link/command_frame.hpp"

namespace zolt::timing::detail {

std::string identity_field_text(const std::uint8_t* payload) {
  std::size_t length = kFramePayloadSize;
  while (length > 0 && (payload[length - 1] == 0x00 || payload[length - 1] == 0x20)) --length;
  return std::string(reinterpret_cast<const char*>(payload), length);
}

bool printable_identity_field(std::string_view text) noexcept {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x20 && byte <= 0x7E;
  });
}

std::string payload_hex(const std::uint8_t* payload) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(kFramePayloadSize * 3 - 1);
  for (std::size_t i = 0; i < kFramePayloadSize; ++i) {
    if (i > 0) text += ' ';
    text += kDigits[payload[i] >> 4U];
    text += kDigits[payload[i] & 0x0FU];
  }
  return text;
}

void copy_text(char* field, std::size_t capacity, std::string_view text) noexcept {
  if (capacity == 0) return;
  const std::size_t length = std::min(text.size(), capacity - 1);
  std::memcpy(field, text.data(), length);
  std::memset(field + length, 0, capacity - length);
}

void fill_identity(tt_identity& identity, std::string_view manufacturer, std::string_view device_class,
                   std::string_view serial) noexcept {
  copy_text(identity.manufacturer, manufacturer);
  copy_text(identity.device_class, device_class);
  copy_text(identity.serial, serial);
  // Joined from the stored (possibly cut) fields, so the parts always agree.
  char joined[sizeof identity.identity * 2];
  std::snprintf(joined, sizeof joined, "%s-%s-%s", identity.manufacturer, identity.device_class, identity.serial);
  copy_text(identity.identity, joined);
}

void fill_host_identity(tt_identity& identity, std::string_view usb_serial) noexcept {
  fill_identity(identity, "ZOLT", "TDC", usb_serial);
}

tt_device_info device_info_from(const tt_identity& identity, std::string_view port) noexcept {
  tt_device_info info{};
  copy_text(info.port, port);
  char model[sizeof info.model];
  // "<manufacturer> <class>", or the manufacturer alone when the class is empty.
  if (identity.device_class[0] != '\0') {
    std::snprintf(model, sizeof model, "%s %s", identity.manufacturer, identity.device_class);
  } else {
    std::snprintf(model, sizeof model, "%s", identity.manufacturer);
  }
  copy_text(info.model, model);
  copy_text(info.serial, identity.serial);
  return info;
}

}  // namespace zolt::timing::detail
