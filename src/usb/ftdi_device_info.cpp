#include "usb/ftdi_device_info.hpp"

#include <cctype>
#include <cstring>
#include <tuple>

#include "usb/d2xx_api.hpp"
#include "usb/ft_status.hpp"

namespace zolt::timing {

namespace detail {

std::string lower_case(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

}  // namespace detail

namespace {

bool ends_with(const std::string& text, const char* suffix) {
  const std::size_t n = std::strlen(suffix);
  return text.size() >= n && text.compare(text.size() - n, n, suffix) == 0;
}

bool contains(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

std::string module_key_of(const std::string& description, const std::string& serial) {
  // An FT2232H reports "<serial>A" / "<serial>B" and "<description> A" /
  // "<description> B" for its two interfaces.
  if (serial.size() > 1 && description.size() > 2 && description[description.size() - 2] == ' ' &&
      description.back() == serial.back() && std::isalpha(static_cast<unsigned char>(serial.back()))) {
    return serial.substr(0, serial.size() - 1);
  }
  return serial;
}

std::string text_from(const char* buffer, std::size_t capacity) {
  return std::string(buffer, strnlen(buffer, capacity));
}

}  // namespace

std::string device_label(const FtdiDeviceInfo& info) {
  return info.description + " [" + (info.serial_number.empty() ? "(unknown serial)" : info.serial_number) + "]";
}

std::optional<FtdiDeviceInfo> classify_ftdi_interface(const std::string& description,
                                                      const std::string& serial_number) {
  const std::string description_lc = detail::lower_case(description);
  const std::string serial_lc = detail::lower_case(serial_number);
  if (serial_lc.empty() || ends_with(description_lc, " b")) return std::nullopt;

  FtdiDeviceInfo info;
  info.description = description;
  info.serial_number = serial_number;
  info.known_fifo_board = contains(description_lc, "digilent") || contains(description_lc, "ft2232h minimodule");
  info.interface_a = ends_with(serial_lc, "a") || ends_with(description_lc, " a");
  if (!info.known_fifo_board && !info.interface_a) return std::nullopt;
  info.module_key = module_key_of(description_lc, serial_lc);
  return info;
}

bool preferred_before(const FtdiDeviceInfo& a, const FtdiDeviceInfo& b) {
  if (a.known_fifo_board != b.known_fifo_board) return a.known_fifo_board;
  if (a.interface_a != b.interface_a) return a.interface_a;
  return std::forward_as_tuple(detail::lower_case(a.description), detail::lower_case(a.serial_number)) <
         std::forward_as_tuple(detail::lower_case(b.description), detail::lower_case(b.serial_number));
}

std::vector<FtdiDeviceInfo> list_stream_candidates(std::string& error) {
  const D2xxApi& api = d2xx();
  if (!api.usable()) {
    error = api.error;
    return {};
  }
  FtDword count = 0;
  if (!ft_ok(api.create_device_info_list(&count), "FT_CreateDeviceInfoList", error)) return {};

  std::vector<FtdiDeviceInfo> candidates;
  for (FtDword index = 0; index < count; ++index) {
    FtDword flags = 0, type = 0, id = 0, location = 0;
    char serial[kFtSerialBufferSize + 1] = {};
    char description[kFtDescriptionBufferSize + 1] = {};
    FT_HANDLE handle = nullptr;
    if (!ft_ok(api.get_device_info_detail(index, &flags, &type, &id, &location, serial, description, &handle),
               "FT_GetDeviceInfoDetail", error)) {
      return {};
    }
    auto info = classify_ftdi_interface(text_from(description, kFtDescriptionBufferSize),
                                        text_from(serial, kFtSerialBufferSize));
    if (info) candidates.push_back(std::move(*info));
  }
  return candidates;
}

}  // namespace zolt::timing
