#include "usb/ft_status.hpp"

#include <cstdio>

namespace zolt::timing {

std::string ft_status_text(FT_STATUS status, const char* what) {
  char text[128];
  std::snprintf(text, sizeof text, "%s failed with FT_STATUS %lu", what ? what : "",
                static_cast<unsigned long>(status));
  return text;
}

bool ft_ok(FT_STATUS status, const char* what, std::string& error) {
  if (status == kFtOk) return true;
  error = ft_status_text(status, what);
  return false;
}

}  // namespace zolt::timing
