#include "link/discovery.hpp"

#include <algorithm>
#include <mutex>
#include <utility>

#include "link/device_impl.hpp"
#include "link/identity_record.hpp"
#include "link/path_glob.hpp"
#include "usb/ftdi_device_info.hpp"

namespace zolt::timing {
namespace {

std::mutex root_mutex;
std::string& device_root_storage() {
  static std::string root = "/dev";
  return root;
}

constexpr std::string_view kUsbScheme = "ftdi://";

bool is_usb_entry(const DiscoveredDevice& device) { return device.port.starts_with(kUsbScheme); }

void add_usb_modules(Discovery& found) {
  // Without the FTDI runtime, or when listing fails, there simply are no
  // USB entries: discovery reports what it can reach.
  std::string ignored;
  for (const FtdiDeviceInfo& module : list_stream_candidates(ignored)) {
    DiscoveredDevice device{std::string(kUsbScheme) + module.serial_number, module.serial_number, module.module_key,
                            module.description};
    tt_identity identity{};
    detail::fill_host_identity(identity, module.serial_number);
    found.devices.push_back(std::move(device));
    found.identities.push_back(identity);
  }
}

void add_answering_serial_ports(Discovery& found, int baud, int timeout_ms) {
  for (const std::string& port : list_serial_ports()) {
    tt_identity identity{};
    if (probe_identity(port, baud, timeout_ms, identity) != TT_OK) continue;
    found.devices.push_back(DiscoveredDevice{port, identity.serial, {}, {}});
    found.identities.push_back(identity);
  }
}

bool equal_ignoring_case(const std::string& a, const std::string& b) {
  return !a.empty() && detail::lower_case(a) == detail::lower_case(b);
}

}  // namespace

namespace detail {

std::string serial_device_root() {
  const std::lock_guard lock(root_mutex);
  return device_root_storage();
}

void set_serial_device_root(std::string root) {
  const std::lock_guard lock(root_mutex);
  device_root_storage() = std::move(root);
}

}  // namespace detail

void add_globbed_ports(std::set<std::string>& seen, std::vector<std::string>& ports, const std::string& pattern,
                       bool resolve) {
  for (std::string& path : detail::glob_paths(pattern)) {
    if (resolve) {
      if (auto target = detail::real_path(path)) seen.insert(std::move(*target));
    } else if (seen.count(path) != 0) {
      continue;
    }
    ports.push_back(std::move(path));
  }
}

std::vector<std::string> list_serial_ports(const std::string& device_root) {
  std::set<std::string> seen;
  std::vector<std::string> ports;
  add_globbed_ports(seen, ports, device_root + "/serial/by-id/*", true);
  add_globbed_ports(seen, ports, device_root + "/ttyUSB*", false);
  add_globbed_ports(seen, ports, device_root + "/ttyACM*", false);
  std::sort(ports.begin(), ports.end());
  return ports;
}

std::vector<std::string> list_serial_ports() { return list_serial_ports(detail::serial_device_root()); }

tt_status probe_identity(const std::string& port, int baud, int timeout_ms, tt_identity& identity) {
  DeviceImpl probe;
  const tt_status status = probe.open(port, baud);
  if (status != TT_OK) return status;
  return probe.identify(identity, timeout_ms);
}

Discovery discover_all(int baud, int timeout_ms) {
  Discovery found;
  add_usb_modules(found);
  add_answering_serial_ports(found, baud, timeout_ms);
  return found;
}

std::optional<std::string> port_for_serial(const Discovery& found, const std::string& text) {
  const DiscoveredDevice* serial_match = nullptr;
  for (std::size_t i = 0; i < found.devices.size(); ++i) {
    if (text != found.identities[i].serial) continue;
    if (is_usb_entry(found.devices[i])) return found.devices[i].port;
    if (serial_match == nullptr) serial_match = &found.devices[i];
  }
  if (serial_match != nullptr) return serial_match->port;
  for (const DiscoveredDevice& device : found.devices) {
    if (!is_usb_entry(device)) continue;
    if (equal_ignoring_case(device.serial_number, text) || equal_ignoring_case(device.module_serial, text) ||
        equal_ignoring_case(device.description, text)) {
      return device.port;
    }
  }
  return std::nullopt;
}

}  // namespace zolt::timing
