#include "zolt_sim/pty_front_end.hpp"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace zolt_sim {
namespace {

constexpr int kPollSliceMs = 1;  // also the latency of a delayed reply
constexpr std::size_t kChunk = 4096;

[[noreturn]] void throw_errno(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

// No echo, no line editing, no translation: before the host configures the
// terminal it must already be a clean 8-bit pipe, or the instrument's own
// replies would be echoed back to it as commands.
void make_raw(int fd) {
  termios attributes{};
  if (tcgetattr(fd, &attributes) != 0) throw_errno("tcgetattr on the pseudo-terminal");
  cfmakeraw(&attributes);
  attributes.c_cc[VMIN] = 0;
  attributes.c_cc[VTIME] = 0;
  if (tcsetattr(fd, TCSANOW, &attributes) != 0) throw_errno("tcsetattr on the pseudo-terminal");
}

}  // namespace

PtyFrontEnd::PtyFrontEnd(std::shared_ptr<Instrument> instrument) : instrument_(std::move(instrument)) {
  master_ = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
  if (master_ < 0) throw_errno("posix_openpt");
  try {
    if (grantpt(master_) != 0) throw_errno("grantpt");
    if (unlockpt(master_) != 0) throw_errno("unlockpt");
    char name[128] = {};
    if (ptsname_r(master_, name, sizeof name) != 0) throw_errno("ptsname_r");
    device_path_ = name;
    keeper_ = ::open(name, O_RDWR | O_NOCTTY | O_NONBLOCK);
    if (keeper_ < 0) throw_errno("open of the pseudo-terminal");
    make_raw(keeper_);
  } catch (...) {
    if (keeper_ >= 0) ::close(keeper_);
    ::close(master_);
    throw;
  }
  thread_ = std::thread([this] { serve(); });
}

PtyFrontEnd::~PtyFrontEnd() {
  stop_.store(true);
  if (thread_.joinable()) thread_.join();
  hang_up();
}

void PtyFrontEnd::hang_up() {
  if (master_ >= 0) ::close(master_);
  if (keeper_ >= 0) ::close(keeper_);
  master_ = -1;
  keeper_ = -1;
}

void PtyFrontEnd::serve() {
  while (!stop_.load()) {
    if (instrument_->link_closed()) {
      hang_up();
      return;
    }
    pollfd descriptor{master_, POLLIN, 0};
    if (outgoing_offset_ < outgoing_.size()) descriptor.events |= POLLOUT;
    const int ready = ::poll(&descriptor, 1, kPollSliceMs);
    if (ready < 0 && errno != EINTR) return;
    if (ready > 0 && (descriptor.revents & POLLIN) != 0) pump_host_to_instrument();
    pump_instrument_to_host();
  }
}

void PtyFrontEnd::pump_host_to_instrument() {
  std::uint8_t buffer[kChunk];
  const ssize_t count = ::read(master_, buffer, sizeof buffer);
  if (count > 0) instrument_->host_write(buffer, static_cast<std::size_t>(count));
}

void PtyFrontEnd::pump_instrument_to_host() {
  if (outgoing_offset_ >= outgoing_.size()) {
    outgoing_.resize(kChunk);
    outgoing_.resize(instrument_->host_read(outgoing_.data(), outgoing_.size(), 0));
    outgoing_offset_ = 0;
  }
  while (outgoing_offset_ < outgoing_.size()) {
    const ssize_t written = ::write(master_, outgoing_.data() + outgoing_offset_, outgoing_.size() - outgoing_offset_);
    if (written <= 0) return;  // the terminal's buffer is full: retry on POLLOUT
    outgoing_offset_ += static_cast<std::size_t>(written);
  }
}

}  // namespace zolt_sim
