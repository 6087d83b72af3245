// Streams made by the virtual instrument's encoders, decoded by the host's
// decoder in chunks of random size: every tag must come back exactly (packed
// delta: to its 8 ps quantum), and damaged streams must recover.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "calibration/fine_lut.hpp"
#include "stream/stream_decoder.hpp"
#include "zolt_sim/encoders.hpp"

namespace zolt::timing {
namespace {

using zolt_sim::InputEvent;
using Events = std::vector<InputEvent>;
using Bytes = std::vector<std::uint8_t>;

constexpr std::int64_t kWrap = 0xD0500000000LL;
constexpr std::int64_t kDeadTimePs = 2000;  // the inputs' dead time keeps an input's tags apart

// Builds event sequences the way an experiment produces them.
class EventSource {
 public:
  EventSource(std::uint64_t seed, std::uint8_t mask) : random_(seed) {
    for (unsigned ch = 0; ch < 4; ++ch) {
      if ((mask >> ch) & 1U) inputs_.push_back(static_cast<std::uint8_t>(ch));
    }
  }

  // Poisson arrivals at `rate_hz` spread over the inputs.
  void poisson(Events& out, std::size_t count, double rate_hz) {
    std::exponential_distribution<double> gap(rate_hz / 1e12);
    for (std::size_t i = 0; i < count; ++i) add(out, now_ + 1 + static_cast<std::int64_t>(gap(random_)));
  }

