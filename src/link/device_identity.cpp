// DeviceImpl::identify: the three identity commands, the printable check and
// the identity the host makes for instruments reached over USB only.

#include <array>
#include <string>

#include "link/command_frame.hpp"
#include "link/device_impl.hpp"
#include "link/identity_record.hpp"

namespace zolt::timing {
namespace {

constexpr std::array<std::uint8_t, 3> kIdentityCommands = {0x41, 0x42, 0x43};

using ReplyPayload = std::array<std::uint8_t, detail::kFramePayloadSize>;

std::string not_printable_message(const std::array<ReplyPayload, 3>& replies) {
  return "identity reply payload was not printable ASCII mfg=[" + detail::payload_hex(replies[0].data()) +
         "] class=[" + detail::payload_hex(replies[1].data()) + "] serial=[" +
         detail::payload_hex(replies[2].data()) + "]";
}

}  // namespace

std::string DeviceImpl::effective_usb_serial() const {
  for (const std::string* candidate :
       {&opened_usb_serial_, &ftdi_.serial_number(), &ftdi_.description(), &usb_selector_}) {
    if (!candidate->empty()) return *candidate;
  }
  return {};
}

void DeviceImpl::apply_host_identity_override(tt_identity& identity) const {
  if (!host_identity_override_) return;
  const std::string serial = effective_usb_serial();
  if (!serial.empty()) detail::fill_host_identity(identity, serial);
}

tt_status DeviceImpl::identify(tt_identity& identity, int timeout_ms) {
  identity = tt_identity{};
  cmd_purge();
  std::array<ReplyPayload, 3> replies{};
  std::array<std::string, 3> texts;
  for (std::size_t i = 0; i < kIdentityCommands.size(); ++i) {
    const tt_status status = send_command(kIdentityCommands[i], nullptr, 0, replies[i].data(), timeout_ms);
    if (status != TT_OK) return status;
    texts[i] = detail::identity_field_text(replies[i].data());
  }
  const bool printable = detail::printable_identity_field(texts[0]) && detail::printable_identity_field(texts[1]) &&
                         detail::printable_identity_field(texts[2]);
  if (printable) {
    detail::fill_identity(identity, texts[0], texts[1], texts[2]);
    apply_host_identity_override(identity);
    return TT_OK;
  }
  // An instrument reached over USB is named by its module's serial number;
  // its own identity replies are not needed for that.
  if (host_identity_override_ && !effective_usb_serial().empty()) {
    apply_host_identity_override(identity);
    return TT_OK;
  }
  last_error_ = not_printable_message(replies);
  return TT_ERR_PROTOCOL;
}

}  // namespace zolt::timing
