// DeviceImpl's USB link: opening the FTDI reader as command bridge or FIFO
// stream, and the bridge's drain and recovery sequences.

#include <array>

#include "link/clock.hpp"
#include "link/command_frame.hpp"
#include "link/device_impl.hpp"

namespace zolt::timing {

namespace {

constexpr std::size_t kDrainChunk = 4096;

// The frames that stop every stream the instrument can run: timestamp
// stream, calibration stream, measurement stream, stream mode. None of them
// is answered reliably while a stream floods the link, so none is awaited.
constexpr std::array<std::uint8_t, 4> kStopCommands = {0x14, 0x33, 0x57, 0x31};
constexpr std::uint8_t kSetReferenceClock = 0x75;
constexpr std::uint8_t kInternalReference = 1;

}  // namespace

bool DeviceImpl::open_usb_command_bridge(const std::string& serial_number, const std::string& description) {
  usb_command_bridge_ = false;
  if (!ftdi_.open(FtdiStreamReader::Mode::async_bridge, serial_number, description)) {
    last_error_ = "FTDI async command bridge: " + ftdi_.last_error();
    return false;
  }
  usb_command_bridge_ = true;
  return true;
}

bool DeviceImpl::open_usb_stream(const std::string& serial_number, const std::string& description) {
  usb_command_bridge_ = false;
  if (!ftdi_.open(FtdiStreamReader::Mode::sync_fifo, serial_number, description)) {
    last_error_ = "FTDI sync FIFO stream: " + ftdi_.last_error();
    return false;
  }
  return true;
}

void DeviceImpl::close_usb_link() noexcept {
  usb_command_bridge_ = false;
  ftdi_.close();
}

void DeviceImpl::drain_usb_command_bridge_quiet(int idle_ms, int max_ms) {
  if (!usb_command_bridge_active()) return;
  std::array<std::uint8_t, kDrainChunk> discard{};
  const std::int64_t start = monotonic_ms();
  std::int64_t last_data = start;
  while (monotonic_ms() - start < max_ms) {
    if (ftdi_.read_available(discard.data(), discard.size()) > 0) {
      last_data = monotonic_ms();
      continue;
    }
    if (monotonic_ms() - last_data >= idle_ms) break;
    sleep_ms(2);
  }
  ftdi_.purge();
}

void DeviceImpl::force_internal_reference_for_command_link() {
  if (!usb_command_bridge_active()) return;
  cmd_purge();
  const detail::CommandFrame frame = detail::build_command_frame(kSetReferenceClock, &kInternalReference, 1);
  for (int i = 0; i < 3; ++i) {
    cmd_write(frame.data(), frame.size());
    sleep_ms(10);
  }
  drain_usb_command_bridge_quiet(20, 250);
  clear_last_error();
}

void DeviceImpl::recover_usb_command_bridge() {
  if (!usb_command_bridge_active()) return;
  cmd_purge();
  std::array<std::uint8_t, kDrainChunk> discard{};
  for (int round = 0; round < 10; ++round) {
    for (const std::uint8_t id : kStopCommands) {
      const detail::CommandFrame frame = detail::build_command_frame(id, nullptr, 0);
      cmd_write(frame.data(), frame.size());
    }
    for (int i = 0; i < 5; ++i) {
      ftdi_.read_available(discard.data(), discard.size());
      sleep_ms(1);
    }
  }
  drain_usb_command_bridge_quiet(40, 750);
  clear_last_error();
}

}  // namespace zolt::timing
