#include "usb/ftdi_claim.hpp"

#include <cstdlib>

namespace zolt::timing {

namespace {

// "<what> for <path> (errno <n>)".
std::string claim_file_error(const char* what, const std::string& path, int error_number) {
  return std::string(what) + " for " + path + " (errno " + std::to_string(error_number) + ")";
}

}  // namespace

std::string ftdi_claim_directory() {
  const char* tmpdir = std::getenv("TMPDIR");
  const std::string base = (tmpdir && *tmpdir) ? tmpdir : "/tmp";
  return base + "/ZOLT_Timing";
}

std::string ftdi_claim_file_name(const std::string& serial_number) {
  return "ftdi_" + serial_number + ".lock";
}

FtdiClaim try_claim_ftdi_device(const FtdiDeviceInfo& device, std::string& error) {
  const std::string directory = ftdi_claim_directory();
  const std::string file_name = ftdi_claim_file_name(device.serial_number);
  auto claim = std::make_shared<FileLock>();
  int error_number = 0;
  switch (FileLock::try_lock(directory, file_name, *claim, error_number)) {
    case FileLock::Outcome::locked:
      return claim;
    case FileLock::Outcome::busy:
      error = "FTDI device " + device_label(device) + " is already in use by another ZOLT Timing process";
      return nullptr;
    case FileLock::Outcome::open_failed:
      error = claim_file_error("could not create FTDI device claim file",
                            directory + "/" + file_name, error_number);
      return nullptr;
    case FileLock::Outcome::lock_failed:
      break;
  }
  error = claim_file_error("could not lock FTDI device claim file", directory + "/" + file_name,
                        error_number);
  return nullptr;
}

bool ftdi_device_claimed(const FtdiDeviceInfo& device) {
  FileLock probe;
  int error_number = 0;
  return FileLock::try_lock(ftdi_claim_directory(), ftdi_claim_file_name(device.serial_number), probe,
                            error_number) == FileLock::Outcome::busy;
}

}  // namespace zolt::timing
