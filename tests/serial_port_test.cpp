// SerialPort against a virtual instrument on a pseudo-terminal: the failure
// texts the command layer relies on, the read deadline, and descriptor
// ownership.

#include "link/serial_port.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "link/clock.hpp"
#include "support/test_process.hpp"
#include "support/virtual_port.hpp"

namespace zolt::timing {
namespace {

using testing::elapsed_ms;
using testing::open_descriptor_count;
using testing::VirtualPort;

std::string errno_message(const char* what, int error_number) {
  return std::string(what) + " (errno " + std::to_string(error_number) + ": " + std::strerror(error_number) + ")";
}

TEST(SerialPort, OpenRejectsBadBaudsAndPathsWithExactTexts) {
  VirtualPort port;
  SerialPort serial;
  const int descriptors = open_descriptor_count();

  for (int baud : {0, -1}) {
    EXPECT_FALSE(serial.open(port.path(), baud));
    EXPECT_EQ(serial.last_error(), "invalid baud");
    EXPECT_FALSE(serial.is_open());
  }
  EXPECT_FALSE(serial.open(port.path(), 250000));
  EXPECT_EQ(serial.last_error(), "unsupported POSIX baud rate 250000");
  EXPECT_FALSE(serial.is_open());
  EXPECT_EQ(open_descriptor_count(), descriptors) << "the rejected port must have been closed again";

  EXPECT_FALSE(serial.open("/nonexistent/ttyUSB9", 3000000));
  EXPECT_EQ(serial.last_error(), errno_message("open failed", ENOENT));

  // Not a terminal: the attribute read fails and the descriptor is released.
  EXPECT_FALSE(serial.open("/dev/null", 115200));
  EXPECT_EQ(serial.last_error(), errno_message("tcgetattr failed", ENOTTY));
  EXPECT_FALSE(serial.is_open());
  EXPECT_EQ(open_descriptor_count(), descriptors);

  for (int baud : {9600, 19200, 38400, 57600, 115200, 230400, 460800, 921600, 1000000, 2000000, 3000000}) {
    EXPECT_TRUE(serial.open(port.path(), baud)) << baud << ": " << serial.last_error();
    EXPECT_TRUE(serial.last_error().empty());
  }
}

TEST(SerialPort, ClosedPortFailsWithPortNotOpen) {
  SerialPort serial;
  std::uint8_t buffer[9] = {};
  EXPECT_FALSE(serial.write_all(buffer, sizeof buffer));
  EXPECT_EQ(serial.last_error(), "port not open");
  serial.open("/nonexistent/ttyUSB9", 3000000);  // leaves a different text behind
  EXPECT_EQ(serial.read_available(buffer, sizeof buffer), 0U);
  EXPECT_EQ(serial.last_error().rfind("open failed", 0), 0U) << "read_available must not touch the text";
  EXPECT_FALSE(serial.read_exact(buffer, 0, 100));
  EXPECT_EQ(serial.last_error(), "port not open");
  serial.purge();  // nothing to do, nothing to fail
  serial.close();
  EXPECT_EQ(serial.descriptor(), -1);
}

TEST(SerialPort, CarriesBytesBothWaysAndHonoursTheReadDeadline) {
  VirtualPort port;
  SerialPort serial;
  ASSERT_TRUE(serial.open(port.path(), 3000000)) << serial.last_error();

  const std::uint8_t command[9] = {0x41, 0, 0, 0, 0, 0, 0, 0, 0};
  ASSERT_TRUE(serial.write_all(command, sizeof command)) << serial.last_error();
  std::uint8_t reply[9] = {};
  ASSERT_TRUE(serial.read_exact(reply, sizeof reply, 1000)) << serial.last_error();
  EXPECT_EQ(std::vector<std::uint8_t>(reply, reply + 9),
            (std::vector<std::uint8_t>{0xC1, 'Z', 'O', 'L', 'T', 0, 0, 0, 0}));
  EXPECT_TRUE(port.instrument->wait_for_received(1, 1000));
  EXPECT_EQ(port.instrument->received_frames()[0].bytes[0], 0x41);

  EXPECT_TRUE(serial.read_exact(reply, 0, 0)) << "nothing to read is done at once";
  EXPECT_TRUE(serial.write_all(command, 0));

  // Silence: the deadline is kept to within a poll slice.
  const long long waited = elapsed_ms([&] { EXPECT_FALSE(serial.read_exact(reply, 1, 200)); });
  EXPECT_EQ(serial.last_error(), "serial read timeout");
  EXPECT_GE(waited, 199);
  EXPECT_LT(waited, 280);
  EXPECT_LT(elapsed_ms([&] { EXPECT_FALSE(serial.read_exact(reply, 1, 0)); }), 20);
  EXPECT_EQ(serial.last_error(), "serial read timeout");
  EXPECT_TRUE(serial.is_open()) << "a failed read leaves the port open";

  // read_available takes what is there without waiting, up to capacity.
  const std::uint8_t stream[5] = {1, 2, 3, 4, 5};
  port.instrument->send_bytes(stream, sizeof stream);
  std::uint8_t small[3] = {};
  std::size_t got = 0;
  for (int tries = 0; tries < 200 && got == 0; ++tries) {
    got = serial.read_available(small, sizeof small);
    if (got == 0) sleep_ms(1);
  }
  EXPECT_EQ(got, 3U);
  EXPECT_EQ(small[0], 1);
  ASSERT_TRUE(serial.read_exact(small, 2, 500));
  EXPECT_EQ(small[1], 5);
  EXPECT_EQ(serial.read_available(small, 0), 0U);
  EXPECT_EQ(serial.read_available(nullptr, 3), 0U);
}

TEST(SerialPort, PurgeDropsPendingInputAndReopenClosesTheOldDescriptor) {
  VirtualPort port;
  SerialPort serial;
  ASSERT_TRUE(serial.open(port.path(), 3000000));
  const std::uint8_t junk[4] = {9, 9, 9, 9};
  port.instrument->send_bytes(junk, sizeof junk);
  sleep_ms(30);
  serial.purge();
  std::uint8_t byte = 0;
  EXPECT_FALSE(serial.read_exact(&byte, 1, 60));

  const int descriptors = open_descriptor_count();
  const int first = serial.descriptor();
  ASSERT_TRUE(serial.open(port.path(), 115200));
  EXPECT_EQ(open_descriptor_count(), descriptors);
  if (serial.descriptor() != first) {
    errno = 0;
    EXPECT_EQ(fcntl(first, F_GETFD), -1);
    EXPECT_EQ(errno, EBADF);
  }

  // Moving hands the descriptor over; the moved-to port closes on destruction.
  {
    SerialPort moved(std::move(serial));
    EXPECT_FALSE(serial.is_open());  // NOLINT(bugprone-use-after-move): documented state
    EXPECT_TRUE(moved.is_open());
    SerialPort assigned;
    ASSERT_TRUE(assigned.open(port.path(), 9600));
    assigned = std::move(moved);
    EXPECT_EQ(open_descriptor_count(), descriptors) << "assignment closes the descriptor it held";
  }
  EXPECT_EQ(open_descriptor_count(), descriptors - 1);
}

}  // namespace
}  // namespace zolt::timing
