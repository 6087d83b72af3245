#pragma once

// The emulated D2XX runtime's model: modules, their interfaces, open handles
// and the wiring of interface A to a virtual instrument. The exported FT_*
// functions (ft_exports.cpp) and the control API (ftdi_control.cpp) are thin
// layers over this class.

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <map>
#include <string>
#include <vector>

#include "zolt_sim/ftdi_control.h"
#include "zolt_sim/instrument.hpp"

namespace zolt_sim::d2xx {

using Status = std::uint32_t;
using Dword = std::uint32_t;

struct InterfaceState {
  std::string serial;
  std::string description;
  bool wired = false;  // interface A: carries the instrument's link
  zolt_sim_ftdi_interface_state state{};
};

struct Module {
  std::string serial;
  std::string description;
  std::vector<std::shared_ptr<InterfaceState>> interfaces;
  std::array<Status, ZOLT_SIM_FTDI_CALL_COUNT> forced{};
  bool write_stall = false;
  bool present = true;
};

// One FT_HANDLE: the opened interface and the instrument bound at open.
struct Handle {
  std::shared_ptr<Module> module;
  std::shared_ptr<InterfaceState> interface;
  std::shared_ptr<Instrument> instrument;
};

class EmulatedFtdi {
 public:
  static EmulatedFtdi& instance();

  // ---- control ----
  void add_module(const std::string& serial, const std::string& description, bool dual_channel);
  bool remove_module(const std::string& serial);
  void reset();
  bool fail_call(const std::string& serial, zolt_sim_ftdi_call call, Status status);
  bool set_write_stall(const std::string& serial, bool stalled);
  bool interface_state(const std::string& interface_serial, zolt_sim_ftdi_interface_state& state) const;

  // ---- D2XX ----
  Status create_device_info_list(Dword* count);
  Status get_device_info_detail(Dword index, Dword* flags, Dword* type, Dword* id, Dword* location,
                                void* serial, void* description, void** handle);
  Status open_ex(const void* argument, Dword open_flags, void** handle);
  Status close(void* handle);
  Status read(void* handle, void* buffer, Dword to_read, Dword* read);
  Status write(void* handle, const void* buffer, Dword to_write, Dword* written);
  Status reset_device(void* handle);
  Status purge(void* handle, std::uint32_t mask);
  Status set_timeouts(void* handle, std::uint32_t read_ms, std::uint32_t write_ms);
  Status set_latency_timer(void* handle, unsigned char milliseconds);
  Status set_usb_parameters(void* handle, std::uint32_t in_size, std::uint32_t out_size);
  Status get_queue_status(void* handle, Dword* rx_bytes);
  Status set_bit_mode(void* handle, unsigned char mask, unsigned char mode);
  Status cycle_port(void* handle);
  Status ee_read(void* handle, char* manufacturer, char* manufacturer_id, char* description, char* serial);
  Status ee_program(void* handle, const char* description, const char* serial);

 private:
  EmulatedFtdi();
  void configure_from_environment();
  // Copies the handle's bindings under the lock. Fails with FT_INVALID_HANDLE
  // for unknown handles, FT_IO_ERROR once the module is gone, or the forced
  // status of `call`.
  Status acquire(void* handle, int call, Handle& out, bool& write_stall) const;
  void derive_interfaces(Module& module, bool dual_channel) const;
  std::shared_ptr<Module> find_module(const std::string& serial) const;

  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<Module>> modules_;
  // What FT_CreateDeviceInfoList saw; FT_GetDeviceInfoDetail reads from it.
  std::vector<std::pair<std::shared_ptr<Module>, std::shared_ptr<InterfaceState>>> listing_;
  std::map<void*, std::unique_ptr<Handle>> handles_;
};

}  // namespace zolt_sim::d2xx
