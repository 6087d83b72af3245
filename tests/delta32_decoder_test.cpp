#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "stream/stream_decoder.hpp"
#include "stream/wrap_reduction.hpp"

namespace zolt::timing {
namespace {

// delta32 words written from the wire layout: flag F (bit 31), channel or
// subtype C (30..29), type T (28..25), payload P (24..0).
constexpr std::uint32_t word(std::uint32_t f, std::uint32_t c, std::uint32_t t, std::uint32_t p) {
  return (f << 31) | (c << 29) | (t << 25) | p;
}
constexpr std::uint32_t tag(std::uint32_t channel, std::uint32_t delta) { return word(0, channel, 10, delta); }
constexpr std::uint32_t overflow(std::uint32_t count) { return word(1, 0, 5, count); }
constexpr std::uint32_t base_low(std::uint64_t base) { return word(1, 1, 5, base & 0x1FFFFFF); }
constexpr std::uint32_t base_high(std::uint64_t base) { return word(1, 2, 5, static_cast<std::uint32_t>(base >> 25)); }
constexpr std::uint32_t kSync = 0xEB5A55AA;

std::vector<std::uint8_t> bytes(std::initializer_list<std::uint32_t> words) {
  std::vector<std::uint8_t> out;
  for (std::uint32_t w : words) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<std::uint8_t>(w >> shift));
  }
  return out;
}

std::vector<std::uint8_t> operator+(std::vector<std::uint8_t> a, const std::vector<std::uint8_t>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

StreamDecoder make_decoder() {
  StreamFileHeader header;
  header.stream_format = StreamFormat::delta32;
  return StreamDecoder(header);
}

using Tags = std::vector<TimeTag>;
MATCHER_P2(IsTag, channel, time, "") {
  return arg.channel == static_cast<std::uint8_t>(channel) && arg.time == static_cast<std::int64_t>(time);
}
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Delta32Decoder, SkipsGarbageDecodesBaseDeltasAndOverflows) {
  StreamDecoder decoder = make_decoder();
  const auto stream = std::vector<std::uint8_t>{0x01, 0xEB, 0x5A, 0x55, 0x00, 0xAA} +
                      bytes({kSync, base_low(1000), base_high(1000), tag(0, 500), tag(0, 250),
                             tag(1, 10),                      // never seen, no base: nothing
                             overflow(2), overflow(1), tag(0, 5)});
  EXPECT_THAT(decoder.feed(stream),
              ElementsAre(IsTag(0, 1500), IsTag(0, 1750), IsTag(0, 1750 + (3LL << 25) + 5)));
  EXPECT_TRUE(decoder.locked());
  EXPECT_EQ(decoder.buffered_bytes(), 0u);

  // A second input gets its time from the next base; the first keeps counting.
  EXPECT_THAT(decoder.feed(bytes({kSync, kSync, base_low(0x1FFFFFFFFFF), base_high(0x1FFFFFFFFFF), tag(2, 1)})),
              ElementsAre(IsTag(2, 0x20000000000)));
}

TEST(Delta32Decoder, SyncWordCutAcrossChunksAndWordsCutAnywhere) {
  StreamDecoder decoder = make_decoder();
  EXPECT_THAT(decoder.feed(std::vector<std::uint8_t>{0x10, 0x20, 0x30, 0xEB, 0x5A}), IsEmpty());
  EXPECT_EQ(decoder.buffered_bytes(), 3u);  // at most 3 bytes wait for the rest of a sync word
  EXPECT_FALSE(decoder.locked());
  const auto rest = std::vector<std::uint8_t>{0x55, 0xAA} + bytes({base_low(7), base_high(7), tag(3, 3), tag(3, 4)});
  Tags got;
  for (std::uint8_t b : rest) decoder.feed(std::vector<std::uint8_t>{b}, got);
  EXPECT_THAT(got, ElementsAre(IsTag(3, 10), IsTag(3, 14)));
}

TEST(Delta32Decoder, WordsOutOfPlaceLoseTheLockButKeepInputTimes) {
  StreamDecoder decoder = make_decoder();
  const auto start = bytes({kSync, base_low(100), base_high(100), tag(0, 0), tag(1, 0)});
  ASSERT_THAT(decoder.feed(start), ElementsAre(IsTag(0, 100)));  // input 1 has neither base nor time

  // Each case: the offending words, then a word that would decode if the
  // lock had survived, then a fresh sync and base for input 0.
  const std::vector<std::vector<std::uint8_t>> breakers = {
      bytes({kSync, tag(0, 1)}),                           // tag where a base must follow the sync
      bytes({kSync, base_low(5), tag(0, 1)}),              // tag where the base high part must follow
      bytes({kSync, base_low(5), base_high(0x10000ULL << 25)}),  // base high out of range
      bytes({kSync, base_low(200), base_high(200), overflow(1)}),  // overflow with a base pending
      bytes({base_low(3)}),                                // base word while running
      bytes({overflow(0x10000)}),                          // overflow count out of range
      bytes({word(1, 0, 6, 0)}),                           // unknown type
      bytes({word(1, 0, 10, 0)}),                          // tag type with the flag set
  };
  std::int64_t expected = 100;
  for (const auto& breaker : breakers) {
    SCOPED_TRACE(::testing::PrintToString(breaker));
    EXPECT_THAT(decoder.feed(breaker + bytes({tag(0, 1)})), IsEmpty());
    EXPECT_FALSE(decoder.locked());
    expected += 1000;
    EXPECT_THAT(decoder.feed(bytes({kSync, base_low(static_cast<std::uint64_t>(expected)),
                                    base_high(static_cast<std::uint64_t>(expected)), tag(0, 0), tag(0, 1)})),
                ElementsAre(IsTag(0, expected), IsTag(0, expected + 1)));
    expected += 1;
  }
}

