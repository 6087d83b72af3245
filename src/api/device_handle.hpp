#pragma once

// What an open tt_device holds. The members are destroyed in reverse order of
// declaration, which is the teardown order tt_close relies on: what depends on
// the link goes first, the links themselves (inside DeviceImpl) last.

#include <string>

#include "link/device_impl.hpp"
#include "zolt_timing.h"

struct tt_device {
  zolt::timing::DeviceImpl impl;
  std::string locator;     // the text the handle was opened with
  std::string last_error;  // handle-level text; wins over impl's in tt_last_error
};
