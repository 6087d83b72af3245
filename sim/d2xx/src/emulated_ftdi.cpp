#include "emulated_ftdi.hpp"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <thread>

#include "zolt_sim/registry.hpp"

namespace zolt_sim::d2xx {

namespace {

constexpr Dword kFlagOpened = 1;
constexpr Dword kFlagHighSpeed = 2;
constexpr Dword kTypeFt2232h = 6;
constexpr Dword kVidPid = 0x04036010;  // 0403:6010
constexpr Dword kOpenBySerialNumber = 1;
constexpr Dword kOpenByDescription = 2;
constexpr std::uint32_t kPurgeRx = 1;
constexpr int kNoForcedCall = -1;

using Clock = std::chrono::steady_clock;

zolt_sim_ftdi_interface_state power_on_state(unsigned open_count, unsigned purge_count, bool open) {
  zolt_sim_ftdi_interface_state state{};
  state.open = open ? 1 : 0;
  state.latency_ms = 16;
  state.in_transfer_size = 4096;
  state.out_transfer_size = 4096;
  state.open_count = open_count;
  state.purge_count = purge_count;
  return state;
}

void copy_text(const std::string& text, void* destination, std::size_t capacity) {
  if (!destination || capacity == 0) return;
  const std::size_t n = std::min(text.size(), capacity - 1);
  std::memcpy(destination, text.data(), n);
  static_cast<char*>(destination)[n] = '\0';
}

}  // namespace

EmulatedFtdi& EmulatedFtdi::instance() {
  static EmulatedFtdi runtime;
  return runtime;
}

EmulatedFtdi::EmulatedFtdi() { configure_from_environment(); }

void EmulatedFtdi::configure_from_environment() {
  const char* module_list = std::getenv("ZOLT_SIM_FTDI");
  if (!module_list) return;
  std::stringstream entries(module_list);
  std::string entry;
  while (std::getline(entries, entry, ';')) {
    if (entry.empty()) continue;
    const auto equals = entry.find('=');
    const std::string serial = entry.substr(0, equals);
    const std::string description = equals == std::string::npos ? "Digilent USB Device" : entry.substr(equals + 1);
    if (serial.empty()) continue;
    add_module(serial, description, true);
    if (!Registry::global().find(serial)) Registry::global().add(serial, std::make_shared<Instrument>());
  }
}

void EmulatedFtdi::derive_interfaces(Module& module, bool dual_channel) const {
  module.interfaces.clear();
  if (!dual_channel) {
    auto only = std::make_shared<InterfaceState>();
    only->serial = module.serial;
    only->description = module.description;
    only->wired = true;
    only->state = power_on_state(0, 0, false);
    module.interfaces.push_back(only);
    return;
  }
  for (const char letter : {'A', 'B'}) {
    auto interface = std::make_shared<InterfaceState>();
    interface->serial = module.serial + letter;
    interface->description = module.description + ' ' + letter;
    interface->wired = letter == 'A';
    interface->state = power_on_state(0, 0, false);
    module.interfaces.push_back(interface);
  }
}

void EmulatedFtdi::add_module(const std::string& serial, const std::string& description, bool dual_channel) {
  auto module = std::make_shared<Module>();
  module->serial = serial;
  module->description = description;
  derive_interfaces(*module, dual_channel);
  std::lock_guard lock(mutex_);
  for (auto& existing : modules_) {
    if (existing->serial == serial) {
      existing->present = false;
      existing = module;
      return;
    }
  }
  modules_.push_back(module);
}

bool EmulatedFtdi::remove_module(const std::string& serial) {
  std::lock_guard lock(mutex_);
  const auto it = std::find_if(modules_.begin(), modules_.end(), [&](const auto& m) { return m->serial == serial; });
  if (it == modules_.end()) return false;
  (*it)->present = false;
  modules_.erase(it);
  return true;
}

void EmulatedFtdi::reset() {
  std::lock_guard lock(mutex_);
  for (auto& module : modules_) module->present = false;
  modules_.clear();
  listing_.clear();
}

std::shared_ptr<Module> EmulatedFtdi::find_module(const std::string& serial) const {
  for (const auto& module : modules_) {
    if (module->serial == serial) return module;
  }
  return nullptr;
}

bool EmulatedFtdi::fail_call(const std::string& serial, zolt_sim_ftdi_call call, Status status) {
  if (call < 0 || call >= ZOLT_SIM_FTDI_CALL_COUNT) return false;
  std::lock_guard lock(mutex_);
  const auto module = find_module(serial);
  if (!module) return false;
  module->forced[static_cast<std::size_t>(call)] = status;
  return true;
}

bool EmulatedFtdi::set_write_stall(const std::string& serial, bool stalled) {
  std::lock_guard lock(mutex_);
  const auto module = find_module(serial);
  if (!module) return false;
  module->write_stall = stalled;
  return true;
}

bool EmulatedFtdi::interface_state(const std::string& interface_serial,
                                   zolt_sim_ftdi_interface_state& state) const {
  std::lock_guard lock(mutex_);
  for (const auto& module : modules_) {
    for (const auto& interface : module->interfaces) {
      if (interface->serial == interface_serial) {
        state = interface->state;
        return true;
      }
    }
  }
  return false;
}

Status EmulatedFtdi::acquire(void* handle, int call, Handle& out, bool& write_stall) const {
  std::lock_guard lock(mutex_);
  const auto it = handles_.find(handle);
  if (it == handles_.end()) return ZOLT_SIM_FT_INVALID_HANDLE;
  const Handle& h = *it->second;
  if (!h.module->present) return ZOLT_SIM_FT_IO_ERROR;
  if (call != kNoForcedCall) {
    if (const Status forced = h.module->forced[static_cast<std::size_t>(call)]) return forced;
  }
  out = h;
  write_stall = h.module->write_stall;
  return ZOLT_SIM_FT_OK;
}

// ---- listing and opening ----

Status EmulatedFtdi::create_device_info_list(Dword* count) {
  if (!count) return ZOLT_SIM_FT_INVALID_PARAMETER;
  std::lock_guard lock(mutex_);
  listing_.clear();
  for (const auto& module : modules_) {
    for (const auto& interface : module->interfaces) listing_.emplace_back(module, interface);
  }
  *count = static_cast<Dword>(listing_.size());
  return ZOLT_SIM_FT_OK;
}

Status EmulatedFtdi::get_device_info_detail(Dword index, Dword* flags, Dword* type, Dword* id, Dword* location,
                                            void* serial, void* description, void** handle) {
  std::lock_guard lock(mutex_);
  if (index >= listing_.size()) return ZOLT_SIM_FT_DEVICE_NOT_FOUND;
  const auto& [module, interface] = listing_[index];
  if (flags) *flags = kFlagHighSpeed | (interface->state.open ? kFlagOpened : 0);
  if (type) *type = kTypeFt2232h;
  if (id) *id = kVidPid;
  if (location) *location = 0x1001 + index;
  copy_text(interface->serial, serial, 16);
  copy_text(interface->description, description, 64);
  if (handle) {
    *handle = nullptr;
    for (const auto& [key, h] : handles_) {
      if (h->interface == interface) *handle = key;
    }
  }
  return ZOLT_SIM_FT_OK;
}

Status EmulatedFtdi::open_ex(const void* argument, Dword open_flags, void** handle) {
  if (!argument || !handle) return ZOLT_SIM_FT_INVALID_PARAMETER;
  if (open_flags != kOpenBySerialNumber && open_flags != kOpenByDescription) return ZOLT_SIM_FT_INVALID_PARAMETER;
  const std::string wanted = static_cast<const char*>(argument);
  std::lock_guard lock(mutex_);
  for (const auto& module : modules_) {
    for (const auto& interface : module->interfaces) {
      const std::string& name = open_flags == kOpenBySerialNumber ? interface->serial : interface->description;
      if (name != wanted) continue;
      if (const Status forced = module->forced[ZOLT_SIM_FTDI_OPEN_EX]) return forced;
      if (interface->state.open) return ZOLT_SIM_FT_DEVICE_NOT_OPENED;
      auto opened = std::make_unique<Handle>();
      opened->module = module;
      opened->interface = interface;
      if (interface->wired) opened->instrument = Registry::global().find(module->serial);
      interface->state = power_on_state(interface->state.open_count + 1, interface->state.purge_count, true);
      *handle = opened.get();
      handles_.emplace(opened.get(), std::move(opened));
      return ZOLT_SIM_FT_OK;
    }
  }
  return ZOLT_SIM_FT_DEVICE_NOT_FOUND;
}

Status EmulatedFtdi::close(void* handle) {
  std::lock_guard lock(mutex_);
  const auto it = handles_.find(handle);
  if (it == handles_.end()) return ZOLT_SIM_FT_INVALID_HANDLE;
  it->second->interface->state.open = 0;
  handles_.erase(it);
  return ZOLT_SIM_FT_OK;
}

// ---- data ----

Status EmulatedFtdi::read(void* handle, void* buffer, Dword to_read, Dword* read) {
  if (!buffer || !read) return ZOLT_SIM_FT_INVALID_PARAMETER;
  *read = 0;
  Handle h;
  bool stall = false;
  if (const Status status = acquire(handle, ZOLT_SIM_FTDI_READ, h, stall)) return status;
  const unsigned timeout_ms = h.interface->state.read_timeout_ms;
  auto* out = static_cast<std::uint8_t*>(buffer);
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  // FT_Read waits until all bytes came or the read timeout expired (never,
  // with a timeout of 0); a short count with FT_OK is its timeout.
  // What is there already is always taken, however short the timeout.
  bool first_pass = true;
  while (*read < to_read) {
    int wait_ms = 50;
    if (timeout_ms != 0) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
      if (left <= 0 && !first_pass) break;
      wait_ms = static_cast<int>(std::max<long long>(left, 0));
    }
    first_pass = false;
    if (!h.instrument) {
      std::this_thread::sleep_for(std::chrono::milliseconds(wait_ms));
      continue;
    }
    if (h.instrument->link_closed()) return ZOLT_SIM_FT_IO_ERROR;
    *read += static_cast<Dword>(h.instrument->host_read(out + *read, to_read - *read, wait_ms));
  }
  return ZOLT_SIM_FT_OK;
}

