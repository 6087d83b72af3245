#include "link/serial_port.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

#include "link/clock.hpp"

namespace zolt::timing {
namespace {

constexpr int kPollSliceMs = 50;

std::optional<speed_t> speed_constant(int baud) noexcept {
  switch (baud) {
    case 9600: return B9600;
    case 19200: return B19200;
    case 38400: return B38400;
    case 57600: return B57600;
    case 115200: return B115200;
    case 230400: return B230400;
    case 460800: return B460800;
    case 921600: return B921600;
    case 1000000: return B1000000;
    case 2000000: return B2000000;
    case 3000000: return B3000000;
    default: return std::nullopt;
  }
}

std::string with_errno(const char* what, int error_number) {
  char text[256];
  std::snprintf(text, sizeof text, "%s (errno %d: %s)", what, error_number, std::strerror(error_number));
  return text;
}

void wait_writable(int fd) {
  pollfd descriptor{fd, POLLOUT, 0};
  ::poll(&descriptor, 1, kPollSliceMs);
}

}  // namespace

SerialPort::~SerialPort() { close(); }

SerialPort::SerialPort(SerialPort&& other) noexcept
    : ByteLink(), handle_(std::move(other.handle_)), last_error_(std::move(other.last_error_)) {}

SerialPort& SerialPort::operator=(SerialPort&& other) noexcept {
  if (this != &other) {
    close();
    handle_ = std::move(other.handle_);
    last_error_ = std::move(other.last_error_);
  }
  return *this;
}

bool SerialPort::fail(const char* what) {
  last_error_ = with_errno(what, errno);
  return false;
}

bool SerialPort::fail_and_close(const char* what) {
  const int error_number = errno;
  close();
  last_error_ = with_errno(what, error_number);
  return false;
}

bool SerialPort::open(const std::string& path, int baud) {
  close();
  last_error_.clear();
  if (baud <= 0) {
    last_error_ = "invalid baud";
    return false;
  }
  const int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
  if (fd < 0) return fail("open failed");
  handle_ = std::make_unique<int>(fd);

  const std::optional<speed_t> speed = speed_constant(baud);
  if (!speed) {
    close();
    char text[128];
    std::snprintf(text, sizeof text, "unsupported POSIX baud rate %d", baud);
    last_error_ = text;
    return false;
  }
  termios attributes;
  std::memset(&attributes, 0, sizeof attributes);
  if (tcgetattr(fd, &attributes) != 0) return fail_and_close("tcgetattr failed");
  cfmakeraw(&attributes);
  attributes.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS | PARENB | CSTOPB | CSIZE);
  attributes.c_cflag |= CS8 | CLOCAL | CREAD;
  attributes.c_cc[VTIME] = 0;  // reads never block in the driver: poll waits
  attributes.c_cc[VMIN] = 0;
  if (cfsetispeed(&attributes, *speed) != 0 || cfsetospeed(&attributes, *speed) != 0) {
    return fail_and_close("cfset*speed failed");
  }
  if (tcsetattr(fd, TCSANOW, &attributes) != 0) return fail_and_close("tcsetattr failed");
  tcflush(fd, TCIOFLUSH);
  return true;
}

void SerialPort::close() noexcept {
  if (!handle_) return;
  tcflush(*handle_, TCIOFLUSH);
  ::close(*handle_);
  handle_.reset();
}

bool SerialPort::write_all(const std::uint8_t* data, std::size_t length) {
  if (!handle_) {
    last_error_ = "port not open";
    return false;
  }
  std::size_t done = 0;
  while (done < length) {
    const ssize_t written = ::write(*handle_, data + done, length - done);
    if (written > 0) {
      done += static_cast<std::size_t>(written);
    } else if (written < 0 && (errno == EAGAIN || errno == EINTR)) {
      wait_writable(*handle_);
    } else {
      if (written == 0) errno = EIO;  // the driver took nothing: treat as a broken link
      return fail("write failed");
    }
  }
  return true;
}

bool SerialPort::read_exact(std::uint8_t* data, std::size_t length, int timeout_ms) {
  if (!handle_) {
    last_error_ = "port not open";
    return false;
  }
  const std::int64_t deadline = monotonic_ms() + timeout_ms;
  std::size_t done = 0;
  while (done < length) {
    const std::int64_t now = monotonic_ms();
    if (now >= deadline) {
      last_error_ = "serial read timeout";
      return false;
    }
    pollfd descriptor{*handle_, POLLIN, 0};
    const int ready = ::poll(&descriptor, 1, static_cast<int>(std::min<std::int64_t>(deadline - now, kPollSliceMs)));
    if (ready == 0) continue;
    if (ready < 0) {
      if (errno == EINTR) continue;
      return fail("poll failed");
    }
    const ssize_t count = ::read(*handle_, data + done, length - done);
    if (count > 0) {
      done += static_cast<std::size_t>(count);
    } else if (count < 0 && errno != EAGAIN && errno != EINTR) {
      return fail("read failed");
    }
  }
  return true;
}

std::size_t SerialPort::read_available(std::uint8_t* data, std::size_t capacity) {
  if (data == nullptr || capacity == 0 || !handle_) return 0;
  int queued = 0;
  if (::ioctl(*handle_, FIONREAD, &queued) != 0 || queued < 1) return 0;
  const ssize_t count = ::read(*handle_, data, std::min(static_cast<std::size_t>(queued), capacity));
  return count < 0 ? 0 : static_cast<std::size_t>(count);
}

void SerialPort::purge() {
  if (handle_) tcflush(*handle_, TCIOFLUSH);
}

}  // namespace zolt::timing
