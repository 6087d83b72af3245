// FtdiStreamReader against emulated FT2232H modules (the emulated D2XX
// runtime, loaded by the library itself) wired to virtual instruments.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <numeric>
#include <vector>

#include "link/clock.hpp"
#include "support/emulated_ftdi.hpp"
#include "usb/ftdi_device_info.hpp"
#include "usb/ftdi_stream_reader.hpp"

namespace zolt::timing {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Mode = FtdiStreamReader::Mode;
using testing::EmulatedModule;

long long elapsed_ms(const std::function<void()>& body) {
  const std::int64_t start = monotonic_ms();
  body();
  return monotonic_ms() - start;
}

const Bytes kIdentityCommand = {0x41, 0, 0, 0, 0, 0, 0, 0, 0};

class FtdiReader : public ::testing::Test {
 protected:
  void TearDown() override { zolt_sim_ftdi_reset(); }

  FtdiDeviceInfo board_info() const { return *classify_ftdi_interface("Digilent USB Device A", "ZT000001A"); }

  testing::CleanSlate clean;  // first: before the module below is added
  testing::PrivateTmpdir tmpdir;
  EmulatedModule board{"ZT000001", "Digilent USB Device"};
  FtdiStreamReader reader;
};

TEST_F(FtdiReader, ListsInterfaceAOfEachModuleOnly) {
  zolt_sim_ftdi_add_module("A50285BI", "FT232R USB UART", 0);
  EmulatedModule minimodule("FTM42", "FT2232H MiniModule");
  std::string error;
  const auto candidates = list_stream_candidates(error);
  EXPECT_TRUE(error.empty()) << error;
  ASSERT_EQ(candidates.size(), 2u);
  EXPECT_EQ(device_label(candidates[0]), "Digilent USB Device A [ZT000001A]");
  EXPECT_EQ(device_label(candidates[1]), "FT2232H MiniModule A [FTM42A]");
  EXPECT_TRUE(candidates[1].known_fifo_board && candidates[1].interface_a);

  zolt_sim_ftdi_reset();
  EXPECT_TRUE(list_stream_candidates(error).empty());
  EXPECT_TRUE(error.empty()) << error;
}

TEST_F(FtdiReader, BridgeModeCarriesCommandFramesBothWays) {
  ASSERT_TRUE(reader.open(Mode::async_bridge)) << reader.last_error();
  EXPECT_TRUE(reader.last_error().empty());
  EXPECT_FALSE(reader.sync_fifo());
  EXPECT_EQ(reader.label(), "Digilent USB Device A [ZT000001A]");
  EXPECT_EQ(reader.serial_number(), "ZT000001A");

  const auto state = board.state_a();
  EXPECT_EQ(state.open, 1);
  EXPECT_EQ(state.bit_mode, 0x00);
  EXPECT_EQ(state.latency_ms, 2);
  EXPECT_EQ(state.in_transfer_size, 65536u);
  EXPECT_EQ(state.out_transfer_size, 65536u);
  EXPECT_EQ(state.read_timeout_ms, 1u);
  EXPECT_EQ(state.write_timeout_ms, 100u);
  EXPECT_EQ(state.purge_count, 1u);

  ASSERT_TRUE(reader.write_all(kIdentityCommand.data(), kIdentityCommand.size())) << reader.last_error();
  Bytes reply(9);
  ASSERT_TRUE(reader.read_exact(reply.data(), reply.size(), 500)) << reader.last_error();
  EXPECT_EQ(reply, (Bytes{0xC1, 'Z', 'O', 'L', 'T', 0, 0, 0, 0}));
  ASSERT_EQ(board.instrument().received_count(), 1u);
  const auto frame = board.instrument().received_frames()[0].bytes;
  EXPECT_EQ(Bytes(frame.begin(), frame.end()), kIdentityCommand);

  // purge drops what the instrument sent but the host did not read yet.
  ASSERT_TRUE(reader.write_all(kIdentityCommand.data(), kIdentityCommand.size()));
  reader.purge();
  EXPECT_FALSE(reader.read_exact(reply.data(), 1, 20));
  EXPECT_EQ(reader.last_error(), "timeout");
}

TEST_F(FtdiReader, FifoModeDeliversTheStreamAndCloseLeavesFifoMode) {
  ASSERT_TRUE(reader.open(Mode::sync_fifo)) << reader.last_error();
  EXPECT_TRUE(reader.sync_fifo());
  auto state = board.state_a();
  EXPECT_EQ(state.bit_mask, 0xFF);
  EXPECT_EQ(state.bit_mode, 0x40);
  EXPECT_EQ(state.latency_ms, 1);
  EXPECT_EQ(state.in_transfer_size, 1048576u);
  EXPECT_EQ(state.out_transfer_size, 65536u);
  EXPECT_TRUE(ftdi_device_claimed(board_info()));

  std::uint8_t scratch[64];
  EXPECT_EQ(reader.read_available(scratch, sizeof scratch), 0u);
  EXPECT_EQ(reader.read(scratch, sizeof scratch), 0u);

  Bytes stream(10000);
  std::iota(stream.begin(), stream.end(), std::uint8_t{0});
  board.instrument().send_bytes(stream.data(), stream.size());
  Bytes received;
  while (received.size() < stream.size()) {
    std::uint8_t chunk[3000];
    const std::size_t n = reader.read(chunk, sizeof chunk);
    ASSERT_GT(n, 0u) << reader.last_error();
    ASSERT_LE(n, sizeof chunk);
    received.insert(received.end(), chunk, chunk + n);
  }
  EXPECT_EQ(received, stream);

  reader.close();
  EXPECT_FALSE(reader.is_open());
  EXPECT_FALSE(reader.sync_fifo());
  state = board.state_a();
  EXPECT_EQ(state.open, 0);
  EXPECT_EQ(state.bit_mode, 0x00);
  EXPECT_FALSE(ftdi_device_claimed(board_info()));
  reader.close();  // idempotent

  // A mode change is a close and an open: the chip goes back to the bridge.
  ASSERT_TRUE(reader.open(Mode::async_bridge)) << reader.last_error();
  EXPECT_EQ(board.state_a().bit_mode, 0x00);
  EXPECT_EQ(board.state_a().open_count, 2u);
}

TEST_F(FtdiReader, EveryOpenStepNamesItselfWhenItFails) {
  struct Case {
    zolt_sim_ftdi_call call;
    Mode mode;
    const char* message;
  };
  const Case cases[] = {
      {ZOLT_SIM_FTDI_OPEN_EX, Mode::async_bridge,
       "FT_OpenEx failed with FT_STATUS 3 (Digilent USB Device A [ZT000001A])"},
      {ZOLT_SIM_FTDI_SET_BIT_MODE_RESET, Mode::sync_fifo, "FT_SetBitMode(reset) failed with FT_STATUS 4"},
      {ZOLT_SIM_FTDI_SET_BIT_MODE_RESET, Mode::async_bridge, "FT_SetBitMode(reset/async) failed with FT_STATUS 4"},
      {ZOLT_SIM_FTDI_SET_BIT_MODE_OTHER, Mode::sync_fifo, "FT_SetBitMode(sync_fifo) failed with FT_STATUS 4"},
      {ZOLT_SIM_FTDI_SET_USB_PARAMETERS, Mode::sync_fifo, "FT_SetUSBParameters failed with FT_STATUS 4"},
      {ZOLT_SIM_FTDI_SET_LATENCY_TIMER, Mode::async_bridge, "FT_SetLatencyTimer failed with FT_STATUS 4"},
      {ZOLT_SIM_FTDI_SET_TIMEOUTS, Mode::sync_fifo, "FT_SetTimeouts failed with FT_STATUS 4"},
      {ZOLT_SIM_FTDI_PURGE, Mode::async_bridge, "FT_Purge failed with FT_STATUS 4"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    board.fail(c.call, c.call == ZOLT_SIM_FTDI_OPEN_EX ? ZOLT_SIM_FT_DEVICE_NOT_OPENED : ZOLT_SIM_FT_IO_ERROR);
    EXPECT_FALSE(reader.open(c.mode));
    EXPECT_EQ(reader.last_error(), c.message);
    EXPECT_FALSE(reader.is_open());
    EXPECT_EQ(board.state_a().open, 0) << "the handle must be closed again";
    EXPECT_FALSE(ftdi_device_claimed(board_info())) << "the claim must be released";
    board.fail(c.call, 0);
  }
  EXPECT_TRUE(reader.open(Mode::sync_fifo)) << reader.last_error();
}

TEST_F(FtdiReader, WriteAllGivesUpAfterASecondWithoutProgress) {
  ASSERT_TRUE(reader.open(Mode::async_bridge)) << reader.last_error();
  zolt_sim_ftdi_set_write_stall(board.serial().c_str(), 1);
  bool written = true;
  const auto took = elapsed_ms([&] { written = reader.write_all(kIdentityCommand.data(), 9); });
  EXPECT_FALSE(written);
  EXPECT_EQ(reader.last_error(), "FT_Write made no progress");
  EXPECT_GE(took, 950);
  EXPECT_LT(took, 3000);

  zolt_sim_ftdi_set_write_stall(board.serial().c_str(), 0);
  board.fail(ZOLT_SIM_FTDI_WRITE, ZOLT_SIM_FT_IO_ERROR);
  EXPECT_FALSE(reader.write_all(kIdentityCommand.data(), 9));
  EXPECT_EQ(reader.last_error(), "FT_Write failed with FT_STATUS 4");
  board.fail(ZOLT_SIM_FTDI_WRITE, 0);
  EXPECT_TRUE(reader.write_all(kIdentityCommand.data(), 9)) << reader.last_error();
  EXPECT_TRUE(reader.write_all(nullptr, 9));
}

TEST_F(FtdiReader, ReadExactWaitsItsTimeoutAndZeroMeans250Ms) {
  ASSERT_TRUE(reader.open(Mode::async_bridge)) << reader.last_error();
  std::uint8_t buffer[9];
  bool complete = true;
  auto took = elapsed_ms([&] { complete = reader.read_exact(buffer, sizeof buffer, 0); });
  EXPECT_FALSE(complete);
  EXPECT_EQ(reader.last_error(), "timeout");
  EXPECT_GE(took, 250);
  EXPECT_LT(took, 1000);

  took = elapsed_ms([&] { complete = reader.read_exact(buffer, sizeof buffer, 40); });
  EXPECT_FALSE(complete);
  EXPECT_GE(took, 40);
  EXPECT_LT(took, 200);

  // Bytes that trickle in are collected until the whole count is there.
  const std::uint8_t part[4] = {1, 2, 3, 4};
  board.instrument().send_bytes(part, 4);
  EXPECT_FALSE(reader.read_exact(buffer, sizeof buffer, 30));
  EXPECT_TRUE(reader.read_exact(buffer, 0, 30));
}

TEST_F(FtdiReader, ReadFailuresCarryTheFailingCall) {
  ASSERT_TRUE(reader.open(Mode::sync_fifo)) << reader.last_error();
  const std::uint8_t bytes[9] = {};
  board.instrument().send_bytes(bytes, sizeof bytes);
  std::uint8_t buffer[9];

  board.fail(ZOLT_SIM_FTDI_READ, ZOLT_SIM_FT_IO_ERROR);
  EXPECT_FALSE(reader.read_exact(buffer, sizeof buffer, 100));
  EXPECT_EQ(reader.last_error(), "FT_Read failed with FT_STATUS 4");
  EXPECT_EQ(reader.read_available(buffer, sizeof buffer), 0u);
  EXPECT_EQ(reader.last_error(), "FT_Read failed with FT_STATUS 4");
  board.fail(ZOLT_SIM_FTDI_READ, 0);

  board.fail(ZOLT_SIM_FTDI_GET_QUEUE_STATUS, ZOLT_SIM_FT_IO_ERROR);
  EXPECT_FALSE(reader.read_exact(buffer, sizeof buffer, 100));
  EXPECT_EQ(reader.last_error(), "FT_GetQueueStatus failed with FT_STATUS 4");
  board.fail(ZOLT_SIM_FTDI_GET_QUEUE_STATUS, 0);
  EXPECT_TRUE(reader.read_exact(buffer, sizeof buffer, 100)) << reader.last_error();

  // Once the link works again no earlier failure stays behind: an empty read
  // is told apart from a broken link by its empty text.
  board.fail(ZOLT_SIM_FTDI_GET_QUEUE_STATUS, ZOLT_SIM_FT_IO_ERROR);
  EXPECT_EQ(reader.read_available(buffer, sizeof buffer), 0u);
  EXPECT_EQ(reader.read(buffer, sizeof buffer), 0u);
  board.fail(ZOLT_SIM_FTDI_GET_QUEUE_STATUS, 0);
  EXPECT_EQ(reader.read_available(buffer, sizeof buffer), 0u);
  EXPECT_EQ(reader.last_error(), "");
  EXPECT_FALSE(reader.read_exact(buffer, sizeof buffer, 10));
  EXPECT_EQ(reader.read(buffer, sizeof buffer), 0u);
  EXPECT_EQ(reader.last_error(), "");

  // Unplugged: the handle stays, every call on it fails.
  zolt_sim_ftdi_remove_module(board.serial().c_str());
  EXPECT_FALSE(reader.read_exact(buffer, sizeof buffer, 100));
  EXPECT_EQ(reader.last_error(), "FT_GetQueueStatus failed with FT_STATUS 4");
  EXPECT_FALSE(reader.write_all(bytes, sizeof bytes));
  EXPECT_EQ(reader.last_error(), "FT_Write failed with FT_STATUS 4");
  reader.close();
  EXPECT_FALSE(ftdi_device_claimed(board_info()));
}

TEST_F(FtdiReader, ClosedReaderRefusesEveryOperation) {
  std::uint8_t buffer[9] = {};
  const auto expect_refusals = [&] {
    EXPECT_FALSE(reader.write_all(buffer, sizeof buffer));
    EXPECT_EQ(reader.last_error(), "FTDI USB stream reader not open");
    reader.purge();
    EXPECT_FALSE(reader.read_exact(buffer, sizeof buffer, 10));
    EXPECT_EQ(reader.last_error(), "FTDI USB stream reader not open");
    EXPECT_EQ(reader.read_available(buffer, sizeof buffer), 0u);
    EXPECT_EQ(reader.read(buffer, sizeof buffer), 0u);
    EXPECT_EQ(reader.last_error(), "FTDI USB stream reader not open");
    // Nothing to move is no failure, open or not.
    EXPECT_TRUE(reader.write_all(buffer, 0));
    EXPECT_TRUE(reader.read_exact(nullptr, 9, 10));
  };
  expect_refusals();
  ASSERT_TRUE(reader.open(Mode::async_bridge)) << reader.last_error();
  reader.close();
  expect_refusals();
}

TEST_F(FtdiReader, SelectionChoosesByArgumentEnvironmentOrPreference) {
  EmulatedModule second("ZT000002", "FT2232H MiniModule");
  EXPECT_FALSE(reader.open(Mode::async_bridge));
  EXPECT_EQ(reader.last_error(),
            "Multiple FTDI HS USB stream modules are available; set ZOLT_TIMING_USB_SERIAL. Candidates: "
            "Digilent USB Device A [ZT000001A], FT2232H MiniModule A [ZT000002A]");

  ASSERT_TRUE(reader.open(Mode::async_bridge, "zt000002a")) << reader.last_error();
  EXPECT_EQ(reader.label(), "FT2232H MiniModule A [ZT000002A]");
  EXPECT_EQ(second.state_a().open, 1);
  EXPECT_EQ(board.state_a().open, 0);

  ::setenv("ZOLT_TIMING_USB_SERIAL", "ZT000001A", 1);
  const bool by_environment = reader.open(Mode::async_bridge);
  ::unsetenv("ZOLT_TIMING_USB_SERIAL");
  ASSERT_TRUE(by_environment) << reader.last_error();
  EXPECT_EQ(reader.label(), "Digilent USB Device A [ZT000001A]");

  ASSERT_TRUE(reader.open(Mode::async_bridge, "", "MINIMODULE")) << reader.last_error();
  EXPECT_EQ(reader.serial_number(), "ZT000002A");

  EXPECT_FALSE(reader.open(Mode::async_bridge, "ZT000003A"));
  EXPECT_EQ(reader.last_error(), "Requested ZOLT_TIMING_USB_SERIAL was not found");
  EXPECT_FALSE(reader.is_open()) << "a failed open leaves the reader closed";

  zolt_sim_ftdi_reset();
  EXPECT_FALSE(reader.open(Mode::async_bridge));
  EXPECT_EQ(reader.last_error(), "No FTDI HS USB stream device available");
}

TEST_F(FtdiReader, SecondProcessFindsTheInterfaceInUse) {
  ASSERT_TRUE(reader.open(Mode::async_bridge)) << reader.last_error();
  const auto open_in_child = [] {
    FtdiStreamReader other;
    return other.open(Mode::async_bridge) ? std::string("opened") : other.last_error();
  };
  EXPECT_EQ(testing::in_child_process(open_in_child),
            "FTDI device Digilent USB Device A [ZT000001A] is already in use by another ZOLT Timing process");

  // The first process keeps working while the second was refused.
  ASSERT_TRUE(reader.write_all(kIdentityCommand.data(), kIdentityCommand.size()));
  Bytes reply(9);
  EXPECT_TRUE(reader.read_exact(reply.data(), reply.size(), 500)) << reader.last_error();

  reader.close();
  EXPECT_EQ(testing::in_child_process(open_in_child), "opened");
}

TEST_F(FtdiReader, MovingTransfersHandleAndClaim) {
  ASSERT_TRUE(reader.open(Mode::async_bridge)) << reader.last_error();
  FtdiStreamReader moved(std::move(reader));
  EXPECT_FALSE(reader.is_open());
  EXPECT_TRUE(moved.is_open());
  EXPECT_EQ(moved.label(), "Digilent USB Device A [ZT000001A]");
  ASSERT_TRUE(moved.write_all(kIdentityCommand.data(), kIdentityCommand.size())) << moved.last_error();
  Bytes reply(9);
  EXPECT_TRUE(moved.read_exact(reply.data(), reply.size(), 500)) << moved.last_error();
  EXPECT_FALSE(reader.read_exact(reply.data(), reply.size(), 10));
  EXPECT_EQ(reader.last_error(), "FTDI USB stream reader not open");

  FtdiStreamReader assigned;
  assigned = std::move(moved);
  EXPECT_FALSE(moved.is_open());
  EXPECT_TRUE(ftdi_device_claimed(board_info()));
  assigned.close();
  EXPECT_FALSE(ftdi_device_claimed(board_info()));
  EXPECT_EQ(board.state_a().open, 0);
}

}  // namespace
}  // namespace zolt::timing
