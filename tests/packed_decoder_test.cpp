#include <gtest/gtest.h>
#include <gmock/gmock.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <bit>
#include <memory>
#include <utility>
#include <vector>

#include "stream/stream_decoder.hpp"

namespace zolt::timing {
namespace {

// Packed records written bit by bit from the wire layout: 2-bit input,
// overflow flag, 16-bit delta in 8 ps quanta; 19 bits each, most significant
// bit first, straddling bytes.
class Records {
 public:
  Records& tag(unsigned ch, std::uint64_t delta) { return put(ch, 0, delta); }
  Records& ovf(unsigned ch, std::uint64_t delta) { return put(ch, 1, delta); }
  // Sync marker and three 16-bit chunks of the time in quanta, low chunk first.
  Records& sync(unsigned ch, std::uint64_t quanta) {
    put(ch, 1, 0xFFFF);
    for (int i = 0; i < 3; ++i) put(ch, 0, (quanta >> (16 * i)) & 0xFFFF);
    return *this;
  }
  // Overflow records adding up to `units` of 2^16 quanta.
  Records& ovf_total(unsigned ch, std::uint64_t units) {
    for (; units > 0xFFFE; units -= 0xFFFE) ovf(ch, 0xFFFE);
    if (units > 0) ovf(ch, units);
    return *this;
  }
  std::size_t count() const { return records_; }
  std::size_t bits() const { return bits_.size(); }
  std::vector<std::uint8_t> bytes() const {
    std::vector<std::uint8_t> out((bits_.size() + 7) / 8, 0);
    for (std::size_t i = 0; i < bits_.size(); ++i) {
      if (bits_[i]) out[i / 8] |= static_cast<std::uint8_t>(0x80 >> (i % 8));
    }
    return out;
  }

 private:
  Records& put(unsigned ch, unsigned overflow, std::uint64_t delta) {
    const std::uint64_t record = (static_cast<std::uint64_t>(ch) << 17) | (overflow << 16) | delta;
    for (int bit = 18; bit >= 0; --bit) bits_.push_back(((record >> bit) & 1U) != 0);
    ++records_;
    return *this;
  }
  std::vector<bool> bits_;
  std::size_t records_ = 0;