Status EmulatedFtdi::write(void* handle, const void* buffer, Dword to_write, Dword* written) {
  if (!buffer || !written) return ZOLT_SIM_FT_INVALID_PARAMETER;
  *written = 0;
  Handle h;
  bool stall = false;
  if (const Status status = acquire(handle, ZOLT_SIM_FTDI_WRITE, h, stall)) return status;
  if (stall) {
    std::this_thread::sleep_for(std::chrono::milliseconds(h.interface->state.write_timeout_ms));
    return ZOLT_SIM_FT_OK;
  }
  if (h.instrument) {
    if (h.instrument->link_closed()) return ZOLT_SIM_FT_IO_ERROR;
    h.instrument->host_write(static_cast<const std::uint8_t*>(buffer), to_write);
  }
  *written = to_write;  // an unwired interface swallows what it gets
  return ZOLT_SIM_FT_OK;
}

Status EmulatedFtdi::get_queue_status(void* handle, Dword* rx_bytes) {
  if (!rx_bytes) return ZOLT_SIM_FT_INVALID_PARAMETER;
  *rx_bytes = 0;
  Handle h;
  bool stall = false;
  if (const Status status = acquire(handle, ZOLT_SIM_FTDI_GET_QUEUE_STATUS, h, stall)) return status;
  if (!h.instrument) return ZOLT_SIM_FT_OK;
  if (h.instrument->link_closed()) return ZOLT_SIM_FT_IO_ERROR;
  *rx_bytes = static_cast<Dword>(h.instrument->host_available());
  return ZOLT_SIM_FT_OK;
}

