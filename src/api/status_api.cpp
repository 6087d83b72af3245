// Exported status texts, last-error access and version strings.

#include "api/device_handle.hpp"
#include "zolt_timing.h"

extern "C" {

ZOLT_TIMING_API const char* tt_status_string(tt_status status) {
  switch (status) {
    case TT_OK: return "ok";
    case TT_ERR_INVALID_ARGUMENT: return "invalid argument";
    case TT_ERR_IO: return "i/o error";
    case TT_ERR_TIMEOUT: return "timeout";
    case TT_ERR_PROTOCOL: return "protocol error";
    case TT_ERR_NOT_FOUND: return "not found";
    case TT_ERR_INVALID_STATE: return "invalid state";
    case TT_ERR_UNSUPPORTED: return "unsupported";
    default: return "unknown";
  }
}

ZOLT_TIMING_API const char* tt_last_error(tt_device* device) {
  if (!device) return "";
  if (!device->last_error.empty()) return device->last_error.c_str();
  return device->impl.last_error().c_str();
}

ZOLT_TIMING_API const char* tt_software_version(void) { return ZOLT_TIMING_VERSION; }

ZOLT_TIMING_API const char* tt_firmware_version(void) { return "REV-001"; }

}  // extern "C"
