#pragma once

// The process-wide binding to the FTDI D2XX runtime. The runtime is loaded
// with dlopen on first use, never linked: without it every serial feature
// still works and only USB operations fail, with the load error as message.

#include <string>
#include <vector>

#include "usb/d2xx_types.hpp"

namespace zolt::timing {

struct D2xxApi {
  void* library = nullptr;  // dlopen handle; null when nothing could be loaded
  std::string error;        // why loading or binding failed; empty on success

  // Required: the load fails when any of these is missing. Bound in this order.
  FtCreateDeviceInfoListFn create_device_info_list = nullptr;
  FtGetDeviceInfoDetailFn get_device_info_detail = nullptr;
  FtOpenExFn open_ex = nullptr;
  FtCloseFn close = nullptr;
  FtReadFn read = nullptr;
  FtWriteFn write = nullptr;
  FtResetDeviceFn reset_device = nullptr;
  FtPurgeFn purge = nullptr;
  FtSetTimeoutsFn set_timeouts = nullptr;
  FtSetLatencyTimerFn set_latency_timer = nullptr;
  FtSetUsbParametersFn set_usb_parameters = nullptr;
  FtGetQueueStatusFn get_queue_status = nullptr;
  FtSetBitModeFn set_bit_mode = nullptr;

  // Optional: older or trimmed runtimes lack them; null then.
  FtCyclePortFn cycle_port = nullptr;
  FtEepromFn ee_read_ex = nullptr;
  FtEepromFn ee_program_ex = nullptr;

  // True when the runtime was loaded and every required function is bound.
  bool usable() const noexcept { return library != nullptr && error.empty(); }
};

// The table, loaded on the first call (thread-safe). Later calls return the
// same table, also after a failed load: there is no retry within a process.
const D2xxApi& d2xx();

namespace detail {

// Where the runtime is looked for, in order: next to this library, next to
// the program, the dynamic loader's own search, then three system paths.
std::vector<std::string> d2xx_candidates();

// Loads and binds from the first candidate that dlopen accepts. d2xx() uses
// it once; tests use it to bind specific runtime builds by path. The handle
// is never closed: function pointers from it may be held anywhere.
D2xxApi load_d2xx(const std::vector<std::string>& candidates);

}  // namespace detail

}  // namespace zolt::timing
