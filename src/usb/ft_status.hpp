#pragma once

#include <string>

#include "usb/d2xx_types.hpp"

namespace zolt::timing {

// "<what> failed with FT_STATUS <status>", at most 127 characters.
std::string ft_status_text(FT_STATUS status, const char* what);

// True for FT_OK; otherwise stores ft_status_text(status, what) in `error`.
bool ft_ok(FT_STATUS status, const char* what, std::string& error);

}  // namespace zolt::timing
