#pragma once

// What a tt_discovery handle owns: the instruments found and their
// identities, until tt_discover_free.

#include "link/discovery.hpp"
#include "zolt_timing.h"

struct tt_discovery {
  zolt::timing::Discovery found;

  std::size_t count() const noexcept { return found.devices.size(); }
};