 public:
  void raw_bit(unsigned bit) { bits_.push_back(bit != 0); }
};

// Feeds the stream in two calls: the first ends with the record that ends
// at bit `mark` (plus a few bits of the next, not enough for a record).
std::pair<std::vector<TimeTag>, std::vector<TimeTag>> feed_split(StreamDecoder& decoder, const Records& records,
                                                                 std::size_t mark) {
  const auto stream = records.bytes();
  const std::size_t cut = (mark + 7) / 8;
  auto first = decoder.feed(std::span(stream).first(cut));
  auto second = decoder.feed(std::span(stream).subspan(cut));
  return {first, second};
}

StreamFileHeader packed_header(std::uint8_t mask, TimestampMode mode) {
  StreamFileHeader header;
  header.stream_format = StreamFormat::packed_delta;
  header.channel_mask = mask;
  header.mode = mode;
  return header;
}

struct Logged {
  std::vector<std::string> lines;
  PackedDebugLog::Sink sink() {
    return [this](std::string_view line) { lines.emplace_back(line); };
  }
};

using Tags = std::vector<TimeTag>;
MATCHER_P2(IsTag, channel, time, "") {
  return arg.channel == static_cast<std::uint8_t>(channel) && arg.time == static_cast<std::int64_t>(time);
}
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// Runs first in this program: the switch is read once per process.
TEST(PackedDebugLog, EnvironmentSwitchWritesPrefixedLinesToStderr) {
  ASSERT_EQ(setenv("ZOLT_PACKED_DEBUG", "", 1), 0);  // set, even empty, means on
  StreamDecoder decoder(packed_header(0x1, TimestampMode::external));
  ::testing::internal::CaptureStderr();
  decoder.feed(Records().sync(0, 1000).tag(0, 1).tag(2, 0).bytes());
  const std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_THAT(err, HasSubstr("packed-decoder: locked bits=1 drop_bytes=0 bit_offset=0 raw_bytes=15\n"));
  EXPECT_THAT(err, HasSubstr("packed-decoder: drop inactive ch=2 active_mask=0x1 record=5 records=6\n"));
}

TEST(PackedDecoder, RecordsStraddlingBytesInAnyChunking) {
  Records r;
  r.sync(0, 1000).tag(0, 5).tag(0, 7).ovf(0, 2).tag(0, 1).sync(0, 2000).tag(0, 3).tag(0, 0xFFFF);
  const auto stream = r.bytes();
  const std::int64_t t1 = 8000 + 40, t2 = t1 + 56, t3 = t2 + ((2LL << 16) + 1) * 8;
  for (std::size_t chunk : {stream.size(), std::size_t{1}, std::size_t{2}, std::size_t{5}}) {
    SCOPED_TRACE(chunk);
    StreamDecoder decoder(packed_header(0x1, TimestampMode::external));
    Tags got;
    for (std::size_t at = 0; at < stream.size(); at += chunk) {
      decoder.feed(std::span(stream).subspan(at, std::min(chunk, stream.size() - at)), got);
    }
    // The sync at 2000 quanta is an earlier time than t3: the next tag is a
    // step backwards of more than 1 us, dropped; nothing follows it.
    EXPECT_THAT(got, ElementsAre(IsTag(0, t1), IsTag(0, t2), IsTag(0, t3)));
  }
}

TEST(PackedDecoder, SyncsRelativeToPreviousTimeAndDropReasons) {
  Logged log;
  StreamDecoder decoder(packed_header(0x3, TimestampMode::external), log.sink());
  Records r;
  r.sync(0, 1000000).tag(0, 0).sync(1, 1000).tag(1, 4).tag(0, 2).tag(1, 1);
  const std::size_t mark = r.bits();
  // Then a sync that puts input 1 exactly at its previous time: delta 0, dropped.
  r.tag(0, 1).sync(1, 1005).tag(1, 0).tag(0, 1);
  const auto [first, second] = feed_split(decoder, r, mark);
  EXPECT_THAT(first, ElementsAre(IsTag(0, 8000000), IsTag(1, 8032), IsTag(0, 8000016), IsTag(1, 8040)));
  EXPECT_EQ(log.lines.front(), "locked bits=3 drop_bytes=0 bit_offset=0 raw_bytes=" + std::to_string((mark + 7) / 8));
  EXPECT_THAT(second, ElementsAre(IsTag(0, 8000024)));
  EXPECT_EQ(log.lines.back(), "drop implausible sync delta ch=1 delta=0 next=8040 prev=8040 record=5");
  EXPECT_FALSE(decoder.locked());
}

TEST(PackedDecoder, EveryDropReasonNamesItsRecord) {
  // Input 0 at 8,000,000 ps, and a second active input at 4,000,000 ps.
  const auto prefix = [](std::uint8_t mask) {
    Records r;
    r.sync(0, 1000000).tag(0, 0);
    for (unsigned ch = 1; ch < 4; ++ch) {
      if ((mask >> ch) & 1U) r.sync(ch, 500000).tag(ch, 0);
    }
    return r;
  };
  struct Case {
    const char* name;
    Records records;
    std::uint8_t mask;
    TimestampMode mode;
    std::string line;
    std::size_t tags_before;
  };
  std::vector<Case> cases;
  cases.push_back({"nonmonotonic sync", Records().tag(0, 1).sync(0, 100).tag(0, 0), 0x1, TimestampMode::external,
                   "drop nonmonotonic sync ch=0 next=800 prev=8000008 record=5", 1});
  cases.push_back({"sync channel mismatch", Records().ovf(0, 0xFFFF).tag(0, 1).tag(1, 2), 0x3,
                   TimestampMode::external, "drop sync channel mismatch ch=1 expected=0 record=2 chunks_left=2", 0});
  cases.push_back({"overflow inside a sync", Records().ovf(0, 0xFFFF).tag(0, 1).ovf(0, 2), 0x1,
                   TimestampMode::external, "drop ovf in sync ch=0 record=2 chunks_left=2", 0});
  cases.push_back({"inactive input", Records().tag(0, 3).tag(3, 0), 0x5, TimestampMode::external,
                   "drop inactive ch=3 active_mask=0x5 record=1 records=2", 1});
  // 2,000,000 units of 2^16 quanta (31 overflow records): 1.05 s, above
  // the 1 s an internal clock allows.
  cases.push_back({"implausible delta", Records().ovf_total(0, 2000000).tag(0, 0), 0x1, TimestampMode::internal,
                   "drop implausible delta ch=0 delta=1048576000000 prev=8000000 record=31", 0});
  // A sync 2 s ahead: an implausible step for an internal clock.
  cases.push_back({"implausible sync delta", Records().sync(0, 250001000000).tag(0, 0), 0x1,
                   TimestampMode::internal,
                   "drop implausible sync delta ch=0 delta=2000000000000 next=2000008000000 prev=8000000 record=4",
                   0});
  for (auto& c : cases) {
    SCOPED_TRACE(c.name);
    Logged log;
    StreamDecoder decoder(packed_header(c.mask, c.mode), log.sink());
    Records all = prefix(c.mask);
    const std::size_t mark = all.bits();
    const auto bits = c.records.bytes();
    // Append the case's records bit for bit.
    for (std::size_t i = 0; i < c.records.bits(); ++i) all.raw_bit((bits[i / 8] >> (7 - i % 8)) & 1U);
    const auto [first, second] = feed_split(decoder, all, mark);
    EXPECT_EQ(first.size(), static_cast<std::size_t>(std::popcount(c.mask)));
    EXPECT_EQ(second.size(), c.tags_before);
    EXPECT_FALSE(decoder.locked());
    ASSERT_FALSE(log.lines.empty());
    EXPECT_EQ(log.lines.back(), c.line);
  }
}

TEST(PackedDecoder, DeltaArithmeticStepsBackWrapAndExternalLongGaps) {
  StreamDecoder decoder(packed_header(0x1, TimestampMode::external));
  std::int64_t t = 8000000;
  Records r;
  r.sync(0, 1000000).tag(0, 0);
  // 2^41 - 100 quanta: 800 ps below the modulus 2^44 ps, a small step back.
  r.ovf_total(0, (1ULL << 25) - 1).tag(0, 0x10000 - 100);
  // The wrap correction 0x2FB00000000 ps plus 5000 ps: the counter wrapped.
  const std::uint64_t wrapped = (0x2FB00000000ULL + 5000) / 8;
  r.ovf_total(0, wrapped >> 16).tag(0, wrapped & 0xFFFF);
  // 1.05 s without a wrap is believable with an external clock.
  r.ovf_total(0, 2000000).tag(0, 0);
  EXPECT_THAT(decoder.feed(r.bytes()),
              ElementsAre(IsTag(0, t), IsTag(0, t - 800), IsTag(0, t - 800 + 5000),
                          IsTag(0, t + 4200 + 1048576000000LL)));
}

TEST(PackedDecoder, UnalignableBytesAreKeptThenTrimmed) {
  Logged log;
  StreamDecoder decoder(packed_header(0xF, TimestampMode::external), log.sink());
  // All ones: nothing but sync markers that never complete.
  const std::vector<std::uint8_t> ones(4000, 0xFF);
  EXPECT_THAT(decoder.feed(ones), IsEmpty());
  EXPECT_EQ(decoder.buffered_bytes(), 4000u);
  EXPECT_THAT(log.lines, IsEmpty());
  EXPECT_THAT(decoder.feed(std::vector<std::uint8_t>(100, 0xFF)), IsEmpty());
  EXPECT_EQ(decoder.buffered_bytes(), 4100u);
  EXPECT_THAT(log.lines, ElementsAre("no alignment bits=15 width=19 raw_bytes=4100"));
  decoder.feed(std::vector<std::uint8_t>(65536 - 4100, 0xFF));
  EXPECT_EQ(decoder.buffered_bytes(), 65536u);  // not more than 64 KiB yet
  decoder.feed(std::vector<std::uint8_t>(1, 0xFF));
  EXPECT_EQ(decoder.buffered_bytes(), 4096u);
}

TEST(PackedDecoder, AlignmentFoundInsideTheFirstBytes) {
  Logged log;
  StreamDecoder decoder(packed_header(0x3, TimestampMode::external), log.sink());
  // Five stray bits before the first record.
  Records r;
  r.sync(0, 10).tag(0, 1).sync(1, 20).tag(1, 1).tag(0, 1).tag(1, 1);
  const auto aligned = r.bytes();
  std::vector<std::uint8_t> shifted(aligned.size() + 1, 0);
  for (std::size_t i = 0; i < aligned.size(); ++i) {
    shifted[i] |= static_cast<std::uint8_t>(aligned[i] >> 5);
    shifted[i + 1] |= static_cast<std::uint8_t>(aligned[i] << 3);
  }
  shifted[0] |= 0xA8;  // the stray bits: 10101
  EXPECT_THAT(decoder.feed(shifted), ElementsAre(IsTag(0, 88), IsTag(1, 168), IsTag(0, 96), IsTag(1, 176)));
  EXPECT_EQ(log.lines.front(), "locked bits=3 drop_bytes=0 bit_offset=5 raw_bytes=" + std::to_string(shifted.size()));
}

TEST(PackedDecoder, InternalClockNeedsEveryInputAndBalance) {
  Logged log;
  StreamDecoder decoder(packed_header(0x3, TimestampMode::internal), log.sink());
  // Input 1 silent: internal mode requires both inputs synchronised.
  Records lonely;
  lonely.sync(0, 10);
  for (int i = 0; i < 50; ++i) lonely.tag(0, 3);
  EXPECT_THAT(decoder.feed(lonely.bytes()), IsEmpty());
  EXPECT_EQ(decoder.buffered_bytes(), lonely.bytes().size());
  EXPECT_FALSE(decoder.locked());
  EXPECT_THAT(log.lines.front(), HasSubstr("reject internal alignment drop_bytes=0 bit_offset=0 synced=1/2 min=0 max=50 total=50"));

  // Both inputs ticking: locks and decodes. Then 5,000 tags on input 0 and
  // none on input 1 in one call: a false lock by the internal clock's
  // standard; nothing comes out of that call.
  Records r;
  r.sync(0, 10).tag(0, 3).sync(1, 10).tag(1, 5);
  for (int i = 0; i < 9; ++i) r.tag(0, 3).tag(1, 5);
  const std::size_t mark = r.bits();
  for (int i = 0; i < 5000; ++i) r.tag(0, 3);
  StreamDecoder balanced(packed_header(0x3, TimestampMode::internal), log.sink());
  log.lines.clear();
  const auto [first, second] = feed_split(balanced, r, mark);
  EXPECT_EQ(first.size(), 20u);
  EXPECT_THAT(second, IsEmpty());
  EXPECT_FALSE(balanced.locked());
  EXPECT_EQ(log.lines.back(), "drop internal imbalanced lock min=0 max=5000 total=5000 records=5000");

  // The same in external mode is fine.
  StreamDecoder external(packed_header(0x3, TimestampMode::external));
  EXPECT_EQ(feed_split(external, r, mark).second.size(), 5000u);
}

TEST(PackedDebugLog, AtMostTwoHundredLinesPerDecoder) {
  Logged log;
  StreamDecoder decoder(packed_header(0x3, TimestampMode::internal), log.sink());
  // No syncs at all: every candidate is rejected and logged at each call.
  for (int i = 0; i < 30; ++i) decoder.feed(std::vector<std::uint8_t>(64, 0x00));
  EXPECT_EQ(log.lines.size(), 200u);
}

TEST(PackedDecoder, HeaderDefaultsAndUnusableWidth) {
  StreamFileHeader header = packed_header(0, TimestampMode::external);  // mask 0: all four
  header.delta_bits = 0;   // 16
  header.quantum_ps = 0;   // 8
  StreamDecoder decoder(header);
  EXPECT_THAT(decoder.feed(Records().sync(3, 10).tag(3, 1).sync(2, 10).tag(2, 2).bytes()),
              ElementsAre(IsTag(3, 88), IsTag(2, 96)));

  header.delta_bits = 40;
  StreamDecoder unusable(header);
  EXPECT_THAT(unusable.feed(Records().sync(3, 10).tag(3, 1).bytes()), IsEmpty());
  EXPECT_EQ(unusable.buffered_bytes(), 0u);  // nothing is hoarded either
}

}  // namespace
}  // namespace zolt::timing
