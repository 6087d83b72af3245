#include "link/locator.hpp"

#include <algorithm>
#include <array>
#include <cctype>

namespace zolt::timing {
namespace {

bool starts_with_ignoring_case(std::string_view text, std::string_view prefix) noexcept {
  return text.size() >= prefix.size() &&
         std::equal(prefix.begin(), prefix.end(), text.begin(), [](char a, char b) {
           return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
         });
}

std::string usb_selector_of(std::string_view text) {
  if (const auto scheme = text.find("://"); scheme != std::string_view::npos) {
    return std::string(text.substr(scheme + 3));
  }
  if (const auto colon = text.find(':'); colon != std::string_view::npos) {
    return std::string(text.substr(colon + 1));
  }
  return {};
}

}  // namespace

Locator classify_locator(std::string_view text) {
  static constexpr std::array<std::string_view, 3> kUsbPrefixes = {"ftdi", "usb-fifo", "usb_fifo"};
  const bool usb = std::any_of(kUsbPrefixes.begin(), kUsbPrefixes.end(),
                               [text](std::string_view prefix) { return starts_with_ignoring_case(text, prefix); });
  if (!usb) return Locator{};
  return Locator{Locator::Kind::usb, usb_selector_of(text)};
}

bool is_direct_locator(std::string_view text) noexcept {
  // Only these two spellings of the scheme; "Ftdi://..." is looked up.
  const std::string_view scheme = text.substr(0, 7);
  return scheme == "ftdi://" || scheme == "FTDI://" || text.starts_with("COM") || text.starts_with("\\\\.\\") ||
         text.starts_with("/dev/");
}

}  // namespace zolt::timing
