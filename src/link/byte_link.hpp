#pragma once

// A byte link to the instrument: the serial port, or the FTDI module used as
// command bridge or FIFO. The command protocol and the stream readers work on
// this interface and never know which link carries their bytes.

#include <cstddef>
#include <cstdint>
#include <string>

namespace zolt::timing {

class ByteLink {
 public:
  virtual ~ByteLink() = default;

  virtual bool is_open() const noexcept = 0;
  // Writes every byte or fails; false leaves the reason in last_error().
  virtual bool write_all(const std::uint8_t* data, std::size_t length) = 0;
  // Reads exactly `length` bytes before the timeout; false on timeout
  // (last_error() then contains "timeout") or on a link failure. What a
  // timeout of 0 means is the link's own rule; the frame readers above never
  // pass 0.
  virtual bool read_exact(std::uint8_t* data, std::size_t length, int timeout_ms) = 0;
  // Reads what is there now, up to `capacity`, without waiting. 0 when
  // nothing is there, when closed, or on failure (see last_error()).
  virtual std::size_t read_available(std::uint8_t* data, std::size_t capacity) = 0;
  // Throws away everything buffered in both directions.
  virtual void purge() = 0;
  virtual const std::string& last_error() const noexcept = 0;

 protected:
  ByteLink() = default;
  ByteLink(const ByteLink&) = default;
  ByteLink& operator=(const ByteLink&) = default;
};

}  // namespace zolt::timing
