// The virtual instrument's byte channel, framing and fault switches, seen from
// a front end's side (no pseudo-terminal involved).

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "zolt_sim/instrument.hpp"
#include "zolt_sim/registry.hpp"

namespace {

using zolt_sim::Faults;
using zolt_sim::Frame;
using zolt_sim::IdentityField;
using zolt_sim::Instrument;
using zolt_sim::Payload;

std::vector<std::uint8_t> command(std::uint8_t id, std::uint8_t last = 0) {
  return {id, 0, 0, 0, 0, 0, 0, 0, last};
}

std::vector<std::uint8_t> read_all(Instrument& instrument, int timeout_ms) {
  std::vector<std::uint8_t> bytes(256);
  bytes.resize(instrument.host_read(bytes.data(), bytes.size(), timeout_ms));
  return bytes;
}

TEST(SimInstrument, AssemblesFramesAcrossWritesAndAnswersIdentity) {
  Instrument instrument;
  instrument.set_identity(IdentityField::serial, std::string_view("A B\x7F", 4));
  const auto frame = command(0x43);
  instrument.host_write(frame.data(), 4);
  EXPECT_EQ(instrument.host_available(), 0U);
  instrument.host_write(frame.data() + 4, 5);
  EXPECT_EQ(read_all(instrument, 100), (std::vector<std::uint8_t>{0xC3, 'A', ' ', 'B', 0x7F, 0, 0, 0, 0}));

  // Unknown ids are recorded but not answered.
  const auto unknown = command(0x0F);
  instrument.host_write(unknown.data(), unknown.size());
  EXPECT_TRUE(read_all(instrument, 30).empty());
  const auto frames = instrument.received_frames();
  ASSERT_EQ(frames.size(), 2U);
  EXPECT_EQ(frames[0].bytes, (Frame{0x43, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(frames[1].bytes[0], 0x0F);
  EXPECT_LE(frames[0].arrival, frames[1].arrival);
}

TEST(SimInstrument, ReplyFaultsShapeTheWire) {
  Instrument instrument;
  instrument.set_handler(0x75, [](Instrument&, const zolt_sim::Command& c) { return std::optional<Payload>(c.payload); });
  Faults faults;
  faults.garbage_before_reply = {0x11, 0x22};
  faults.foreign_frames_before_reply = 1;
  faults.foreign_rid = 0xD8;
  faults.corrupt_echo = true;
  instrument.set_faults(faults);
  const auto frame = command(0x75, 0x05);
  instrument.host_write(frame.data(), frame.size());
  const std::vector<std::uint8_t> expected{0x11, 0x22, 0xD8, 0, 0, 0, 0, 0, 0, 0, 0,
                                           0xF5, 0, 0, 0, 0, 0, 0, 0, 0xFA};
  EXPECT_EQ(read_all(instrument, 100), expected);

  instrument.set_faults(Faults{});
  instrument.drop_next_replies(2);
  for (int i = 0; i < 3; ++i) instrument.host_write(frame.data(), frame.size());
  EXPECT_EQ(read_all(instrument, 100), (std::vector<std::uint8_t>{0xF5, 0, 0, 0, 0, 0, 0, 0, 0x05}));
  EXPECT_EQ(instrument.faults().drop_replies, 0);

  instrument.set_silent(true);
  instrument.host_write(frame.data(), frame.size());
  EXPECT_TRUE(read_all(instrument, 30).empty());
  EXPECT_EQ(instrument.replies_sent(), 2U);
}

TEST(SimInstrument, DelayedReplyKeepsOrderAndSurvivesPurge) {
  Instrument instrument;
  Faults faults;
  faults.reply_delay_ms = 80;
  instrument.set_faults(faults);
  const std::uint8_t early[] = {0xEE};
  instrument.send_bytes(early, 1);
  const auto frame = command(0x41);
  instrument.host_write(frame.data(), frame.size());
  const std::uint8_t after[] = {0xAF};
  instrument.send_bytes(after, 1);  // behind the delayed reply: waits for it

  EXPECT_EQ(instrument.host_available(), 1U);
  instrument.host_purge();  // drops the byte that arrived, not the one in flight
  EXPECT_EQ(instrument.host_available(), 0U);
  const auto start = std::chrono::steady_clock::now();
  const auto bytes = read_all(instrument, 500);
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(50));
  ASSERT_EQ(bytes.size(), 10U);
  EXPECT_EQ(bytes[0], 0xC1);
  EXPECT_EQ(bytes[9], 0xAF);
}

TEST(SimInstrument, ClosedLinkWakesReadersAndIgnoresCommands) {
  auto instrument = std::make_shared<Instrument>();
  std::thread closer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    instrument->close_link();
  });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_TRUE(read_all(*instrument, 5000).empty());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  closer.join();
  const auto frame = command(0x41);
  instrument->host_write(frame.data(), frame.size());
  EXPECT_EQ(instrument->received_count(), 0U);
  EXPECT_TRUE(instrument->link_closed());

  auto& registry = zolt_sim::Registry::global();
  registry.add("FT-A", instrument);
  registry.add("FT-B", std::make_shared<Instrument>());
  registry.add("FT-A", instrument);
  EXPECT_EQ(registry.names(), (std::vector<std::string>{"FT-A", "FT-B"}));
  EXPECT_EQ(registry.find("FT-A"), instrument);
  registry.remove("FT-A");
  EXPECT_EQ(registry.find("FT-A"), nullptr);
  registry.clear();
}

}  // namespace
