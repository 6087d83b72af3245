// Tags decoded out of recorded stream files, through the exported interface,
// for every wire format: streams from the virtual instrument's encoders,
// written with the stream file writer, read back in small and large pieces.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "temp_dir.hpp"
#include "zolt_sim/encoders.hpp"
#include "zolt_timing.h"

namespace {

using zolt::timing::testing::TempDir;

struct Recording {
  tt_stream_file_options options{};
  std::vector<std::uint8_t> payload;
  std::vector<tt_tag> tags;  // what the decoder must give back
};

// Four inputs, Poisson arrivals, enough bytes to span several 1 MiB blocks.
std::vector<zolt_sim::InputEvent> events() {
  std::mt19937_64 random(7);
  std::exponential_distribution<double> gap(10e6 / 1e12);
  std::uniform_int_distribution<int> input(0, 3);
  std::vector<zolt_sim::InputEvent> out;
  std::int64_t now = 1'000'000, last[4] = {-5000, -5000, -5000, -5000};
  while (out.size() < 300'000) {
    now += 1 + static_cast<std::int64_t>(gap(random));
    const auto ch = static_cast<std::uint8_t>(input(random));
    if (now - last[ch] < 2000) continue;
    last[ch] = now;
    out.push_back({ch, now});
  }
  return out;
}

Recording recording(tt_stream_format format, const char* raw64_tag_format) {
  Recording r;
  r.options.stream_format = static_cast<std::uint32_t>(format);
  r.options.mode = 1;
  r.options.stream_transport = 1;
  r.options.raw64_tag_format = raw64_tag_format;
  const auto all = events();
  zolt_sim::Raw64TagEncoder raw64;
  const zolt_sim::Raw64CalibrationEncoder calibration({zolt_sim::DelayLine(1), zolt_sim::DelayLine(2),
                                                       zolt_sim::DelayLine(3), zolt_sim::DelayLine(4)});
  zolt_sim::Delta32Encoder delta32;
  zolt_sim::PackedDeltaEncoder packed;
  for (const auto& e : all) {
    std::int64_t time = e.time_ps;
    if (format == TT_STREAM_FORMAT_PACKED_DELTA) {
      packed.encode(e, r.payload);
      time = time / 8 * 8;
    } else if (format == TT_STREAM_FORMAT_DELTA32) {
      delta32.encode(e, r.payload);
    } else if (std::string(raw64_tag_format) == "raw_cf") {
      calibration.encode(e, r.payload);
      const auto reading = calibration.read(e);
      time = static_cast<std::int64_t>(reading.coarse) * 3333 - std::min<std::int64_t>((37 * reading.fine + 1) / 2, 3332);
    } else {
      raw64.encode(e, r.payload);
    }
    r.tags.push_back(tt_tag{e.input, time});
  }
  packed.finish(r.payload);
  return r;
}

std::string write_file(const TempDir& dir, const Recording& r) {
  const std::string path = dir.file("capture.zt");
  tt_stream_file_writer* writer = nullptr;
  EXPECT_EQ(tt_stream_file_writer_open(&writer, path.c_str(), &r.options), TT_OK);
  size_t written = 0;
  EXPECT_EQ(tt_stream_file_writer_write(writer, r.payload.data(), r.payload.size(), &written), TT_OK);
  EXPECT_EQ(tt_stream_file_writer_close(writer), TT_OK);
  tt_stream_file_writer_free(writer);
  return path;
}

std::vector<tt_tag> read_all(tt_stream_file_reader* reader, size_t capacity) {
  std::vector<tt_tag> all, buffer(capacity);
  for (;;) {
    size_t count = 12345;
    EXPECT_EQ(tt_stream_file_reader_read_tags(reader, buffer.data(), capacity, &count), TT_OK)
        << tt_stream_file_reader_last_error(reader);
    if (count == 0) return all;
    EXPECT_LE(count, capacity);
    all.insert(all.end(), buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(count));
  }
}

void expect_same(const std::vector<tt_tag>& got, const std::vector<tt_tag>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < got.size(); ++i) {
    ASSERT_TRUE(got[i].channel == want[i].channel && got[i].time_ps == want[i].time_ps) << "tag " << i;
  }
}

