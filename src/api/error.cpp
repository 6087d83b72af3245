#include "api/error.hpp"

#include <cstring>

namespace zolt::timing {

Error::~Error() = default;

namespace detail {

void throw_status(tt_status status, const char* context, const char* detail) {
  std::string message = context ? context : "";
  message += ": ";
  message += tt_status_string(status);
  if (detail && *detail) {
    message += " (";
    message += detail;
    message += ')';
  }
  throw Error(status, message);
}

std::string errno_text(const std::string& what, int error_number) {
  return what + " (errno " + std::to_string(error_number) + ": " + std::strerror(error_number) + ")";
}

}  // namespace detail

void check(tt_status status, const char* context, tt_device* device) {
  if (status == TT_OK) return;
  detail::throw_status(status, context, device ? tt_last_error(device) : nullptr);
}

}  // namespace zolt::timing
