#pragma once

// A virtual instrument served on a pseudo-terminal, for tests that drive the
// library over a real serial device node.

#include <chrono>
#include <memory>
#include <string>

#include "zolt_sim/instrument.hpp"
#include "zolt_sim/pty_front_end.hpp"

namespace zolt::timing::testing {

struct VirtualPort {
  std::shared_ptr<zolt_sim::Instrument> instrument = std::make_shared<zolt_sim::Instrument>();
  zolt_sim::PtyFrontEnd front_end{instrument};

  const std::string& path() const { return front_end.device_path(); }
};

// Milliseconds taken by body().
template <class Body>
long long elapsed_ms(Body&& body) {
  const auto start = std::chrono::steady_clock::now();
  body();
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace zolt::timing::testing
