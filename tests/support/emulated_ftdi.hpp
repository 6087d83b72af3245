#pragma once

// Emulated FT2232H modules wired to virtual instruments, for tests that drive
// the library's USB path through the emulated D2XX runtime. The test program
// links the runtime's control library; the library under test loads
// libftd2xx.so itself (LD_LIBRARY_PATH is set by CTest).

#include <stdlib.h>

#include <memory>
#include <string>

#include "test_process.hpp"

#include "zolt_sim/ftdi_control.h"
#include "zolt_sim/instrument.hpp"
#include "zolt_sim/registry.hpp"

namespace zolt::timing::testing {

// No emulated modules and no selection from the environment.
struct CleanSlate {
  CleanSlate() {
    ::unsetenv("ZOLT_TIMING_USB_SERIAL");
    ::unsetenv("ZOLT_TIMING_USB_DESCRIPTION");
    zolt_sim_ftdi_reset();
  }
};

// One dual-channel module whose interface A is wired to its own instrument.
class EmulatedModule {
 public:
  EmulatedModule(std::string serial, const std::string& description)
      : serial_(std::move(serial)), instrument_(std::make_shared<zolt_sim::Instrument>()) {
    zolt_sim::Registry::global().add(serial_, instrument_);
    zolt_sim_ftdi_add_module(serial_.c_str(), description.c_str(), 1);
  }
  ~EmulatedModule() {
    zolt_sim_ftdi_remove_module(serial_.c_str());
    zolt_sim::Registry::global().remove(serial_);
  }
  EmulatedModule(const EmulatedModule&) = delete;
  EmulatedModule& operator=(const EmulatedModule&) = delete;

  const std::string& serial() const { return serial_; }
  std::string interface_a() const { return serial_ + "A"; }
  zolt_sim::Instrument& instrument() const { return *instrument_; }

  zolt_sim_ftdi_interface_state state_a() const {
    zolt_sim_ftdi_interface_state state{};
    zolt_sim_ftdi_interface_state_of(interface_a().c_str(), &state);
    return state;
  }
  void fail(zolt_sim_ftdi_call call, unsigned status) const { zolt_sim_ftdi_fail_call(serial_.c_str(), call, status); }

 private:
  std::string serial_;
  std::shared_ptr<zolt_sim::Instrument> instrument_;
};

}  // namespace zolt::timing::testing
