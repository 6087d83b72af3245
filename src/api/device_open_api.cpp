// Exported functions that open and close instruments.

#include <memory>
#include <optional>
#include <string>

#include "api/boundary.hpp"
#include "api/device_handle.hpp"
#include "api/discovery_handle.hpp"
#include "link/discovery.hpp"
#include "link/locator.hpp"

namespace {

constexpr int kDefaultBaud = 3000000;

// The first discovered port, or the one serving `serial`; nothing when
// discovery finds no such instrument.
template <class Choose>
tt_status open_discovered(tt_device** out, Choose&& choose) {
  tt_discovery* discovery = nullptr;
  const tt_status status = tt_discover(&discovery);
  if (status != TT_OK) return status;
  const std::unique_ptr<tt_discovery, void (*)(tt_discovery*)> owned(discovery, tt_discover_free);
  std::optional<std::string> port;
  const tt_status chosen = zolt::timing::detail::guarded([&]() -> tt_status {
    port = choose(*discovery);
    return TT_OK;
  });
  if (chosen != TT_OK) return chosen;
  if (!port) return TT_ERR_NOT_FOUND;
  return tt_open(out, port->c_str(), kDefaultBaud);
}

}  // namespace

extern "C" {

ZOLT_TIMING_API tt_status tt_open(tt_device** out, const char* locator, int baud) {
  if (zolt::timing::detail::any_null(out, locator)) return TT_ERR_INVALID_ARGUMENT;
  *out = nullptr;
  return zolt::timing::detail::guarded([&]() -> tt_status {
    auto device = std::make_unique<tt_device>();
    const tt_status status = device->impl.open(locator, baud);
    if (status != TT_OK) return status;  // the half-built handle goes with `device`
    device->locator = locator;
    *out = device.release();
    return TT_OK;
  });
}

ZOLT_TIMING_API tt_status tt_open_first(tt_device** out) {
  if (zolt::timing::detail::any_null(out)) return TT_ERR_INVALID_ARGUMENT;
  *out = nullptr;
  return open_discovered(out, [](const tt_discovery& discovery) -> std::optional<std::string> {
    if (discovery.count() == 0) return std::nullopt;
    return discovery.found.devices.front().port;
  });
}

ZOLT_TIMING_API tt_status tt_open_serial(tt_device** out, const char* serial_or_locator) {
  if (zolt::timing::detail::any_null(out, serial_or_locator)) return TT_ERR_INVALID_ARGUMENT;
  *out = nullptr;
  if (zolt::timing::is_direct_locator(serial_or_locator)) return tt_open(out, serial_or_locator, kDefaultBaud);
  return open_discovered(out, [serial_or_locator](const tt_discovery& discovery) {
    return zolt::timing::port_for_serial(discovery.found, serial_or_locator);
  });
}

ZOLT_TIMING_API void tt_close(tt_device* device) {
  // The handle's members go in reverse order of declaration: what runs on
  // top of the link first, then the texts, then the FTDI reader and last
  // the serial port. Nothing is sent to the instrument.
  delete device;
}

}  // extern "C"
