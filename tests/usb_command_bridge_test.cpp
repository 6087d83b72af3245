// DeviceImpl over the USB command bridge: an emulated FT2232H module (the
// emulated D2XX runtime, loaded by the library) wired to a virtual
// instrument. Commands, the drain, the forced internal reference and the
// recovery sequence, seen from the instrument's side of the wire.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "link/clock.hpp"
#include "link/device_impl.hpp"
#include "support/emulated_ftdi.hpp"

namespace zolt::timing {
namespace {

using Bytes = std::vector<std::uint8_t>;

long long elapsed_ms(const std::function<void()>& body) {
  const std::int64_t start = monotonic_ms();
  body();
  return monotonic_ms() - start;
}

Bytes frame_bytes(const zolt_sim::ReceivedFrame& frame) { return Bytes(frame.bytes.begin(), frame.bytes.end()); }

class UsbBridge : public ::testing::Test {
 protected:
  void SetUp() override {
    // 0x75 (reference clock) and 0x31 answer with the payload they got.
    for (const std::uint8_t id : {0x75, 0x31}) {
      instrument().set_handler(id, [](zolt_sim::Instrument&, const zolt_sim::Command& command) {
        return std::optional<zolt_sim::Payload>(command.payload);
      });
    }
  }
  void TearDown() override { zolt_sim_ftdi_reset(); }

  zolt_sim::Instrument& instrument() { return board.instrument(); }

  void open_bridge() {
    ASSERT_TRUE(device.open_usb_command_bridge("", "")) << device.last_error();
    ASSERT_TRUE(device.usb_command_bridge_active());
  }