TEST(StreamFileTags, EveryFormatReadSummarizedAndRewound) {
  const struct {
    tt_stream_format format;
    const char* tag_format;
  } cases[] = {{TT_STREAM_FORMAT_PACKED_DELTA, "ps"},
               {TT_STREAM_FORMAT_DELTA32, "ps"},
               {TT_STREAM_FORMAT_RAW64, "ps"},
               {TT_STREAM_FORMAT_RAW64, "raw_cf"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << "format " << c.format << " " << c.tag_format);
    TempDir dir;
    const Recording r = recording(c.format, c.tag_format);
    const std::string path = write_file(dir, r);
    tt_stream_file_reader* reader = nullptr;
    ASSERT_EQ(tt_stream_file_reader_open(&reader, path.c_str()), TT_OK);

    expect_same(read_all(reader, 1000), r.tags);
    size_t count = 7;
    tt_tag one{};
    EXPECT_EQ(tt_stream_file_reader_read_tags(reader, &one, 1, &count), TT_OK);  // the end stays the end
    EXPECT_EQ(count, 0u);

    tt_stream_tag_summary summary{};
    ASSERT_EQ(tt_stream_file_reader_summarize_tags(reader, &summary), TT_OK);
    EXPECT_EQ(summary.tags, r.tags.size());
    std::uint64_t per_input[4] = {};
    for (const auto& t : r.tags) ++per_input[t.channel];
    for (int ch = 0; ch < 4; ++ch) EXPECT_EQ(summary.input_tags[ch], per_input[ch]) << ch;
    EXPECT_EQ(summary.first_time_ps, r.tags.front().time_ps);
    EXPECT_EQ(summary.last_time_ps, r.tags.back().time_ps);
    EXPECT_EQ(summary.payload_bytes, r.payload.size());

    // Summarizing leaves the reader at the first tag; so does rewinding.
    ASSERT_EQ(tt_stream_file_reader_read_tags(reader, &one, 1, &count), TT_OK);
    EXPECT_EQ(count, 1u);
    EXPECT_EQ(one.time_ps, r.tags.front().time_ps);
    ASSERT_EQ(tt_stream_file_reader_rewind(reader), TT_OK);
    expect_same(read_all(reader, 1 << 20), r.tags);
    tt_stream_file_reader_free(reader);

    // The tag file reader takes any stream file and decodes it the same way.
    tt_tag_file_reader* tag_reader = nullptr;
    ASSERT_EQ(tt_tag_file_reader_open(&tag_reader, path.c_str()), TT_OK);
    std::vector<tt_tag> via_tag_reader(r.tags.size() + 1);
    size_t got = 0;
    ASSERT_EQ(tt_tag_file_reader_read(tag_reader, via_tag_reader.data(), via_tag_reader.size(), &got), TT_OK)
        << tt_tag_file_reader_last_error(tag_reader);
    via_tag_reader.resize(got);
    expect_same(via_tag_reader, r.tags);
    ASSERT_EQ(tt_tag_file_reader_seek_time(tag_reader, r.tags[1000].time_ps), TT_OK);
    ASSERT_EQ(tt_tag_file_reader_read(tag_reader, &one, 1, &count), TT_OK);
    EXPECT_EQ(one.time_ps, r.tags[1000].time_ps);
    tt_tag_file_reader_free(tag_reader);
  }
}

TEST(StreamFileTags, EmptyPayloadNullArgumentsAndClosedInput) {
  TempDir dir;
  Recording r;
  r.options.stream_format = TT_STREAM_FORMAT_PACKED_DELTA;
  const std::string path = write_file(dir, r);
  tt_stream_file_reader* reader = nullptr;
  ASSERT_EQ(tt_stream_file_reader_open(&reader, path.c_str()), TT_OK);
  tt_tag tag{};
  size_t count = 9;
  EXPECT_EQ(tt_stream_file_reader_read_tags(reader, &tag, 1, &count), TT_OK);
  EXPECT_EQ(count, 0u);
  tt_stream_tag_summary summary{};
  summary.tags = 99;
  summary.first_time_ps = 5;
  ASSERT_EQ(tt_stream_file_reader_summarize_tags(reader, &summary), TT_OK);
  EXPECT_EQ(summary.tags, 0u);
  EXPECT_EQ(summary.first_time_ps, 0);
  EXPECT_EQ(summary.last_time_ps, 0);
  EXPECT_EQ(summary.payload_bytes, 0u);

  count = 9;
  EXPECT_EQ(tt_stream_file_reader_read_tags(nullptr, &tag, 1, &count), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(tt_stream_file_reader_read_tags(reader, nullptr, 1, &count), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_stream_file_reader_read_tags(reader, &tag, 1, nullptr), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_stream_file_reader_summarize_tags(nullptr, &summary), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_stream_file_reader_summarize_tags(reader, nullptr), TT_ERR_INVALID_ARGUMENT);
  EXPECT_STREQ(tt_stream_file_reader_last_error(reader), "");
  tt_stream_file_reader_free(reader);
}

}  // namespace
