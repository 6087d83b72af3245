#include "usb/ftdi_stream_reader.hpp"

#include <algorithm>
#include <utility>
#include <vector>

#include "link/clock.hpp"
#include "usb/d2xx_api.hpp"
#include "usb/ft_status.hpp"
#include "usb/ftdi_selection.hpp"

namespace zolt::timing {

namespace {

constexpr const char* kNotOpen = "FTDI USB stream reader not open";
// One D2XX call moves at most this much; the runtime counts in 32 bits.
constexpr std::size_t kMaxTransfer = std::size_t{1} << 20;
constexpr std::int64_t kWriteStallMs = 1000;
constexpr std::int64_t kReadWaitMs = 2;
constexpr int kDefaultReadTimeoutMs = 250;

struct ModeSettings {
  const char* reset_step;
  FtUlong in_transfer_size;
  FtUlong out_transfer_size;
  FtUchar latency_ms;
};

ModeSettings settings_for(FtdiStreamReader::Mode mode) {
  if (mode == FtdiStreamReader::Mode::sync_fifo) return {"FT_SetBitMode(reset)", 1048576, 65536, 1};
  return {"FT_SetBitMode(reset/async)", 65536, 65536, 2};
}

}  // namespace

FtdiStreamReader::~FtdiStreamReader() { close(); }

FtdiStreamReader::FtdiStreamReader(FtdiStreamReader&& other) noexcept : ByteLink(other) { take(other); }

FtdiStreamReader& FtdiStreamReader::operator=(FtdiStreamReader&& other) noexcept {
  if (this != &other) {
    close();
    take(other);
  }
  return *this;
}

void FtdiStreamReader::take(FtdiStreamReader& other) noexcept {
  handle_ = std::exchange(other.handle_, nullptr);
  sync_fifo_ = std::exchange(other.sync_fifo_, false);
  serial_number_ = std::move(other.serial_number_);
  description_ = std::move(other.description_);
  label_ = std::move(other.label_);
  claim_ = std::move(other.claim_);
  last_error_ = std::move(other.last_error_);
  other.serial_number_.clear();
  other.description_.clear();
  other.label_.clear();
  other.last_error_.clear();
}

bool FtdiStreamReader::open(Mode mode, const std::string& serial_number, const std::string& description) {
  close();
  const D2xxApi& api = d2xx();
  if (!api.usable()) {
    last_error_ = api.error;
    return false;
  }
  std::vector<FtdiDeviceInfo> ordered;
  {
    std::string error;
    const auto candidates = list_stream_candidates(error);
    if (!error.empty()) {
      last_error_ = error;
      return false;
    }
    if (!select_stream_candidates(candidates, ftdi_request_from(serial_number, description), ordered, error)) {
      last_error_ = error;
      return false;
    }
  }
  // The first candidate this process can claim is the one opened; others
  // may be in use by another process.
  for (const auto& device : ordered) {
    std::string error;
    FtdiClaim claim = try_claim_ftdi_device(device, error);
    if (claim) return open_interface(api, mode, device, std::move(claim));
    last_error_ = error;
  }
  return false;
}

bool FtdiStreamReader::open_interface(const D2xxApi& api, Mode mode, const FtdiDeviceInfo& device,
                                      FtdiClaim claim) {
  std::string serial = device.serial_number;
  FT_HANDLE handle = nullptr;
  const FT_STATUS status = api.open_ex(serial.data(), kFtOpenBySerialNumber, &handle);
  if (status != kFtOk || !handle) {
    last_error_ = ft_status_text(status, "FT_OpenEx") + " (" + device_label(device) + ")";
    return false;  // `claim` goes out of scope: the lock is released
  }
  handle_ = handle;
  serial_number_ = device.serial_number;
  description_ = device.description;
  label_ = device_label(device);
  claim_ = std::move(claim);
  if (!configure(api, mode)) {
    const std::string reason = last_error_;
    close();
    last_error_ = reason;
    return false;
  }
  sync_fifo_ = mode == Mode::sync_fifo;
  last_error_.clear();
  return true;
}

bool FtdiStreamReader::configure(const D2xxApi& api, Mode mode) {
  const ModeSettings settings = settings_for(mode);
  if (!ft_ok(api.set_bit_mode(handle_, 0x00, kFtBitModeReset), settings.reset_step, last_error_)) return false;
  if (mode == Mode::sync_fifo) {
    // The chip needs a moment in reset before it accepts the FIFO mode.
    sleep_ms(5);
    if (!ft_ok(api.set_bit_mode(handle_, 0xFF, kFtBitModeSyncFifo), "FT_SetBitMode(sync_fifo)", last_error_)) {
      return false;
    }
  }
  sleep_ms(10);
  return ft_ok(api.set_usb_parameters(handle_, settings.in_transfer_size, settings.out_transfer_size),
               "FT_SetUSBParameters", last_error_) &&
         ft_ok(api.set_latency_timer(handle_, settings.latency_ms), "FT_SetLatencyTimer", last_error_) &&
         ft_ok(api.set_timeouts(handle_, 1, 100), "FT_SetTimeouts", last_error_) &&
         ft_ok(api.purge(handle_, kFtPurgeRx | kFtPurgeTx), "FT_Purge", last_error_);
}

void FtdiStreamReader::close() noexcept {
  if (handle_) {
    const D2xxApi& api = d2xx();
    if (api.usable()) {
      // Leave FIFO mode so that the next open (or another program) finds
      // the chip in its reset state.
      if (sync_fifo_) api.set_bit_mode(handle_, 0x00, kFtBitModeReset);
      api.close(handle_);
    }
  }
  handle_ = nullptr;
  sync_fifo_ = false;
  serial_number_.clear();
  description_.clear();
  label_.clear();
  if (claim_) claim_->unlock();
  claim_.reset();
}

const D2xxApi* FtdiStreamReader::ready() {
  const D2xxApi& api = d2xx();
  if (!api.usable()) {
    last_error_ = api.error;
    return nullptr;
  }
  if (!handle_) {
    last_error_ = kNotOpen;
    return nullptr;
  }
  return &api;
}

bool FtdiStreamReader::poll(const D2xxApi& api, std::uint8_t* data, std::size_t capacity,
                            std::size_t& received) {
  received = 0;
  FtDword queued = 0;
  if (!ft_ok(api.get_queue_status(handle_, &queued), "FT_GetQueueStatus", last_error_)) return false;
  if (queued > 0) {
    const auto wanted =
        static_cast<FtDword>(std::min({static_cast<std::size_t>(queued), capacity, kMaxTransfer}));
    FtDword got = 0;
    if (!ft_ok(api.read(handle_, data, wanted, &got), "FT_Read", last_error_)) return false;
    received = std::min<std::size_t>(got, wanted);
  }
  // A read that returns 0 is told apart from a failed one only by the text,
  // so a working poll must not leave an earlier failure behind.
  last_error_.clear();
  return true;
}

std::size_t FtdiStreamReader::read_available(std::uint8_t* data, std::size_t capacity) {
  if (!data || capacity == 0) return 0;
  const D2xxApi* api = ready();
  if (!api) return 0;
  std::size_t received = 0;
  poll(*api, data, capacity, received);
  return received;
}

std::size_t FtdiStreamReader::read(std::uint8_t* data, std::size_t capacity) {
  if (!data || capacity == 0) return 0;
  const D2xxApi* api = ready();
  if (!api) return 0;
  const std::int64_t deadline = monotonic_ms() + kReadWaitMs;
  std::size_t received = 0;
  while (poll(*api, data, capacity, received) && received == 0 && monotonic_ms() < deadline) sleep_ms(1);
  return received;
}

bool FtdiStreamReader::read_exact(std::uint8_t* data, std::size_t length, int timeout_ms) {
  if (!data || length == 0) return true;
  const D2xxApi* api = ready();
  if (!api) return false;
  const std::int64_t deadline = monotonic_ms() + (timeout_ms > 0 ? timeout_ms : kDefaultReadTimeoutMs);
  std::size_t done = 0;
  while (done < length) {
    std::size_t received = 0;
    if (!poll(*api, data + done, length - done, received)) return false;
    done += received;
    if (done == length) break;
    if (monotonic_ms() >= deadline) {
      last_error_ = "timeout";
      return false;
    }
    if (received == 0) sleep_ms(1);
  }
  last_error_.clear();
  return true;
}

bool FtdiStreamReader::write_all(const std::uint8_t* data, std::size_t length) {
  if (!data || length == 0) return true;
  const D2xxApi* api = ready();
  if (!api) return false;
  std::int64_t stall_deadline = monotonic_ms() + kWriteStallMs;
  std::size_t done = 0;
  while (done < length) {
    const auto chunk = static_cast<FtDword>(std::min(length - done, kMaxTransfer));
    FtDword written = 0;
    // D2XX takes a non-const buffer but only reads from it.
    if (!ft_ok(api->write(handle_, const_cast<std::uint8_t*>(data + done), chunk, &written), "FT_Write",
               last_error_)) {
      return false;
    }
    if (written > 0) {
      done += std::min<std::size_t>(written, chunk);
      stall_deadline = monotonic_ms() + kWriteStallMs;
      continue;
    }
    if (monotonic_ms() >= stall_deadline) {
      last_error_ = "FT_Write made no progress";
      return false;
    }
    sleep_ms(1);
  }
  last_error_.clear();
  return true;
}

void FtdiStreamReader::purge() {
  if (!handle_) return;
  const D2xxApi& api = d2xx();
  if (!api.usable()) return;
  ft_ok(api.purge(handle_, kFtPurgeRx | kFtPurgeTx), "FT_Purge", last_error_);
}

}  // namespace zolt::timing
