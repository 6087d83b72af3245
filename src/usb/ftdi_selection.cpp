#include "usb/ftdi_selection.hpp"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <set>

namespace zolt::timing {

namespace {

std::string argument_or_environment(const std::string& argument, const char* variable) {
  if (!argument.empty()) return argument;
  const char* value = std::getenv(variable);
  return value ? value : "";
}

std::string joined_labels(const std::vector<FtdiDeviceInfo>& devices) {
  std::string text;
  for (const auto& device : devices) {
    if (!text.empty()) text += ", ";
    text += device_label(device);
  }
  return text;
}

}  // namespace

FtdiRequest ftdi_request_from(const std::string& serial_number, const std::string& description) {
  return FtdiRequest{argument_or_environment(serial_number, "ZOLT_TIMING_USB_SERIAL"),
                     argument_or_environment(description, "ZOLT_TIMING_USB_DESCRIPTION")};
}

bool select_stream_candidates(const std::vector<FtdiDeviceInfo>& candidates, const FtdiRequest& request,
                              std::vector<FtdiDeviceInfo>& ordered, std::string& error) {
  ordered.clear();
  if (candidates.empty()) {
    error = "No FTDI HS USB stream device available";
    return false;
  }
  const std::string serial = detail::lower_case(request.serial_number);
  const std::string description = detail::lower_case(request.description);

  std::vector<FtdiDeviceInfo> remaining;
  std::copy_if(candidates.begin(), candidates.end(), std::back_inserter(remaining), [&](const auto& candidate) {
    return serial.empty() || detail::lower_case(candidate.serial_number) == serial;
  });
  if (remaining.empty()) {
    error = "Requested ZOLT_TIMING_USB_SERIAL was not found";
    return false;
  }
  std::erase_if(remaining, [&](const auto& candidate) {
    return !description.empty() && detail::lower_case(candidate.description).find(description) == std::string::npos;
  });
  if (remaining.empty()) {
    error = "Requested ZOLT_TIMING_USB_DESCRIPTION was not found";
    return false;
  }

  std::set<std::string> modules;
  for (const auto& candidate : remaining) modules.insert(candidate.module_key);
  if (modules.size() > 1 && serial.empty()) {
    error = "Multiple FTDI HS USB stream modules are available; set ZOLT_TIMING_USB_SERIAL. Candidates: " +
            joined_labels(remaining);
    return false;
  }

  std::stable_sort(remaining.begin(), remaining.end(), preferred_before);
  ordered = std::move(remaining);
  return true;
}

}  // namespace zolt::timing
