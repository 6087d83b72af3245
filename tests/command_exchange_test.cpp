// The command frame layer of DeviceImpl against a virtual instrument on a
// pseudo-terminal: the bytes put on the wire, resynchronisation, the status
// mapping, and the exchange that owns the link.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "link/clock.hpp"
#include "link/command_frame.hpp"
#include "link/device_impl.hpp"
#include "support/virtual_port.hpp"

namespace zolt::timing {
namespace {

using testing::elapsed_ms;
using testing::VirtualPort;
using Bytes = std::vector<std::uint8_t>;

// An instrument that echoes the payload of 0x75 and answers 0x20 (read
// counter) with a 32-bit count.
class CommandExchange : public ::testing::Test {
 protected:
  void SetUp() override {
    port.instrument->set_handler(0x75, [](zolt_sim::Instrument&, const zolt_sim::Command& command) {
      return std::optional<zolt_sim::Payload>(command.payload);
    });
    port.instrument->set_handler(0x20, [](zolt_sim::Instrument&, const zolt_sim::Command&) {
      zolt_sim::Payload reply{};
      zolt_sim::write_be(reply, 4, 4, 0x01020304);
      return std::optional<zolt_sim::Payload>(reply);
    });
    ASSERT_TRUE(device.serial_port().open(port.path(), 3000000)) << device.serial_port().last_error();
  }

  Bytes last_frame_on_wire() {
    EXPECT_TRUE(port.instrument->wait_for_received(1, 1000));
    const auto frames = port.instrument->received_frames();
    port.instrument->clear_received();
    if (frames.empty()) return {};
    return Bytes(frames.back().bytes.begin(), frames.back().bytes.end());
  }

