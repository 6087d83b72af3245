#pragma once

// Which listed FTDI interface a stream reader opens: an explicitly requested
// serial number or description, or the best candidate when only one module
// is connected.

#include <string>
#include <vector>

#include "usb/ftdi_device_info.hpp"

namespace zolt::timing {

struct FtdiRequest {
  std::string serial_number;  // exact match, case-insensitive; empty = any
  std::string description;    // substring, case-insensitive; empty = any
};

// The arguments, each replaced by ZOLT_TIMING_USB_SERIAL /
// ZOLT_TIMING_USB_DESCRIPTION when empty.
FtdiRequest ftdi_request_from(const std::string& serial_number, const std::string& description);

// Filters `candidates` by the request and orders the rest best first. False
// with `error` set when nothing is left, or when the candidates span more
// than one module and no serial number says which one to use.
bool select_stream_candidates(const std::vector<FtdiDeviceInfo>& candidates, const FtdiRequest& request,
                              std::vector<FtdiDeviceInfo>& ordered, std::string& error);

}  // namespace zolt::timing
