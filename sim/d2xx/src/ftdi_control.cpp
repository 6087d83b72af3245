// The C control API of the emulated FTDI runtime.

#include "zolt_sim/ftdi_control.h"

#include "emulated_ftdi.hpp"

using zolt_sim::d2xx::EmulatedFtdi;

namespace {

int result(bool ok) { return ok ? 0 : -1; }

}  // namespace

extern "C" {

int zolt_sim_ftdi_add_module(const char* serial, const char* description, int dual_channel) {
  if (!serial || !*serial || !description) return -1;
  EmulatedFtdi::instance().add_module(serial, description, dual_channel != 0);
  return 0;
}

int zolt_sim_ftdi_remove_module(const char* serial) {
  return serial ? result(EmulatedFtdi::instance().remove_module(serial)) : -1;
}

void zolt_sim_ftdi_reset(void) { EmulatedFtdi::instance().reset(); }

int zolt_sim_ftdi_fail_call(const char* serial, zolt_sim_ftdi_call call, unsigned status) {
  return serial ? result(EmulatedFtdi::instance().fail_call(serial, call, status)) : -1;
}

int zolt_sim_ftdi_set_write_stall(const char* serial, int stalled) {
  return serial ? result(EmulatedFtdi::instance().set_write_stall(serial, stalled != 0)) : -1;
}

int zolt_sim_ftdi_interface_state_of(const char* interface_serial, zolt_sim_ftdi_interface_state* state) {
  if (!interface_serial || !state) return -1;
  return result(EmulatedFtdi::instance().interface_state(interface_serial, *state));
}

}  // extern "C"