  testing::CleanSlate clean;
  testing::PrivateTmpdir tmpdir;
  testing::EmulatedModule board{"ZT000001", "Digilent USB Device"};
  DeviceImpl device;
};

TEST_F(UsbBridge, CommandsTravelOverTheBridgeOnlyWhileItIsOpen) {
  EXPECT_EQ(device.send_command(0x41, nullptr, 0, nullptr, 50), TT_ERR_INVALID_STATE);
  EXPECT_EQ(device.last_error(), "port not open");

  open_bridge();
  EXPECT_EQ(&device.command_link(), &device.ftdi_reader());
  std::uint8_t reply[8] = {};
  ASSERT_EQ(device.send_command(0x41, nullptr, 0, reply, 400), TT_OK) << device.last_error();
  EXPECT_EQ(Bytes(reply, reply + 8), (Bytes{'Z', 'O', 'L', 'T', 0, 0, 0, 0}));

  const std::uint8_t internal = 1;
  ASSERT_EQ(device.send_command(0x75, &internal, 1, reply, 400), TT_OK) << device.last_error();
  EXPECT_EQ(reply[7], 1);
  const auto frames = instrument().received_frames();
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_EQ(frame_bytes(frames[0]), (Bytes{0x41, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(frame_bytes(frames[1]), (Bytes{0x75, 0, 0, 0, 0, 0, 0, 0, 1}));

  // Bytes in front of the reply are skipped, as on the serial link.
  zolt_sim::Faults faults;
  faults.garbage_before_reply = {0x00, 0xFF, 0x13};
  instrument().set_faults(faults);
  EXPECT_EQ(device.send_command(0x41, nullptr, 0, reply, 400), TT_OK) << device.last_error();

  instrument().set_faults({});
  instrument().set_silent(true);
  EXPECT_EQ(device.send_command(0x41, nullptr, 0, reply, 60), TT_ERR_TIMEOUT);
  EXPECT_EQ(device.last_error(), "timeout");
  instrument().set_silent(false);

  device.close_usb_link();
  EXPECT_FALSE(device.usb_command_bridge_active());
  EXPECT_EQ(device.send_command(0x41, nullptr, 0, reply, 50), TT_ERR_INVALID_STATE);
}

TEST_F(UsbBridge, LinkFailuresOfTheBridgeBecomeIoErrors) {
  open_bridge();
  board.fail(ZOLT_SIM_FTDI_READ, ZOLT_SIM_FT_IO_ERROR);
  EXPECT_EQ(device.send_command(0x41, nullptr, 0, nullptr, 200), TT_ERR_IO);
  EXPECT_EQ(device.last_error(), "FT_Read failed with FT_STATUS 4");
  board.fail(ZOLT_SIM_FTDI_READ, 0);

  zolt_sim_ftdi_remove_module(board.serial().c_str());
  EXPECT_EQ(device.send_command(0x41, nullptr, 0, nullptr, 200), TT_ERR_IO);
  EXPECT_EQ(device.last_error(), "FT_Write failed with FT_STATUS 4");
}

TEST_F(UsbBridge, FailedOpenNamesTheBridgeAndLeavesNoUsbPath) {
  board.fail(ZOLT_SIM_FTDI_SET_LATENCY_TIMER, ZOLT_SIM_FT_IO_ERROR);
  EXPECT_FALSE(device.open_usb_command_bridge("", ""));
  EXPECT_EQ(device.last_error(), "FTDI async command bridge: FT_SetLatencyTimer failed with FT_STATUS 4");
  EXPECT_FALSE(device.usb_command_bridge_active());
  EXPECT_FALSE(device.open_usb_stream("", ""));
  EXPECT_EQ(device.last_error(), "FTDI sync FIFO stream: FT_SetLatencyTimer failed with FT_STATUS 4");
}

TEST_F(UsbBridge, StreamModeIsNoCommandLinkAndTheBridgeSequencesStayQuiet) {
  ASSERT_TRUE(device.open_usb_stream("", "")) << device.last_error();
  EXPECT_TRUE(device.ftdi_reader().sync_fifo());
  EXPECT_FALSE(device.usb_command_bridge_active());
  EXPECT_EQ(&device.command_link(), &device.serial_port());
  EXPECT_EQ(device.send_command(0x41, nullptr, 0, nullptr, 50), TT_ERR_INVALID_STATE);

  const std::uint8_t stream[16] = {1, 2, 3};
  instrument().send_bytes(stream, sizeof stream);
  device.force_internal_reference_for_command_link();
  device.recover_usb_command_bridge();
  device.drain_usb_command_bridge_quiet(20, 100);
  EXPECT_EQ(instrument().received_count(), 0u);
  EXPECT_EQ(instrument().host_available(), sizeof stream) << "stream data is not the bridge's to drain";
}

TEST_F(UsbBridge, ForcingTheInternalReferenceWritesThreeFramesAndDrainsTheReplies) {
  open_bridge();
  const std::uint8_t stale[5] = {0xF5, 9, 9, 9, 9};
  instrument().send_bytes(stale, sizeof stale);
  device.set_last_error("stale");

  const auto took = elapsed_ms([&] { device.force_internal_reference_for_command_link(); });
  const auto frames = instrument().received_frames();
  ASSERT_EQ(frames.size(), 3u);
  for (const auto& frame : frames) EXPECT_EQ(frame_bytes(frame), (Bytes{0x75, 0, 0, 0, 0, 0, 0, 0, 1}));
  EXPECT_EQ(instrument().host_available(), 0u) << "the three replies are drained";
  EXPECT_TRUE(device.last_error().empty());
  EXPECT_GE(took, 50);  // three 10 ms pauses and at least 20 ms of quiet
  EXPECT_LT(took, 600);

  // The next exchange sees its own reply, not a leftover one.
  std::uint8_t reply[8] = {};
  const std::uint8_t external = 0;
  ASSERT_EQ(device.send_command(0x75, &external, 1, reply, 400), TT_OK) << device.last_error();
  EXPECT_EQ(reply[7], 0);
}

TEST_F(UsbBridge, RecoveryStopsEveryStreamAndLeavesAnAnsweringInstrument) {
  open_bridge();
  Bytes junk(20000, 0xAA);
  instrument().send_bytes(junk.data(), junk.size());
  device.set_last_error("stream stop failed");

  device.recover_usb_command_bridge();
  const auto frames = instrument().received_frames();
  ASSERT_EQ(frames.size(), 40u);
  const std::uint8_t order[4] = {0x14, 0x33, 0x57, 0x31};
  for (std::size_t i = 0; i < frames.size(); ++i) {
    EXPECT_EQ(frame_bytes(frames[i]), (Bytes{order[i % 4], 0, 0, 0, 0, 0, 0, 0, 0})) << "frame " << i;
  }
  EXPECT_EQ(instrument().host_available(), 0u);
  EXPECT_TRUE(device.last_error().empty());

  std::uint8_t reply[8] = {};
  ASSERT_EQ(device.send_command(0x41, nullptr, 0, reply, 400), TT_OK) << device.last_error();
  EXPECT_EQ(reply[0], 'Z');
}

TEST_F(UsbBridge, DrainEndsAfterQuietOrAtItsLimit) {
  open_bridge();
  Bytes burst(50000, 0x55);
  instrument().send_bytes(burst.data(), burst.size());
  auto took = elapsed_ms([&] { device.drain_usb_command_bridge_quiet(20, 250); });
  EXPECT_EQ(instrument().host_available(), 0u);
  EXPECT_GE(took, 20);
  EXPECT_LT(took, 200);

  // An instrument that never stops talking: the drain gives up at max_ms.
  std::atomic<bool> stop{false};
  std::thread chatter([&] {
    const std::uint8_t bytes[64] = {};
    while (!stop.load()) {
      instrument().send_bytes(bytes, sizeof bytes);
      sleep_ms(1);
    }
  });
  took = elapsed_ms([&] { device.drain_usb_command_bridge_quiet(20, 250); });
  stop = true;
  chatter.join();
  EXPECT_GE(took, 250);
  EXPECT_LT(took, 600);
}

}  // namespace
}  // namespace zolt::timing
