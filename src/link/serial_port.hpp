#pragma once

// The POSIX serial transport: a terminal device in raw 8N1 mode at one of the
// instrument's baud rates. Never throws for I/O failures; each operation
// reports success and keeps the reason of the last failure. Only the read
// deadline's text contains the word "timeout": the command layer tells
// timeouts from broken links by that word.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "link/byte_link.hpp"

namespace zolt::timing {

class SerialPort final : public ByteLink {
 public:
  SerialPort() = default;
  ~SerialPort() override;
  SerialPort(SerialPort&& other) noexcept;
  SerialPort& operator=(SerialPort&& other) noexcept;
  SerialPort(const SerialPort&) = delete;
  SerialPort& operator=(const SerialPort&) = delete;

  // Opens `path` (closing a port already open first) at `baud`, which must
  // be one of 9600 ... 3000000 from the instrument's table.
  bool open(const std::string& path, int baud);
  // Flushes both directions and closes; never fails.
  void close() noexcept;

  bool is_open() const noexcept override { return handle_ != nullptr; }
  bool write_all(const std::uint8_t* data, std::size_t length) override;
  // Waits in poll slices of at most 50 ms; a timeout of 0 fails at once.
  bool read_exact(std::uint8_t* data, std::size_t length, int timeout_ms) override;
  std::size_t read_available(std::uint8_t* data, std::size_t capacity) override;
  void purge() override;
  const std::string& last_error() const noexcept override { return last_error_; }

  // The open descriptor, or -1.
  int descriptor() const noexcept { return handle_ ? *handle_ : -1; }

 private:
  bool fail(const char* what);  // last error = what with errno; false
  bool fail_and_close(const char* what);

  std::unique_ptr<int> handle_;
  std::string last_error_;
};

}  // namespace zolt::timing