  // Bursts of closely spaced tags separated by quiet spells.
  void bursts(Events& out, std::size_t count) {
    std::uniform_int_distribution<int> burst_length(1, 64);
    std::uniform_int_distribution<std::int64_t> in_burst(50, 800), quiet(1'000'000, 20'000'000'000);
    while (count > 0) {
      for (int n = burst_length(random_); n > 0 && count > 0; --n, --count) add(out, now_ + in_burst(random_));
      now_ += quiet(random_);
    }
  }

  // Tags taking turns over the inputs with gaps of up to `max_gap_ps`, until
  // the clock passes `until_ps`: the way across long quiet stretches.
  void walk(Events& out, std::int64_t until_ps, std::int64_t max_gap_ps) {
    std::uniform_int_distribution<std::int64_t> gap(max_gap_ps / 2, max_gap_ps);
    std::size_t turn = 0;
    while (now_ < until_ps) {
      now_ += gap(random_);
      push(out, inputs_[turn++ % inputs_.size()], now_);
    }
  }

  void jump_to(std::int64_t time_ps) { now_ = std::max(now_, time_ps); }
  std::mt19937_64& random() { return random_; }

 private:
  void add(Events& out, std::int64_t time) {
    now_ = time;
    std::uniform_int_distribution<std::size_t> pick(0, inputs_.size() - 1);
    push(out, inputs_[pick(random_)], time);
  }
  void push(Events& out, std::uint8_t input, std::int64_t time) {
    if (time - last_[input] < kDeadTimePs) return;  // lost in the dead time
    last_[input] = time;
    out.push_back(InputEvent{input, time});
  }

  std::mt19937_64 random_;
  std::vector<std::uint8_t> inputs_;
  std::array<std::int64_t, 4> last_{-kDeadTimePs, -kDeadTimePs, -kDeadTimePs, -kDeadTimePs};
  std::int64_t now_ = 0;
};

// Dense traffic, bursts and a walk of long gaps to the counter wrap; then
// either dense traffic up to just before the wrap and another walk of long
// gaps across it, or dense traffic right across the wrap.
Events experiment(std::uint64_t seed, std::uint8_t mask, std::int64_t max_gap_ps, bool long_gaps_across_wrap) {
  EventSource source(seed, mask);
  Events events;
  source.jump_to(1'000'000);
  source.poisson(events, 20000, 40e6);
  source.bursts(events, 3000);
  if (long_gaps_across_wrap) {
    source.walk(events, kWrap - 400'000'000, max_gap_ps);
    source.poisson(events, 20000, 40e6);
    source.walk(events, kWrap + 3'000'000'000'000LL, max_gap_ps);
  } else {
    source.walk(events, kWrap - 200'000'000, max_gap_ps);
    source.poisson(events, 20000, 40e6);
  }
  source.poisson(events, 5000, 1e6);
  EXPECT_GT(events.back().time_ps, kWrap);
  return events;
}

// Decodes in chunks of 1 byte to 1 MiB, sizes spread evenly on a log scale.
std::vector<TimeTag> decode_in_chunks(StreamDecoder& decoder, const Bytes& stream, std::mt19937_64& random) {
  std::uniform_int_distribution<int> log_size(0, 20);
  std::vector<TimeTag> tags;
  for (std::size_t at = 0; at < stream.size();) {
    const std::size_t want = std::uniform_int_distribution<std::size_t>(1, std::size_t{1} << log_size(random))(random);
    const std::size_t n = std::min(want, stream.size() - at);
    decoder.feed(std::span(stream).subspan(at, n), tags);
    at += n;
  }
  return tags;
}

StreamFileHeader header_for(StreamFormat format, std::uint8_t mask, TimestampMode mode, const char* raw64 = "ps") {
  StreamFileHeader header;
  header.stream_format = format;
  header.channel_mask = mask;
  header.mode = mode;
  header.raw64_tag_format = raw64;
  return header;
}

// Compares without printing a million tags on failure.
void expect_same(const std::vector<TimeTag>& got, const std::vector<TimeTag>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (std::size_t i = 0; i < got.size(); ++i) {
    ASSERT_TRUE(got[i].channel == want[i].channel && got[i].time == want[i].time)
        << "tag " << i << ": got " << int(got[i].channel) << "@" << got[i].time << ", want "
        << int(want[i].channel) << "@" << want[i].time;
  }
}

std::vector<TimeTag> as_tags(const Events& events, std::int64_t quantum = 1) {
  std::vector<TimeTag> tags;
  for (const auto& e : events) tags.push_back(TimeTag{e.input, e.time_ps / quantum * quantum});
  return tags;
}

constexpr std::uint8_t kMasks[] = {0x1, 0x2, 0x4, 0x8, 0x3, 0x5, 0x6, 0x9, 0xA, 0xC, 0x7, 0xB, 0xD, 0xE, 0xF};

TEST(RoundTrip, Raw64TagWordsEveryMask) {
  for (std::uint8_t mask : kMasks) {
    SCOPED_TRACE(int(mask));
    // An input's gaps stay below half the wrap, where the format can still
    // tell a wrap from a step back.
    const Events events = experiment(mask, mask, 1'500'000'000'000LL, true);
    Bytes stream;
    zolt_sim::Raw64TagEncoder encoder;
    for (const auto& e : events) encoder.encode(e, stream);
    StreamDecoder decoder(header_for(StreamFormat::raw64, mask, TimestampMode::external));
    std::mt19937_64 random(mask);
    expect_same(decode_in_chunks(decoder, stream, random), as_tags(events));
  }
}

TEST(RoundTrip, Raw64CalibrationWordsThroughUnevenDelayLines) {
  const std::array<zolt_sim::DelayLine, 4> lines{zolt_sim::DelayLine(1), zolt_sim::DelayLine(2),
                                                 zolt_sim::DelayLine(3), zolt_sim::DelayLine(4)};
  // The delay lines are not the decoder's 18.5 ps per code.
  int differing = 0;
  for (int delay = 0; delay < 3333; delay += 7) differing += lines[0].code_for(delay) != (delay * 2 + 18) / 37;
  EXPECT_GT(differing, 100);

  const zolt_sim::Raw64CalibrationEncoder encoder(lines);
  const FineLut lut = FineLut::identity(3333);
  for (std::uint8_t mask : {std::uint8_t{0x1}, std::uint8_t{0x6}, std::uint8_t{0xF}}) {
    const Events events = experiment(100 + mask, mask, 1'500'000'000'000LL, true);
    Bytes stream;
    std::vector<TimeTag> want;
    for (const auto& e : events) {
      encoder.encode(e, stream);
      const auto reading = encoder.read(e);
      const std::int64_t edge = (e.time_ps + 3332) / 3333;  // the coarse count before it wrapped
      ASSERT_EQ(reading.coarse, static_cast<std::uint32_t>(edge));
      want.push_back(TimeTag{e.input, edge * 3333 - lut[reading.fine]});
    }
    StreamDecoder decoder(header_for(StreamFormat::raw64, mask, TimestampMode::internal, "raw_cf"));
    std::mt19937_64 random(mask);
    expect_same(decode_in_chunks(decoder, stream, random), want);
  }
}

TEST(RoundTrip, Delta32EveryMaskWithAndWithoutRepeatedBases) {
  for (std::uint8_t mask : kMasks) {
    for (std::uint32_t sync_every : {0u, 64u, 4096u}) {
      SCOPED_TRACE(::testing::Message() << "mask " << int(mask) << " sync every " << sync_every);
      // Gaps stay below the 1.07 s the format can tell from a counter wrap.
      // A base after the wrap lands right only within 21 ms of the input's
      // previous tag, so streams with repeated bases cross the wrap densely.
      const Events events = experiment(mask * 7 + sync_every, mask, 250'000'000'000LL, sync_every == 0);
      Bytes stream;
      zolt_sim::Delta32Encoder encoder({sync_every});
      for (const auto& e : events) encoder.encode(e, stream);
      StreamDecoder decoder(header_for(StreamFormat::delta32, mask, TimestampMode::external));
      std::mt19937_64 random(mask + sync_every);
      expect_same(decode_in_chunks(decoder, stream, random), as_tags(events));
      EXPECT_TRUE(decoder.locked());
    }
  }
}

TEST(RoundTrip, PackedDeltaEveryMaskBothClockModes) {
  for (std::uint8_t mask : kMasks) {
    for (TimestampMode mode : {TimestampMode::external, TimestampMode::internal}) {
      SCOPED_TRACE(::testing::Message() << "mask " << int(mask) << " mode " << int(mode));
      const Events events = experiment(mask * 3 + static_cast<unsigned>(mode), mask, 250'000'000'000LL, true);
      Bytes stream;
      zolt_sim::PackedDeltaEncoder encoder;
      for (const auto& e : events) encoder.encode(e, stream);
      encoder.finish(stream);
      StreamDecoder decoder(header_for(StreamFormat::packed_delta, mask, mode));
      std::mt19937_64 random(mask);
      expect_same(decode_in_chunks(decoder, stream, random), as_tags(events, 8));
      EXPECT_TRUE(decoder.locked());
    }
  }
}

TEST(RoundTrip, PackedDeltaOtherWidths) {
  for (unsigned bits : {12u, 20u, 31u}) {
    SCOPED_TRACE(bits);
    const Events events = experiment(bits, 0xF, 250'000'000'000LL, true);
    Bytes stream;
    zolt_sim::PackedDeltaEncoder encoder({bits, 8, 256});
    for (const auto& e : events) encoder.encode(e, stream);
    encoder.finish(stream);
    StreamFileHeader header = header_for(StreamFormat::packed_delta, 0xF, TimestampMode::external);
    header.delta_bits = static_cast<std::uint8_t>(bits);
    StreamDecoder decoder(header);
    std::mt19937_64 random(bits);
    expect_same(decode_in_chunks(decoder, stream, random), as_tags(events, 8));
  }
}

// Flips bits, drops and inserts bytes early in the stream.
Bytes damaged(Bytes stream, std::mt19937_64& random) {
  std::uniform_int_distribution<std::size_t> where(16, stream.size() / 10);
  std::uniform_int_distribution<int> bit(0, 7), byte(0, 255);
  for (int i = 0; i < 10; ++i) stream[where(random)] ^= static_cast<std::uint8_t>(1U << bit(random));
  for (int i = 0; i < 2; ++i) stream.erase(stream.begin() + static_cast<std::ptrdiff_t>(where(random)));
  for (int i = 0; i < 2; ++i) {
    stream.insert(stream.begin() + static_cast<std::ptrdiff_t>(where(random)), static_cast<std::uint8_t>(byte(random)));
  }
  return stream;
}

// After damage the decoder finds its footing again and the stream's last
// tags come out as they went in. raw64 has no sync: a damaged time may move
// an input's epoch for good, so there the times agree modulo the wrap.
// Packed delta with an external clock can run on misaligned for a while
// (nothing about a plain tag is implausible then), so the stream is long.
TEST(RoundTrip, DamagedStreamsRecover) {
  for (std::uint64_t seed = 1; seed <= 3; ++seed) {
    EventSource source(seed, 0xF);
    Events events;
    // 1.5 s in: raw64 words of times this large cannot be read one byte off.
    source.jump_to(1'500'000'000'000LL);
    source.poisson(events, 400000, 20e6);
    Bytes raw64, delta32, packed;
    zolt_sim::Raw64TagEncoder raw64_encoder;
    zolt_sim::Delta32Encoder delta32_encoder({64});
    zolt_sim::PackedDeltaEncoder packed_encoder({16, 8, 64});
    for (const auto& e : events) {
      raw64_encoder.encode(e, raw64);
      delta32_encoder.encode(e, delta32);
      packed_encoder.encode(e, packed);
    }
    packed_encoder.finish(packed);
    const struct {
      StreamFormat format;
      const Bytes& bytes;
      std::int64_t quantum;
    } streams[] = {{StreamFormat::raw64, raw64, 1}, {StreamFormat::delta32, delta32, 1},
                   {StreamFormat::packed_delta, packed, 8}};
    for (const auto& s : streams) {
      SCOPED_TRACE(::testing::Message() << "seed " << seed << " format " << int(s.format));
      std::mt19937_64 random(seed);
      StreamDecoder decoder(header_for(s.format, 0xF, TimestampMode::external));
      const auto got = decode_in_chunks(decoder, damaged(s.bytes, random), random);
      EXPECT_TRUE(decoder.locked());
      auto want = as_tags(events, s.quantum);
      constexpr std::size_t kTail = 2000;
      ASSERT_GE(got.size(), kTail);
      std::vector<TimeTag> tail(got.end() - kTail, got.end());
      want.erase(want.begin(), want.end() - kTail);
      if (s.format == StreamFormat::raw64) {
        for (std::size_t i = 0; i < kTail; ++i) tail[i].time = want[i].time + (tail[i].time - want[i].time) % kWrap;
      }
      expect_same(tail, want);
    }
  }
}

}  // namespace
}  // namespace zolt::timing
