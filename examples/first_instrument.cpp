// Finds instruments, opens one, prints what it is, closes it.
//
// Without hardware, this program starts a virtual instrument of its own on a
// pseudo-terminal (zolt_sim is used for that and nothing else; everything
// else goes through the public C interface). Discovery looks at
// /dev/serial/by-id, /dev/ttyUSB* and /dev/ttyACM* and at FTDI USB modules,
// so it does not see a pseudo-terminal: the virtual instrument is opened by
// its device path instead, as an application would open a port it was told.
//
// Usage: zolt_first_instrument [locator]   (default: the virtual instrument)

#include <cstdio>
#include <memory>
#include <string>

#include "zolt_sim/instrument.hpp"
#include "zolt_sim/pty_front_end.hpp"
#include "zolt_timing.h"

namespace {

void print_discovery() {
  tt_discovery* discovery = nullptr;
  const tt_status status = tt_discover(&discovery);
  if (status != TT_OK) {
    std::printf("discovery failed: %s\n", tt_status_string(status));
    return;
  }
  const size_t count = tt_discover_count(discovery);
  std::printf("discovered %zu instrument(s)\n", count);
  for (size_t i = 0; i < count; ++i) {
    tt_device_info info{};
    tt_discover_info(discovery, i, &info);
    std::printf("  [%zu] %-40s %s  (model %s, serial %s)\n", i, tt_discover_port(discovery, i),
                tt_discover_identity(discovery, i)->identity, info.model, info.serial);
  }
  tt_discover_free(discovery);
}

// Prints the identity and device information of an open device, closes it.
int show_and_close(tt_device* device, const char* locator) {
  tt_status status = TT_OK;
  tt_identity identity{};
  tt_device_info info{};
  status = tt_identify(device, &identity);
  if (status == TT_OK) status = tt_get_device_info(device, &info);
  if (status != TT_OK) {
    std::printf("%s did not identify itself: %s (%s)\n", locator, tt_status_string(status), tt_last_error(device));
    tt_close(device);
    return 1;
  }
  std::printf("opened %s\n", locator);
  std::printf("  identity      %s\n", identity.identity);
  std::printf("  manufacturer  %s\n  device class  %s\n  serial        %s\n", identity.manufacturer,
              identity.device_class, identity.serial);
  std::printf("  device info   port %s, model %s, serial %s\n", info.port, info.model, info.serial);
  tt_close(device);
  std::printf("closed %s\n", locator);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::unique_ptr<zolt_sim::PtyFrontEnd> virtual_instrument;
  std::string locator;
  if (argc > 1) {
    locator = argv[1];
  } else {
    auto instrument = std::make_shared<zolt_sim::Instrument>();
    virtual_instrument = std::make_unique<zolt_sim::PtyFrontEnd>(instrument);
    locator = virtual_instrument->device_path();
    std::printf("virtual instrument serving on %s\n", locator.c_str());
  }
  print_discovery();

  tt_device* device = nullptr;
  const tt_status status = tt_open(&device, locator.c_str(), 3000000);
  if (status != TT_OK) {
    std::printf("could not open %s: %s\n", locator.c_str(), tt_status_string(status));
    return 1;
  }
  int failures = show_and_close(device, locator.c_str());

  // The first instrument discovery finds (USB modules come first).
  if (tt_open_first(&device) == TT_OK) {
    tt_device_info info{};
    tt_get_device_info(device, &info);
    std::printf("tt_open_first opened %s\n", info.port);
    const std::string first = info.port;
    failures += show_and_close(device, first.c_str());
  } else {
    std::printf("tt_open_first: nothing discovered\n");
  }
  return failures == 0 ? 0 : 1;
}