Status EmulatedFtdi::purge(void* handle, std::uint32_t mask) {
  Handle h;
  bool stall = false;
  if (const Status status = acquire(handle, ZOLT_SIM_FTDI_PURGE, h, stall)) return status;
  // Transmit data is handed over at once, so only the receive side holds
  // anything to throw away.
  if ((mask & kPurgeRx) && h.instrument) h.instrument->host_purge();
  std::lock_guard lock(mutex_);
  ++h.interface->state.purge_count;
  return ZOLT_SIM_FT_OK;
}

Status EmulatedFtdi::reset_device(void* handle) {
  Handle h;
  bool stall = false;
  if (const Status status = acquire(handle, kNoForcedCall, h, stall)) return status;
  if (h.instrument) h.instrument->host_purge();
  return ZOLT_SIM_FT_OK;
}

Status EmulatedFtdi::cycle_port(void* handle) {
  Handle h;
  bool stall = false;
  if (const Status status = acquire(handle, kNoForcedCall, h, stall)) return status;
  // A port cycle re-enumerates the chip: it comes back in its reset mode
  // with empty buffers.
  if (h.instrument) h.instrument->host_purge();
  std::lock_guard lock(mutex_);
  h.interface->state.bit_mask = 0;
  h.interface->state.bit_mode = 0;
  return ZOLT_SIM_FT_OK;
}

