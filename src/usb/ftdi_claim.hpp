#pragma once

// Claiming a USB module for this process, so that two processes never drive
// the same FTDI interface: an exclusive, non-blocking flock on
// "<TMPDIR or /tmp>/ZOLT_Timing/ftdi_<serial>.lock", held while the reader
// is open.

#include <memory>
#include <string>

#include "usb/file_lock.hpp"
#include "usb/ftdi_device_info.hpp"

namespace zolt::timing {

using FtdiClaim = std::shared_ptr<FileLock>;

// "$TMPDIR/ZOLT_Timing", or "/tmp/ZOLT_Timing" when TMPDIR is unset or empty.
std::string ftdi_claim_directory();
// "ftdi_<serial>.lock".
std::string ftdi_claim_file_name(const std::string& serial_number);

// The held claim, or null with `error` set ("... is already in use by another
// ZOLT Timing process" when someone else holds it).
FtdiClaim try_claim_ftdi_device(const FtdiDeviceInfo& device, std::string& error);

// True when another holder (another process, or another reader of this one)
// has the interface claimed right now.
bool ftdi_device_claimed(const FtdiDeviceInfo& device);

}  // namespace zolt::timing
