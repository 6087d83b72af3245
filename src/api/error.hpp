#pragma once

#include <stdexcept>
#include <string>

#include "zolt_timing.h"

namespace zolt::timing {

// The library's exception: a runtime error carrying the tt_status that the
// exported function returns when it catches it.
class Error : public std::runtime_error {
 public:
  Error(tt_status status, const std::string& message) : std::runtime_error(message), status_(status) {}
  ~Error() override;

  tt_status status() const noexcept { return status_; }

 private:
  tt_status status_;
};

namespace detail {

// Throws Error(status, "<context>: <status text>[ (<detail>)]"). The
// parenthesised part appears only when detail is non-null and not empty.
[[noreturn]] void throw_status(tt_status status, const char* context, const char* detail = nullptr);

// "<what> (errno <n>: <strerror(n)>)": how transport and file errors report
// the operating system's reason.
std::string errno_text(const std::string& what, int error_number);

}  // namespace detail

// Bridges the status-returning device layer into code that uses exceptions:
// a non-zero status throws with the device's last-error text as detail.
void check(tt_status status, const char* context, tt_device* device);

}  // namespace zolt::timing
