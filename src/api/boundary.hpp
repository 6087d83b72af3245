#pragma once

// The exception firewall at the C boundary. Every exported function that can
// throw runs its body through `guarded`, so the classification of exceptions
// into tt_status codes and last-error texts lives in exactly one place.

#include <string>
#include <utility>

#include "zolt_timing.h"

namespace zolt::timing::detail {

// Classifies the exception in flight (call only inside a catch block):
// Error keeps its code, std::bad_alloc -> -2, std::invalid_argument -> -1,
// other std::exception -> -2, anything else -> -2 with "unknown error".
// The message is stored in last_error.
tt_status capture_exception(std::string& last_error) noexcept;

// Runs body() and returns its status; an exception becomes a status and a
// last-error text through capture_exception.
template <class Body>
tt_status guarded(std::string& last_error, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    return capture_exception(last_error);
  }
}

// For exported functions without a handle to keep a text in.
template <class Body>
tt_status guarded(Body&& body) noexcept {
  std::string discarded;
  return guarded(discarded, std::forward<Body>(body));
}

// Records the outcome of a product-level device function in the handle-level
// last-error text: status 0 clears it, a failure sets it to message (NULL
// leaves it empty). Returns status unchanged; a NULL device is left alone.
tt_status product_status(tt_device* device, tt_status status, const char* message);

// Clears the handle-level last-error text at the start of an operation.
void product_status(tt_device* device);

// True when any of the given pointers is null: the usual argument check.
template <class... Pointers>
constexpr bool any_null(const Pointers*... pointers) noexcept {
  return ((pointers == nullptr) || ...);
}

}  // namespace zolt::timing::detail
