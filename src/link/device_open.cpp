// DeviceImpl::open and close: a serial path, or an FTDI module opened as the
// asynchronous command bridge.

#include <string>
#include <vector>

#include "api/env_switch.hpp"
#include "link/clock.hpp"
#include "link/device_impl.hpp"
#include "link/locator.hpp"
#include "usb/d2xx_api.hpp"
#include "usb/ftdi_device_info.hpp"
#include "usb/ftdi_selection.hpp"

namespace zolt::timing {
namespace {

// An instrument whose external reference is missing does not answer
// commands until it is switched to its internal one. Read once per process.
const EnvSwitch kForceInternalOnOpen{"ZOLT_FORCE_INTERNAL_ON_OPEN"};

constexpr int kSettleAfterOpenMs = 5;

// A selector names a module by the serial of its stream interface
// ("ZT000001A"), by the module's serial ("ZT000001"), or by (part of) its
// description. Serials win; anything else is taken as a description.
FtdiRequest request_for_selector(const std::string& selector) {
  if (selector.empty()) return {};
  std::string ignored;
  const std::string wanted = detail::lower_case(selector);
  for (const FtdiDeviceInfo& candidate : list_stream_candidates(ignored)) {
    if (detail::lower_case(candidate.serial_number) == wanted || candidate.module_key == wanted) {
      return FtdiRequest{candidate.serial_number, {}};
    }
  }
  return FtdiRequest{{}, selector};
}

}  // namespace

tt_status DeviceImpl::open(const std::string& locator, int baud) {
  const Locator parsed = classify_locator(locator);
  if (parsed.kind == Locator::Kind::usb) return open_ftdi_async(parsed.usb_selector);
  return open_serial(locator, baud);
}

tt_status DeviceImpl::open_serial(const std::string& path, int baud) {
  close_usb_link();
  if (!serial_.open(path, baud)) {
    last_error_ = serial_.last_error();
    return TT_ERR_IO;
  }
  port_path_ = path;
  baud_ = baud;
  forget_usb_open();
  last_error_.clear();
  return TT_OK;
}

tt_status DeviceImpl::open_ftdi_async(const std::string& selector) {
  close_usb_link();
  serial_.close();
  host_identity_override_ = true;
  usb_selector_ = selector;
  opened_usb_serial_.clear();
  usb_port_label_.clear();
  if (const D2xxApi& api = d2xx(); !api.usable()) {
    last_error_ = "FTDI async control: " + api.error;
    return TT_ERR_UNSUPPORTED;
  }
  const FtdiRequest request = request_for_selector(selector);
  if (!ftdi_.open(FtdiStreamReader::Mode::async_bridge, request.serial_number, request.description)) {
    last_error_ = "FTDI async control: " + ftdi_.last_error();
    return TT_ERR_IO;
  }
  usb_command_bridge_ = true;
  opened_usb_serial_ = ftdi_.serial_number();
  usb_port_label_ = ftdi_.label();
  port_path_.clear();
  baud_ = 0;
  sleep_ms(kSettleAfterOpenMs);
  // The instrument may still be streaming for a previous session; commands
  // are answered only once every stream is stopped.
  recover_usb_command_bridge();
  if (kForceInternalOnOpen.on()) force_internal_reference_for_command_link();
  last_error_.clear();
  return TT_OK;
}

void DeviceImpl::forget_usb_open() noexcept {
  host_identity_override_ = false;
  usb_selector_.clear();
  opened_usb_serial_.clear();
  usb_port_label_.clear();
}

tt_status DeviceImpl::close() noexcept {
  close_usb_link();
  serial_.close();
  forget_usb_open();
  measurement_stream_active_ = false;
  return TT_OK;
}

}  // namespace zolt::timing
