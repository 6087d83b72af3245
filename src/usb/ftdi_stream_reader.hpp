#pragma once

// One opened FTDI high-speed interface: the synchronous FIFO that carries the
// timestamp stream, or the asynchronous bit-bang link that carries command
// frames when the instrument is reached over USB only (the command bridge).
// A mode change is always a close followed by an open.

#include <cstddef>
#include <cstdint>
#include <string>

#include "link/byte_link.hpp"
#include "usb/d2xx_types.hpp"
#include "usb/ftdi_claim.hpp"

namespace zolt::timing {

struct D2xxApi;

class FtdiStreamReader final : public ByteLink {
 public:
  enum class Mode { sync_fifo = 0, async_bridge = 1 };

  FtdiStreamReader() = default;
  ~FtdiStreamReader() override;
  // Moving transfers the handle and the claim; the source is left closed.
  FtdiStreamReader(FtdiStreamReader&& other) noexcept;
  FtdiStreamReader& operator=(FtdiStreamReader&& other) noexcept;
  FtdiStreamReader(const FtdiStreamReader&) = delete;
  FtdiStreamReader& operator=(const FtdiStreamReader&) = delete;

  // Chooses an interface (by serial number, description, their environment
  // variables, or preference), claims it for this process and configures
  // it for `mode`. False with last_error() set on failure; the reader is
  // closed then. Sleeps about 15 ms while the chip changes mode.
  bool open(Mode mode, const std::string& serial_number = {}, const std::string& description = {});
  // Leaves FIFO mode, closes the handle and releases the claim. Idempotent.
  void close() noexcept;

  bool is_open() const noexcept override { return handle_ != nullptr; }
  bool sync_fifo() const noexcept { return sync_fifo_; }
  const std::string& serial_number() const noexcept { return serial_number_; }
  const std::string& description() const noexcept { return description_; }
  const std::string& label() const noexcept { return label_; }

  // Writes everything; fails with "FT_Write made no progress" when the chip
  // accepts nothing for a whole second.
  bool write_all(const std::uint8_t* data, std::size_t length) override;
  // All `length` bytes within timeout_ms (0 means 250 ms), else "timeout".
  bool read_exact(std::uint8_t* data, std::size_t length, int timeout_ms) override;
  // What the chip holds now, without waiting.
  std::size_t read_available(std::uint8_t* data, std::size_t capacity) override;
  // Like read_available, but waits up to 2 ms for the first bytes.
  std::size_t read(std::uint8_t* data, std::size_t capacity);
  // Drops both chip buffers. Does nothing when closed.
  void purge() override;
  const std::string& last_error() const noexcept override { return last_error_; }

 private:
  // The table when usable and the reader open; else null with the reason set.
  const D2xxApi* ready();
  bool open_interface(const D2xxApi& api, Mode mode, const FtdiDeviceInfo& device, FtdiClaim claim);
  bool configure(const D2xxApi& api, Mode mode);
  // read_available that tells a failure (false) from an empty queue.
  bool poll(const D2xxApi& api, std::uint8_t* data, std::size_t capacity, std::size_t& received);
  void take(FtdiStreamReader& other) noexcept;

  FT_HANDLE handle_ = nullptr;
  bool sync_fifo_ = false;
  std::string serial_number_;
  std::string description_;
  std::string label_;
  FtdiClaim claim_;
  std::string last_error_;
};

}  // namespace zolt::timing