// ---- configuration ----

Status EmulatedFtdi::set_timeouts(void* handle, std::uint32_t read_ms, std::uint32_t write_ms) {
  Handle h;
  bool stall = false;
  if (const Status status = acquire(handle, ZOLT_SIM_FTDI_SET_TIMEOUTS, h, stall)) return status;
  std::lock_guard lock(mutex_);
  h.interface->state.read_timeout_ms = read_ms;
  h.interface->state.write_timeout_ms = write_ms;
  return ZOLT_SIM_FT_OK;
}

Status EmulatedFtdi::set_latency_timer(void* handle, unsigned char milliseconds) {
  Handle h;
  bool stall = false;
  if (const Status status = acquire(handle, ZOLT_SIM_FTDI_SET_LATENCY_TIMER, h, stall)) return status;
  if (milliseconds < 1) return ZOLT_SIM_FT_INVALID_PARAMETER;  // the chip's range is 1..255 ms
  std::lock_guard lock(mutex_);
  h.interface->state.latency_ms = milliseconds;
  return ZOLT_SIM_FT_OK;
}

Status EmulatedFtdi::set_usb_parameters(void* handle, std::uint32_t in_size, std::uint32_t out_size) {
  Handle h;
  bool stall = false;
  if (const Status status = acquire(handle, ZOLT_SIM_FTDI_SET_USB_PARAMETERS, h, stall)) return status;
  // The runtime rounds odd sizes itself; only a zero size is refused.
  if (in_size == 0 || out_size == 0) return ZOLT_SIM_FT_INVALID_PARAMETER;
  std::lock_guard lock(mutex_);
  h.interface->state.in_transfer_size = in_size;
  h.interface->state.out_transfer_size = out_size;
  return ZOLT_SIM_FT_OK;
}

Status EmulatedFtdi::set_bit_mode(void* handle, unsigned char mask, unsigned char mode) {
  Handle h;
  bool stall = false;
  const int call = mode == 0 ? ZOLT_SIM_FTDI_SET_BIT_MODE_RESET : ZOLT_SIM_FTDI_SET_BIT_MODE_OTHER;
  if (const Status status = acquire(handle, call, h, stall)) return status;
  std::lock_guard lock(mutex_);
  h.interface->state.bit_mask = mask;
  h.interface->state.bit_mode = mode;
  return ZOLT_SIM_FT_OK;
}

// ---- EEPROM ----

Status EmulatedFtdi::ee_read(void* handle, char* manufacturer, char* manufacturer_id, char* description,
                             char* serial) {
  Handle h;
  bool stall = false;
  if (const Status status = acquire(handle, kNoForcedCall, h, stall)) return status;
  std::lock_guard lock(mutex_);
  // Buffer sizes as the runtime documents them: 32, 16, 64 and 16 bytes.
  copy_text("FTDI", manufacturer, 32);
  copy_text("FT", manufacturer_id, 16);
  copy_text(h.module->description, description, 64);
  copy_text(h.module->serial, serial, 16);
  return ZOLT_SIM_FT_OK;
}

Status EmulatedFtdi::ee_program(void* handle, const char* description, const char* serial) {
  Handle h;
  bool stall = false;
  if (const Status status = acquire(handle, kNoForcedCall, h, stall)) return status;
  std::lock_guard lock(mutex_);
  // The new names show after the next enumeration; open handles keep theirs.
  if (description && *description) h.module->description = description;
  if (serial && *serial) h.module->serial = serial;
  const bool dual = h.module->interfaces.size() == 2;
  for (std::size_t i = 0; i < h.module->interfaces.size(); ++i) {
    auto& interface = *h.module->interfaces[i];
    interface.serial = h.module->serial;
    interface.description = h.module->description;
    if (dual) {
      const char letter = i == 0 ? 'A' : 'B';
      interface.serial += letter;
      interface.description += std::string(" ") + letter;
    }
  }
  return ZOLT_SIM_FT_OK;
}

}  // namespace zolt_sim::d2xx
