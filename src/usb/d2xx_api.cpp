#include "usb/d2xx_api.hpp"

#include "usb/dynamic_library.hpp"

namespace zolt::timing {

namespace {

constexpr const char* kRuntimeName = "libftd2xx.so";

template <typename Fn>
bool bind(void* library, const char* name, Fn& slot) {
  void* symbol = detail::find_symbol(library, name);
  if (!symbol) return false;
  slot = reinterpret_cast<Fn>(symbol);
  return true;
}

// Binds the required functions in table order; returns the first missing
// name, or nullptr when all are there.
const char* bind_required(D2xxApi& api) {
  void* lib = api.library;
  if (!bind(lib, "FT_CreateDeviceInfoList", api.create_device_info_list)) return "FT_CreateDeviceInfoList";
  if (!bind(lib, "FT_GetDeviceInfoDetail", api.get_device_info_detail)) return "FT_GetDeviceInfoDetail";
  if (!bind(lib, "FT_OpenEx", api.open_ex)) return "FT_OpenEx";
  if (!bind(lib, "FT_Close", api.close)) return "FT_Close";
  if (!bind(lib, "FT_Read", api.read)) return "FT_Read";
  if (!bind(lib, "FT_Write", api.write)) return "FT_Write";
  if (!bind(lib, "FT_ResetDevice", api.reset_device)) return "FT_ResetDevice";
  if (!bind(lib, "FT_Purge", api.purge)) return "FT_Purge";
  if (!bind(lib, "FT_SetTimeouts", api.set_timeouts)) return "FT_SetTimeouts";
  if (!bind(lib, "FT_SetLatencyTimer", api.set_latency_timer)) return "FT_SetLatencyTimer";
  if (!bind(lib, "FT_SetUSBParameters", api.set_usb_parameters)) return "FT_SetUSBParameters";
  if (!bind(lib, "FT_GetQueueStatus", api.get_queue_status)) return "FT_GetQueueStatus";
  if (!bind(lib, "FT_SetBitMode", api.set_bit_mode)) return "FT_SetBitMode";
  return nullptr;
}

void bind_optional(D2xxApi& api) {
  bind(api.library, "FT_CyclePort", api.cycle_port);
  bind(api.library, "FT_EE_ReadEx", api.ee_read_ex);
  bind(api.library, "FT_EE_ProgramEx", api.ee_program_ex);
}

}  // namespace

namespace detail {

std::vector<std::string> d2xx_candidates() {
  std::vector<std::string> candidates;
  const std::string own = module_directory();
  if (!own.empty()) candidates.push_back(own + "/" + kRuntimeName);
  const std::string program = process_directory();
  if (!program.empty()) candidates.push_back(program + "/" + kRuntimeName);
  candidates.emplace_back(kRuntimeName);
  candidates.emplace_back("/usr/local/lib/libftd2xx.so");
  candidates.emplace_back("/usr/lib/x86_64-linux-gnu/libftd2xx.so");
  candidates.emplace_back("/usr/lib/libftd2xx.so");
  return candidates;
}

D2xxApi load_d2xx(const std::vector<std::string>& candidates) {
  D2xxApi api;
  std::string last_loader_error;
  for (const auto& candidate : candidates) {
    api.library = open_library(candidate, last_loader_error);
    if (api.library) break;
  }
  if (!api.library) {
    api.error = std::string("FTDI D2XX runtime not available (could not load ") + kRuntimeName;
    if (!last_loader_error.empty()) api.error += ": " + last_loader_error;
    api.error += ")";
    return api;
  }
  if (const char* missing = bind_required(api)) {
    api.error = std::string("FTDI D2XX runtime is missing required symbol ") + missing;
    return api;
  }
  bind_optional(api);
  return api;
}

}  // namespace detail

const D2xxApi& d2xx() {
  // A function-local static: C++ guarantees one initialisation even when
  // several threads make the first call together.
  static const D2xxApi api = detail::load_d2xx(detail::d2xx_candidates());
  return api;
}

}  // namespace zolt::timing
