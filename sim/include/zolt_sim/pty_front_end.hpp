#pragma once

// Serves a virtual instrument on a pseudo-terminal. The host opens
// device_path() exactly as it would open /dev/ttyUSB0; a serving thread moves
// bytes between the terminal and the instrument. When the instrument's link is
// closed the terminal hangs up: the host's writes fail from then on.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "zolt_sim/instrument.hpp"

namespace zolt_sim {

class PtyFrontEnd {
 public:
  // Opens the pseudo-terminal and starts serving. Throws std::system_error
  // when the system refuses a pseudo-terminal.
  explicit PtyFrontEnd(std::shared_ptr<Instrument> instrument);
  // Stops the serving thread and closes the terminal.
  ~PtyFrontEnd();
  PtyFrontEnd(const PtyFrontEnd&) = delete;
  PtyFrontEnd& operator=(const PtyFrontEnd&) = delete;

  const std::string& device_path() const noexcept { return device_path_; }
  Instrument& instrument() const noexcept { return *instrument_; }
  const std::shared_ptr<Instrument>& shared_instrument() const noexcept { return instrument_; }

 private:
  void serve();
  void pump_host_to_instrument();
  void pump_instrument_to_host();
  void hang_up();

  std::shared_ptr<Instrument> instrument_;
  int master_ = -1;
  // Kept open so that the terminal stays usable while no host has it open
  // (otherwise the master reports a hang-up after every host close).
  int keeper_ = -1;
  std::string device_path_;
  std::vector<std::uint8_t> outgoing_;  // read from the instrument, not yet written
  std::size_t outgoing_offset_ = 0;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace zolt_sim
