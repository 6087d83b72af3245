#include <gtest/gtest.h>
#include <gmock/gmock.h>

#include <cstdint>
#include <initializer_list>
#include <utility>
#include <vector>

#include "api/error.hpp"
#include "calibration/fine_lut.hpp"
#include "stream/raw64_look_ahead.hpp"
#include "stream/stream_decoder.hpp"

namespace zolt::timing {
namespace {

constexpr std::uint64_t kWrap = 0xD0500000000ULL;

// raw64 words from the wire layout. Tag words: channel in 62..61, time in
// 43..0. Calibration words: channel, marker 0xA5C3 in 60..45, coarse count
// in 44..13, fine code in 12..0.
constexpr std::uint64_t tag_word(std::uint64_t ch, std::uint64_t ps) { return (ch << 61) | ps; }
constexpr std::uint64_t cal_word(std::uint64_t ch, std::uint64_t coarse, std::uint64_t fine) {
  return (ch << 61) | (0xA5C3ULL << 45) | (coarse << 13) | fine;
}

std::vector<std::uint8_t> bytes(std::initializer_list<std::uint64_t> words) {
  std::vector<std::uint8_t> out;
  for (std::uint64_t w : words) {
    for (int shift = 56; shift >= 0; shift -= 8) out.push_back(static_cast<std::uint8_t>(w >> shift));
  }
  return out;
}

StreamFileHeader raw64_header(const char* tag_format, TimestampMode mode = TimestampMode::external) {
  StreamFileHeader header;
  header.stream_format = StreamFormat::raw64;
  header.raw64_tag_format = tag_format;
  header.mode = mode;
  return header;
}

MATCHER_P2(IsTag, channel, time, "") {
  return arg.channel == static_cast<std::uint8_t>(channel) && arg.time == static_cast<std::int64_t>(time);
}
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Raw64Decoder, TagWordsUnwrapPerInputAtHalfTheWrap) {
  StreamDecoder decoder(raw64_header("ps"));
  const auto stream = bytes({
      tag_word(0, kWrap - 1000), tag_word(0, 500),            // wrapped: epoch grows
      tag_word(1, 100),                                        // input 1 keeps its own epoch
      tag_word(2, 0x68280000000), tag_word(2, 0),              // back by exactly half: no wrap
      tag_word(3, 0x68280000005), tag_word(3, 4),              // back by more than half: wrap
      tag_word(1, 0xFFFFFFFFFFF),                              // beyond the wrap: taken modulo it
  });
  EXPECT_THAT(decoder.feed(stream),
              ElementsAre(IsTag(0, kWrap - 1000), IsTag(0, kWrap + 500), IsTag(1, 100), IsTag(2, 0x68280000000),
                          IsTag(2, 0), IsTag(3, 0x68280000005), IsTag(3, kWrap + 4),
                          IsTag(1, 0xFFFFFFFFFFF - kWrap)));
}

TEST(Raw64Decoder, WordsCutAcrossChunksAndStrayBytesSkipped) {
  StreamDecoder decoder(raw64_header("ps"));
  auto stream = bytes({tag_word(1, 77)});
  stream.insert(stream.begin(), {0x80, 0xFF, 0x10});  // 0x10...: bits 60..44 set, not a tag either
  // Eight bytes 0xFF: no window through them looks like a tag.
  const auto more = bytes({tag_word(2, 88), 0xFFFFFFFFFFFFFFFFULL, tag_word(3, 99)});
  stream.insert(stream.end(), more.begin(), more.end());
  std::vector<TimeTag> got;
  decoder.feed(std::span(stream).first(5), got);
  EXPECT_THAT(got, IsEmpty());
  EXPECT_EQ(decoder.buffered_bytes(), 5u);
  decoder.feed(std::span(stream).subspan(5, 9), got);
  EXPECT_LT(decoder.buffered_bytes(), 8u);
  decoder.feed(std::span(stream).subspan(14), got);
  EXPECT_THAT(got, ElementsAre(IsTag(1, 77), IsTag(2, 88), IsTag(3, 99)));
}

TEST(Raw64Decoder, CalibrationWordsWithDefaultAndLoadedTables) {
  StreamDecoder decoder(raw64_header("raw_cf"));
  EXPECT_THAT(decoder.feed(bytes({cal_word(0, 10, 0), cal_word(0, 10, 1), cal_word(0, 10, 2), cal_word(0, 11, 181),
                                  cal_word(0, 12, 8191), tag_word(0, 5)})),  // a tag word is not a calibration word
              ElementsAre(IsTag(0, 33330), IsTag(0, 33330 - 19), IsTag(0, 33330 - 37), IsTag(0, 36663 - 3332),
                          IsTag(0, 39996 - 3332)));
  // The 32-bit coarse counter wraps when the count drops by at least 2^31 + 1.
  EXPECT_THAT(decoder.feed(bytes({cal_word(1, 0xFFFFFFF0, 0), cal_word(1, 5, 0), cal_word(2, 0x80000000, 0),
                                  cal_word(2, 0, 0), cal_word(3, 0x80000001, 0), cal_word(3, 0, 0)})),
              ElementsAre(IsTag(1, 0xFFFFFFF0LL * 3333), IsTag(1, ((1LL << 32) + 5) * 3333),
                          IsTag(2, 0x80000000LL * 3333), IsTag(2, 0), IsTag(3, 0x80000001LL * 3333),
                          IsTag(3, (1LL << 32) * 3333)));
  decoder.set_fine_lut(1, FineLut::identity(100));  // caps at 99 ps
  EXPECT_THAT(decoder.feed(bytes({cal_word(1, 6, 100), cal_word(0, 13, 100)})),
              ElementsAre(IsTag(1, ((1LL << 32) + 6) * 3333 - 99), IsTag(0, 13 * 3333 - 1850)));
  EXPECT_THROW(decoder.set_fine_lut(4, FineLut::identity(3333)), Error);
}

TEST(Raw64Decoder, WordKindFollowsTagFormatAndMode) {
  const auto cal = bytes({cal_word(0, 10, 0)});
  const auto tag = bytes({tag_word(1, 5)});
  const auto decode = [](const char* format, TimestampMode mode, const std::vector<std::uint8_t>& words) {
    return StreamDecoder(raw64_header(format, mode)).feed(words);
  };
  for (auto [format, mode] : {std::pair{"raw_cf", TimestampMode::external}, std::pair{"", TimestampMode::internal}}) {
    EXPECT_THAT(decode(format, mode, cal), ElementsAre(IsTag(0, 33330)));
    EXPECT_THAT(decode(format, mode, tag), IsEmpty());
  }
  for (auto [format, mode] : {std::pair{"ps", TimestampMode::internal}, std::pair{"", TimestampMode::external}}) {
    EXPECT_THAT(decode(format, mode, cal), IsEmpty());
    EXPECT_THAT(decode(format, mode, tag), ElementsAre(IsTag(1, 5)));
  }

  StreamFileHeader bad = raw64_header("ps");
  bad.stream_format = static_cast<StreamFormat>(7);
  try {
    StreamDecoder decoder(bad);
    FAIL() << "unknown format accepted";
  } catch (const Error& error) {
    EXPECT_EQ(error.status(), TT_ERR_INVALID_ARGUMENT);
    EXPECT_STREQ(error.what(), "StreamDecoder: unknown stream format");
  }
}

TEST(FineLut, IdentityTable) {
  const FineLut lut = FineLut::identity(3333);
  ASSERT_EQ(lut.size(), 8192u);
  EXPECT_EQ(lut[0], 0);
  EXPECT_EQ(lut[1], 19);
  EXPECT_EQ(lut[2], 37);
  EXPECT_EQ(lut[180], 3330);
  EXPECT_EQ(lut[181], 3332);
  for (std::size_t c = 182; c < 8192; ++c) ASSERT_EQ(lut[c], 3332) << c;
  const FineLut degenerate = FineLut::identity(0);  // period at least 1: everything 0
  for (std::size_t c = 0; c < 8192; ++c) ASSERT_EQ(degenerate[c], 0) << c;
}

// Feeds the look-ahead buffer as a link would.
void put(Raw64LookAhead& reader, const std::vector<std::uint8_t>& data) {
  ASSERT_LE(data.size(), reader.space());
  std::copy(data.begin(), data.end(), reader.write_position());
  reader.commit(data.size());
}

TEST(Raw64LookAhead, FindsKeepsAndLosesAlignment) {
  Raw64LookAhead reader;
  tt_raw64_tag tag{};
  auto data = bytes({tag_word(2, 1234), tag_word(1, 5)});
  data.insert(data.begin(), {0x81, 0x82, 0x83});
  put(reader, std::vector<std::uint8_t>(data.begin(), data.begin() + 15));
  EXPECT_FALSE(reader.take(tag));  // 15 bytes: too few to judge alignment
  put(reader, std::vector<std::uint8_t>(data.begin() + 15, data.end()));
  ASSERT_TRUE(reader.take(tag));  // offset 3: bytes 3 and 11 both have bit 7 clear
  EXPECT_EQ(tag.channel, 2);
  EXPECT_EQ(tag.raw, tag_word(2, 1234));
  EXPECT_EQ(tag.coarse, 0u);
  EXPECT_EQ(tag.fine, 0u);
  ASSERT_TRUE(reader.take(tag));  // aligned: one word is enough
  EXPECT_EQ(tag.raw, tag_word(1, 5));
  EXPECT_FALSE(reader.take(tag));

  // A stray byte with bit 7 set loses the alignment; the next pair of words
  // finds it again, one byte on.
  auto shifted = bytes({tag_word(3, 1), tag_word(3, 2)});
  shifted.insert(shifted.begin(), 0x80);
  put(reader, shifted);
  ASSERT_TRUE(reader.take(tag));
  EXPECT_EQ(tag.raw, tag_word(3, 1));

  // Nothing alignable: once the buffer is full only the last 16 bytes stay.
  Raw64LookAhead junk;
  put(junk, std::vector<std::uint8_t>(Raw64LookAhead::kCapacity, 0xFF));
  EXPECT_FALSE(junk.take(tag));
  EXPECT_EQ(junk.buffered(), 16u);
  EXPECT_FALSE(junk.aligned());
}

TEST(Raw64LookAhead, CalibrationWordsAndPolledReads) {
  Raw64LookAhead reader(true);
  // Three stray bytes before the first word: calibration words are found by
  // their marker.
  auto data = bytes({cal_word(3, 0xABCDEF01, 0x1ABC), cal_word(1, 7, 3)});
  data.insert(data.begin(), {0x00, 0x00, 0x00});
  std::size_t at = 0;
  // The link hands out 3 bytes per poll.
  const auto read_some = [&](std::uint8_t* dest, std::size_t capacity) {
    const std::size_t n = std::min({capacity, std::size_t{3}, data.size() - at});
    std::copy_n(data.begin() + static_cast<std::ptrdiff_t>(at), n, dest);
    at += n;
    return n;
  };
  tt_raw64_tag tag{};
  ASSERT_TRUE(reader.read(read_some, 1000, tag));
  EXPECT_EQ(tag.channel, 3);
  EXPECT_EQ(tag.coarse, 0xABCDEF01u);
  EXPECT_EQ(tag.fine, 0x1ABC);
  ASSERT_TRUE(reader.read(read_some, 1000, tag));
  EXPECT_EQ(tag.coarse, 7u);
  EXPECT_EQ(tag.fine, 3);
  const std::int64_t before = monotonic_ms();
  EXPECT_FALSE(reader.read(read_some, 20, tag));  // nothing more: times out
  EXPECT_GE(monotonic_ms() - before, 20);

  reader.reset(false);
  EXPECT_EQ(reader.buffered(), 0u);
}

}  // namespace
}  // namespace zolt::timing