  VirtualPort port;
  DeviceImpl device;
};

TEST(CommandFrame, PayloadIsRightAlignedBigEndianAndCutToEightBytes) {
  const std::uint8_t one[] = {0x05};
  EXPECT_EQ(detail::build_command_frame(0x75, one, 1),
            (detail::CommandFrame{0x75, 0, 0, 0, 0, 0, 0, 0, 0x05}));
  const std::uint8_t ten[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  EXPECT_EQ(detail::build_command_frame(0x70, ten, 10), (detail::CommandFrame{0x70, 1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(detail::build_command_frame(0x13, nullptr, 4), (detail::CommandFrame{0x13, 0, 0, 0, 0, 0, 0, 0, 0}));
  std::uint8_t number[4] = {};
  detail::put_be(number, 4, 0xA1B2C3D4);
  EXPECT_EQ(Bytes(number, number + 4), (Bytes{0xA1, 0xB2, 0xC3, 0xD4}));
  EXPECT_EQ(detail::payload_be(number, 1, 3), 0xB2C3D4U);
  EXPECT_EQ(detail::response_id(0x41), 0xC1);
}

TEST_F(CommandExchange, SendCommandPutsExactFramesOnTheWireAndReturnsTheReply) {
  const std::uint8_t source[] = {0x05};
  std::array<std::uint8_t, 8> reply{};
  ASSERT_EQ(device.send_command(0x75, source, 1, reply.data(), 400), TT_OK) << device.last_error();
  EXPECT_EQ(last_frame_on_wire(), (Bytes{0x75, 0, 0, 0, 0, 0, 0, 0, 0x05}));
  EXPECT_EQ(reply, (std::array<std::uint8_t, 8>{0, 0, 0, 0, 0, 0, 0, 0x05}));

  const std::uint8_t long_payload[] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99};
  ASSERT_EQ(device.send_command(0x75, long_payload, sizeof long_payload, nullptr, 400), TT_OK);
  EXPECT_EQ(last_frame_on_wire(), (Bytes{0x75, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}));

  ASSERT_EQ(device.send_command(0x20, nullptr, 0, reply.data(), 400), TT_OK);
  EXPECT_EQ(detail::payload_be(reply.data(), 4, 4), 0x01020304U);

  ASSERT_EQ(device.send_command(0x43, nullptr, 0, reply.data(), 0), TT_OK);
  EXPECT_EQ(last_frame_on_wire(), (Bytes{0x43, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(reply[0], 'S');
}

TEST_F(CommandExchange, ResynchronisesOnTheReplyIdPastGarbageAndForeignFrames) {
  zolt_sim::Faults faults;
  faults.garbage_before_reply = {0x00, 0xF4, 0x13, 0x80, 0xFF};
  faults.foreign_frames_before_reply = 2;
  faults.foreign_rid = 0xD8;
  port.instrument->set_faults(faults);
  const std::uint8_t source[] = {0x01};
  std::array<std::uint8_t, 8> reply{};
  ASSERT_EQ(device.send_command(0x75, source, 1, reply.data(), 400), TT_OK) << device.last_error();
  EXPECT_EQ(reply[7], 0x01);

  // The raw frame reader does the same for a reply that is late.
  faults = zolt_sim::Faults{};
  faults.reply_delay_ms = 60;
  faults.garbage_before_reply = {0x42};
  port.instrument->set_faults(faults);
  const auto frame = detail::build_command_frame(0x43, nullptr, 0);
  ASSERT_TRUE(device.cmd_write(frame.data(), frame.size()));
  std::array<std::uint8_t, 9> response{};
  ASSERT_TRUE(device.cmd_read_response_frame(0xC3, response.data(), 400)) << device.cmd_last_error();
  EXPECT_EQ(response[0], 0xC3);
  EXPECT_EQ(response[1], 'S');
}

TEST_F(CommandExchange, SilenceAndBrokenLinksMapToStatusesAndTexts) {
  // Silent instrument, timeout 0: the default 250 ms, then -3 with the
  // transport's text.
  port.instrument->set_silent(true);
  std::array<std::uint8_t, 8> reply{};
  tt_status status = TT_OK;
  const long long waited = elapsed_ms([&] { status = device.send_command(0x41, nullptr, 0, reply.data(), 0); });
  EXPECT_EQ(status, TT_ERR_TIMEOUT);
  EXPECT_EQ(device.last_error(), "serial read timeout");
  EXPECT_GE(waited, 249);
  EXPECT_LT(waited, 360);
  EXPECT_EQ(last_frame_on_wire(), (Bytes{0x41, 0, 0, 0, 0, 0, 0, 0, 0}));

  // The link goes away: the write fails with the errno text, -2.
  port.instrument->close_link();
  sleep_ms(20);
  status = device.send_command(0x41, nullptr, 0, reply.data(), 100);
  EXPECT_EQ(status, TT_ERR_IO);
  EXPECT_EQ(device.last_error().rfind("write failed (errno ", 0), 0U) << device.last_error();
  EXPECT_TRUE(device.serial_port().is_open()) << "a failed command leaves the link open";

  // No link at all: -6 for every entry point.
  device.serial_port().close();
  EXPECT_EQ(device.send_command(0x41, nullptr, 0, nullptr, 100), TT_ERR_INVALID_STATE);
  EXPECT_EQ(device.last_error(), "port not open");
  device.clear_last_error();
  EXPECT_EQ(device.read_frame_by_id(0xD8, nullptr, 100), TT_ERR_INVALID_STATE);
  EXPECT_EQ(device.last_error(), "port not open");
  device.clear_last_error();
  EXPECT_EQ(device.own_exchange("read_counter() not allowed while measurement stream is active", 0x20, nullptr, 0,
                                nullptr, 100),
            TT_ERR_INVALID_STATE);
  EXPECT_EQ(device.last_error(), "port not open");
  EXPECT_FALSE(device.cmd_write(reply.data(), 1));
  EXPECT_EQ(device.cmd_last_error(), "port not open");
}

TEST_F(CommandExchange, ReadFrameByIdSkipsWholeFramesUntilItsDeadline) {
  // Frames of other kinds flow all the time; the awaited one comes last. Its
  // payload starts with the RID byte, which must not be mistaken for a start.
  zolt_sim::Payload wanted{};
  wanted[0] = 0xD8;
  wanted[7] = 0x2A;
  zolt_sim::Payload other{};
  other[3] = 0xD8;
  port.instrument->send_frame(0xD9, other);
  port.instrument->send_frame(0xC1, other);
  port.instrument->send_frame(0xD8, wanted);
  std::array<std::uint8_t, 8> payload{};
  ASSERT_EQ(device.read_frame_by_id(0xD8, payload.data(), 400), TT_OK) << device.last_error();
  EXPECT_EQ(payload[0], 0xD8);
  EXPECT_EQ(payload[7], 0x2A);

  // Other frames, then silence until the deadline (timeout 0 = 250 ms).
  port.instrument->send_frame(0xD9, other);
  tt_status status = TT_OK;
  long long waited = elapsed_ms([&] { status = device.read_frame_by_id(0xD8, payload.data(), 0); });
  EXPECT_EQ(status, TT_ERR_TIMEOUT);
  EXPECT_EQ(device.last_error(), "timed out waiting for RID 0xD8");
  EXPECT_GE(waited, 249);
  EXPECT_LT(waited, 360);

  // Other frames flowing all the time.
  std::atomic<bool> flowing{true};
  std::thread sender([&] {
    while (flowing.load()) {
      port.instrument->send_frame(0xD9, other);
      sleep_ms(5);
    }
  });
  waited = elapsed_ms([&] { status = device.read_frame_by_id(0xD8, payload.data(), 100); });
  flowing.store(false);
  sender.join();
  EXPECT_EQ(status, TT_ERR_TIMEOUT);
  EXPECT_EQ(device.last_error(), "timed out waiting for RID 0xD8");
  EXPECT_GE(waited, 99);
  EXPECT_LT(waited, 200);

  // Frames ahead of a reply that never comes: send_command skips them byte
  // by byte and then times out on the silent link.
  device.cmd_purge();
  port.instrument->set_silent(true);
  zolt_sim::Payload flood{};
  flood.fill(0x55);
  for (int i = 0; i < 4; ++i) port.instrument->send_frame(0x55, flood);
  EXPECT_EQ(device.send_command(0x75, nullptr, 0, nullptr, 60), TT_ERR_TIMEOUT);
  EXPECT_EQ(device.last_error(), "serial read timeout");
}

TEST_F(CommandExchange, OwnExchangeGuardsPurgesThenExchanges) {
  std::array<std::uint8_t, 8> reply{};
  const char* refusal = "read_counter() not allowed while measurement stream is active";
  device.set_measurement_stream_active(true);
  EXPECT_EQ(device.own_exchange(refusal, 0x20, nullptr, 0, reply.data(), 400), TT_ERR_INVALID_STATE);
  EXPECT_EQ(device.last_error(), refusal);
  EXPECT_FALSE(port.instrument->wait_for_received(1, 30)) << "a refused command never reaches the wire";

  // A stale reply of an earlier command is waiting on the link: the purge
  // drops it, so the answer read is the fresh one.
  device.set_measurement_stream_active(false);
  zolt_sim::Payload stale{};
  zolt_sim::write_be(stale, 4, 4, 0xDEADBEEF);
  port.instrument->send_frame(0xA0, stale);
  sleep_ms(30);
  ASSERT_EQ(device.own_exchange(refusal, 0x20, nullptr, 0, reply.data(), 400), TT_OK) << device.last_error();
  EXPECT_EQ(detail::payload_be(reply.data(), 4, 4), 0x01020304U);
  EXPECT_EQ(last_frame_on_wire(), (Bytes{0x20, 0, 0, 0, 0, 0, 0, 0, 0}));

  // Without a guard it runs even while a measurement stream is active.
  device.set_measurement_stream_active(true);
  const std::uint8_t source[] = {0x00, 0x07};
  EXPECT_EQ(device.own_exchange(nullptr, 0x75, source, 2, reply.data(), 400), TT_OK);
  EXPECT_EQ(reply[7], 0x07);

  // A dropped reply is a timeout with the transport's text.
  port.instrument->drop_next_replies(1);
  EXPECT_EQ(device.own_exchange(nullptr, 0x75, source, 2, reply.data(), 80), TT_ERR_TIMEOUT);
  EXPECT_EQ(device.last_error(), "serial read timeout");
}

}  // namespace
}  // namespace zolt::timing
