#include "api/boundary.hpp"

#include <exception>
#include <new>
#include <stdexcept>

#include "api/device_handle.hpp"
#include "api/error.hpp"

namespace zolt::timing::detail {

tt_status capture_exception(std::string& last_error) noexcept {
  // Assigning a message may itself run out of memory; the status still
  // reaches the caller then, only the text is lost.
  const auto record = [&last_error](const char* text) noexcept {
    try {
      last_error = text;
    } catch (...) {
      last_error.clear();
    }
  };
  try {
    throw;
  } catch (const Error& error) {
    record(error.what());
    return error.status();
  } catch (const std::bad_alloc& error) {
    record(error.what());
    return TT_ERR_IO;
  } catch (const std::invalid_argument& error) {
    record(error.what());
    return TT_ERR_INVALID_ARGUMENT;
  } catch (const std::exception& error) {
    record(error.what());
    return TT_ERR_IO;
  } catch (...) {
    record("unknown error");
    return TT_ERR_IO;
  }
}

tt_status product_status(tt_device* device, tt_status status, const char* message) noexcept {
  if (!device) return status;
  device->last_error.clear();
  if (status == TT_OK || !message) return status;
  try {
    device->last_error = message;
  } catch (...) {
    device->last_error.clear();
  }
  return status;
}

void product_status(tt_device* device) noexcept {
  if (device) device->last_error.clear();
}

}  // namespace zolt::timing::detail