TEST(Delta32Decoder, SyncWordsInsideTheBlockAndWhileRunning) {
  StreamDecoder decoder = make_decoder();
  // A second sync right after the first keeps waiting for the base and
  // clears the overflow count; a sync between base parts starts over.
  auto stream = bytes({kSync, kSync, base_low(50), kSync, base_low(60), base_high(60), tag(0, 1)});
  // A sync-kind word with another payload is ignored while running.
  stream = stream + bytes({word(1, 3, 5, 0x1234), tag(0, 1)});
  // A real sync while running restarts the block; overflow counts before it are forgotten.
  stream = stream + bytes({overflow(5), kSync, base_low(70), base_high(70), tag(0, 2)});
  EXPECT_THAT(decoder.feed(stream), ElementsAre(IsTag(0, 61), IsTag(0, 62), IsTag(0, 72)));
  EXPECT_TRUE(decoder.locked());
}

TEST(Delta32Decoder, BasePlacedNextToTheInputsPreviousTime) {
  StreamDecoder decoder = make_decoder();
  const std::uint64_t near_top = (1ULL << 41) - 1000;
  ASSERT_THAT(decoder.feed(bytes({kSync, base_low(near_top), base_high(near_top), tag(0, 0)})),
              ElementsAre(IsTag(0, static_cast<std::int64_t>(near_top))));
  // The base's 41 bits wrapped past the previous time: it lands in the next 2^41 span.
  EXPECT_THAT(decoder.feed(bytes({kSync, base_low(500), base_high(500), tag(0, 7)})),
              ElementsAre(IsTag(0, (1LL << 41) + 507)));
  // A base that would put the tag at or before the input's previous time
  // breaks the lock and gives no tag; the next block recovers.
  EXPECT_THAT(decoder.feed(bytes({kSync, base_low(100), base_high(100), tag(0, 407), tag(0, 1)})), IsEmpty());
  EXPECT_FALSE(decoder.locked());
  EXPECT_THAT(decoder.feed(bytes({kSync, base_low(100), base_high(100), tag(0, 408)})),
              ElementsAre(IsTag(0, (1LL << 41) + 508)));
  // A base more than the wrap correction ahead is the counter wrap showing
  // through: the correction comes off.
  const std::uint64_t ahead = 508 + 0xFB00000000ULL + 4000;
  EXPECT_THAT(decoder.feed(bytes({kSync, base_low(ahead), base_high(ahead), tag(0, 0)})),
              ElementsAre(IsTag(0, (1LL << 41) + 508 + 4000)));
}

TEST(Delta32Decoder, LongDeltasFollowTheWrapReductionRule) {
  StreamDecoder decoder = make_decoder();
  ASSERT_EQ(decoder.feed(bytes({kSync, base_low(0), base_high(0), tag(0, 0)})).size(), 1u);
  // 0x7D80 overflows of 2^25 ps are exactly the correction 0xFB00000000: a
  // delta just above it is the counter wrap showing through.
  EXPECT_THAT(decoder.feed(bytes({overflow(0x7D80), tag(0, 9)})), ElementsAre(IsTag(0, 9)));
  // Reduced by more than 10 s without crossing the wrap: the long gap is real.
  const std::int64_t long_gap = 0xFB00000000LL + (1LL << 34);
  EXPECT_THAT(decoder.feed(bytes({overflow(0x7D80 + 0x200), tag(0, 0)})), ElementsAre(IsTag(0, 9 + long_gap)));
  // Exactly the correction: believed as it is.
  EXPECT_THAT(decoder.feed(bytes({overflow(0x7D80), tag(0, 0)})),
              ElementsAre(IsTag(0, 9 + long_gap + 0xFB00000000LL)));
}

TEST(WrapReduction, RuleAtEveryBoundary) {
  using detail::reduce_wrapped_delta;
  constexpr std::uint64_t c = 0xFB00000000ULL;
  constexpr std::uint64_t slack = 10'000'000'000ULL;
  constexpr auto wrap = static_cast<std::uint64_t>(kCounterWrapPs);
  EXPECT_EQ(reduce_wrapped_delta(c, c, 0), c);                  // not above the correction
  EXPECT_EQ(reduce_wrapped_delta(c + 1, c, 0), 1u);
  EXPECT_EQ(reduce_wrapped_delta(c + slack, c, 0), slack);      // reduced up to the slack: taken
  // Above the slack the reduction needs the counter phase to cross the wrap.
  const std::uint64_t e = slack + 1;
  EXPECT_EQ(reduce_wrapped_delta(c + e, c, 0), c + e);
  EXPECT_EQ(reduce_wrapped_delta(c + e, c, static_cast<std::int64_t>(wrap - 1 - e)), c + e);
  EXPECT_EQ(reduce_wrapped_delta(c + e, c, static_cast<std::int64_t>(wrap - e)), e);
  EXPECT_EQ(reduce_wrapped_delta(c + e, c, static_cast<std::int64_t>(2 * wrap - e)), e);  // phase, not time
  EXPECT_EQ(reduce_wrapped_delta(c + e, c, -5), c + e);         // negative times count as 0
  EXPECT_EQ(reduce_wrapped_delta(c + e, 0, static_cast<std::int64_t>(wrap - 1)), c + e);  // no correction
  EXPECT_EQ(detail::wrap_correction_for(1ULL << 41), c);
  EXPECT_EQ(detail::wrap_correction_for(1ULL << 44), 0x2FB00000000ULL);
}

}  // namespace
}  // namespace zolt::timing
