#pragma once

// The exception firewall at the C boundary. Every exported function that can
// throw runs its body through `guarded`, so the classification of exceptions
// into tt_status codes and last-error texts lives in exactly one place.

#include <memory>
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

// For handles that keep their own last-error text: runs body() (returning
// nothing), clears the text on success, records the failure otherwise.
template <class Handle, class Body>
tt_status on_handle(Handle* handle, Body&& body) noexcept {
  return guarded(handle->last_error, [&] {
    std::forward<Body>(body)();
    handle->last_error.clear();
    return TT_OK;
  });
}

// Creates a handle, lets open(handle) set it up and hands it out only when
// that succeeds: on failure *out stays null and the half-built handle is
// freed (its text with it). The caller has checked and nulled *out.
template <class Handle, class Open>
tt_status open_handle(Handle** out, Open&& open) noexcept {
  return guarded([&] {
    auto handle = std::make_unique<Handle>();
    std::forward<Open>(open)(*handle);
    *out = handle.release();
    return TT_OK;
  });
}

// Records the outcome of a product-level device function in the handle-level
// last-error text: status 0 clears it, a failure sets it to message (NULL
// leaves it empty). Returns status unchanged; a NULL device is left alone.
// Called after the guarded part of an exported function, so it never throws:
// when memory runs out for the message the text is left empty.
tt_status product_status(tt_device* device, tt_status status, const char* message) noexcept;

// Clears the handle-level last-error text at the start of an operation.
void product_status(tt_device* device) noexcept;

// True when any of the given pointers is null: the usual argument check.
template <class... Pointers>
constexpr bool any_null(const Pointers*... pointers) noexcept {
  return ((pointers == nullptr) || ...);
}

}  // namespace zolt::timing::detail
