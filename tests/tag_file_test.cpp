#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "files/tag_file_part_path.hpp"
#include "files/tag_word.hpp"
#include "files/tag_word_run.hpp"
#include "temp_dir.hpp"
#include "zolt_timing.h"

// tt_tag is a C record in the global namespace; so are its test helpers.
bool operator==(const tt_tag& a, const tt_tag& b) { return a.channel == b.channel && a.time_ps == b.time_ps; }

std::ostream& operator<<(std::ostream& out, const tt_tag& tag) {
  return out << "{" << tag.channel << ", " << tag.time_ps << "}";
}

namespace zolt::timing {
namespace {

using testing::read_bytes;
using testing::TempDir;
using testing::write_bytes;

constexpr std::int64_t P = kCounterWrapPs;

tt_tag_file_writer* open_writer(const std::string& path, const tt_tag_file_writer_options* options = nullptr) {
  tt_tag_file_writer* writer = nullptr;
  EXPECT_EQ(tt_tag_file_writer_open_ex(&writer, path.c_str(), options), TT_OK);
  return writer;
}

void write_file(const std::string& path, const std::vector<tt_tag>& tags) {
  tt_tag_file_writer* writer = open_writer(path);
  size_t written = 0;
  EXPECT_EQ(tt_tag_file_writer_write(writer, tags.data(), tags.size(), &written), TT_OK);
  EXPECT_EQ(written, tags.size());
  EXPECT_EQ(tt_tag_file_writer_close(writer), TT_OK);
  tt_tag_file_writer_free(writer);
}

std::vector<tt_tag> read_all(tt_tag_file_reader* reader, std::size_t piece = 1000) {
  std::vector<tt_tag> all;
  std::vector<tt_tag> buffer(piece);
  for (;;) {
    size_t count = 0;
    EXPECT_EQ(tt_tag_file_reader_read(reader, buffer.data(), buffer.size(), &count), TT_OK);
    if (count == 0) return all;
    all.insert(all.end(), buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(count));
  }
}

std::vector<tt_tag> read_file(const std::string& path, std::size_t piece = 1000) {
  tt_tag_file_reader* reader = nullptr;
  EXPECT_EQ(tt_tag_file_reader_open(&reader, path.c_str()), TT_OK);
  std::vector<tt_tag> all = read_all(reader, piece);
  tt_tag_file_reader_free(reader);
  return all;
}

// Per input increasing times: mostly small steps, some close to half a wrap
// period, starting anywhere (negative too).
std::vector<tt_tag> random_tags(std::size_t count, std::uint32_t seed) {
  std::mt19937_64 random(seed);
  std::array<std::int64_t, 4> time{};
  for (auto& start : time) start = static_cast<std::int64_t>(random() % (8 * P)) - 4 * P;
  std::vector<tt_tag> tags(count);
  for (auto& tag : tags) {
    tag.channel = static_cast<std::uint32_t>(random() % 4);
    const bool big_step = random() % 50 == 0;
    time[tag.channel] += static_cast<std::int64_t>(random() % (big_step ? P / 2 : 1'000'000));
    tag.time_ps = time[tag.channel];
  }
  return tags;
}

// What reading gives back: each input's times shifted by the whole periods
// below its first tag.
std::vector<tt_tag> unwrapped(const std::vector<tt_tag>& tags) {
  std::array<std::int64_t, 4> base{};
  std::array<bool, 4> seen{};
  std::vector<tt_tag> result = tags;
  for (auto& tag : result) {
    if (!seen[tag.channel]) {
      base[tag.channel] = tag.time_ps - static_cast<std::int64_t>(detail::wrap_time_ps(tag.time_ps));
      seen[tag.channel] = true;
    }
    tag.time_ps -= base[tag.channel];
  }
  return result;
}

TEST(TagFilePartPath, NamingRule) {
  using detail::tag_file_part_path;
  EXPECT_EQ(tag_file_part_path("run.tags", 0), "run.tags");
  EXPECT_EQ(tag_file_part_path("run.tags", 1), "run_0001.tags");
  EXPECT_EQ(tag_file_part_path("run.tags", 2), "run_0002.tags");
  EXPECT_EQ(tag_file_part_path("run.tags", 9999), "run_9999.tags");
  EXPECT_EQ(tag_file_part_path("a.b", 12345), "a_12345.b");
  EXPECT_EQ(tag_file_part_path("dir.old/run", 1), "dir.old/run_0001");
  EXPECT_EQ(tag_file_part_path("dir.old\\run", 1), "dir.old\\run_0001");
  EXPECT_EQ(tag_file_part_path("/data/x.y.tags", 3), "/data/x.y_0003.tags");
  EXPECT_EQ(tag_file_part_path("run", 7), "run_0007");
  EXPECT_EQ(tag_file_part_path("run.", 7), "run_0007.");
  EXPECT_EQ(tag_file_part_path(".tags", 1), "_0001.tags");
}

TEST(TagWordEncoder, RemembersThePeriodYetMatchesPlainModuloEverywhere) {
  TagWordEncoder encoder;
  std::vector<std::int64_t> times = {0, 1, P - 1, P, P + 1, -1, -P, -P - 1, 2 * P - 1, INT64_MIN, INT64_MIN + 1,
                                     INT64_MAX, INT64_MAX - 1, -P + 1, 5, INT64_MIN, INT64_MAX, 0};
  std::mt19937_64 random(3);
  for (int i = 0; i < 20000; ++i) {
    const std::int64_t around = static_cast<std::int64_t>(random() % 8) * P - 4 * P;
    times.push_back(i % 3 == 0 ? static_cast<std::int64_t>(random()) : around + static_cast<std::int64_t>(random() % 2000) - 1000);
  }
  for (const std::int64_t time : times) {
    const std::int64_t expected = ((time % P) + P) % P;
    ASSERT_EQ(encoder.wrap_time_ps(time), static_cast<std::uint64_t>(expected)) << time;
    ASSERT_EQ(detail::wrap_time_ps(time), static_cast<std::uint64_t>(expected)) << time;
  }
  EXPECT_EQ(encoder.encode(3, -1), (std::uint64_t{3} << 61) | static_cast<std::uint64_t>(P - 1));
}

// Payload words as an instrument or another tool may write them: tags in
// time order with small steps, now and then a jump of up to half a period
// (so the counter wraps many times), stored times in [P, 2^44) here and
// there, an input silent for long stretches, stray bytes between words.
std::string random_payload(std::size_t words, std::uint32_t seed) {
  constexpr auto period = static_cast<std::uint64_t>(P);
  std::mt19937_64 random(seed);
  std::uint64_t time = random() % period;
  std::string bytes;
  for (std::size_t i = 0; i < words; ++i) {
    time = (time + (random() % 2000 == 0 ? random() % (period / 2) : random() % 2'000'000)) % period;
    std::uint64_t channel = random() % 4;
    if ((i / 5000) % 3 == 1 && channel == 3) channel = 0;
    const bool above_period = time < (std::uint64_t{1} << 44) - period && random() % 64 == 0;
    std::uint8_t word[8];
    detail::store_be64((channel << 61) | (above_period ? time + period : time), word);
    bytes.append(reinterpret_cast<const char*>(word), 8);
    if (random() % 3000 == 0) bytes.push_back(static_cast<char>(0x80 | random() % 128));
  }
  return bytes;
}

// The unwrap rule word by word: skip a byte where a word has reserved bits
// set; a fall by more than half a period adds a period to that input.
std::vector<tt_tag> reference_decode(const std::string& bytes) {
  std::array<std::uint64_t, 4> previous{};
  std::array<std::uint64_t, 4> offset{};
  std::vector<tt_tag> tags;
  for (std::size_t at = 0; at + 8 <= bytes.size();) {
    const std::uint64_t word = detail::load_be64(reinterpret_cast<const std::uint8_t*>(bytes.data()) + at);
    if ((word >> 63) || ((word >> 44) & 0x1ffff)) {
      ++at;
      continue;
    }
    at += 8;
    const std::uint64_t channel = word >> 61;
    const std::uint64_t time = (word & ((std::uint64_t{1} << 44) - 1)) % static_cast<std::uint64_t>(P);
    if (time + static_cast<std::uint64_t>(P) / 2 < previous[channel]) offset[channel] += static_cast<std::uint64_t>(P);
    previous[channel] = time;
    tags.push_back({static_cast<std::uint32_t>(channel), static_cast<std::int64_t>(time + offset[channel])});
  }
  return tags;
}

TEST(TagWordDecoder, MatchesTheWordByWordRuleInAnyChunking) {
  for (std::uint32_t seed = 1; seed <= 4; ++seed) {
    const std::string bytes = random_payload(60'000, seed);
    const std::vector<tt_tag> want = reference_decode(bytes);
    std::mt19937_64 random(seed);
    TagWordDecoder decoder;
    std::vector<tt_tag> got;
    std::string carry;
    for (std::size_t at = 0; at < bytes.size();) {
      const std::size_t chunk = std::min<std::size_t>(bytes.size() - at, 1 + random() % (seed * 5000));
      carry.append(bytes, at, chunk);
      at += chunk;
      for (std::size_t used = 0;;) {
        std::vector<tt_tag> out(1 + random() % 3000);
        std::size_t produced = 0;
        const std::size_t consumed = decoder.decode(reinterpret_cast<const std::uint8_t*>(carry.data()) + used,
                                                    carry.size() - used, out.data(), out.size(), produced);
        got.insert(got.end(), out.begin(), out.begin() + static_cast<std::ptrdiff_t>(produced));
        used += consumed;
        if (consumed == 0) {
          carry.erase(0, used);
          break;
        }
      }
    }
    ASSERT_EQ(got.size(), want.size()) << seed;
    EXPECT_TRUE(got == want) << seed;
  }
}

// The vector version of the inner loop against the portable one: any word
// (reserved bits, stored times at or above P), any length (tails of 1..3
// words), both tag types. Skipped where the processor has no vector version.
TEST(TagWordRun, VectorAndPortableVersionsAgree) {
  std::mt19937_64 random(5);
  const std::array<std::uint64_t, 4> offset{0, 3 * static_cast<std::uint64_t>(P), 7, UINT64_MAX - 5};
  for (std::size_t words : {0, 1, 3, 4, 5, 8, 31, 1024}) {
    std::vector<std::uint8_t> bytes(8 * words);
    for (std::size_t i = 0; i < words; ++i) {
      std::uint64_t word = random() & ((std::uint64_t{3} << 61) | ((std::uint64_t{1} << 44) - 1));
      if (random() % 16 == 0) word |= std::uint64_t{1} << (44 + random() % 20);  // reserved bits
      detail::store_be64(word, bytes.data() + 8 * i);
    }
    std::vector<tt_tag> portable(words), vector(words, tt_tag{9, 9});
    const detail::TagRunSummary want = detail::decode_tag_run_portable(bytes.data(), words, portable.data(), offset);
    detail::TagRunSummary got;
    if (!detail::decode_tag_run_vector(bytes.data(), words, vector.data(), offset, got)) GTEST_SKIP();
    EXPECT_EQ(got.any_bits, want.any_bits) << words;
    EXPECT_EQ(got.lowest, want.lowest) << words;
    EXPECT_EQ(got.highest, want.highest) << words;
    EXPECT_EQ(got.inputs_seen, want.inputs_seen) << words;
    EXPECT_TRUE(vector == portable) << words;

    std::vector<TimeTag> internal(words, TimeTag{9, 9});
    ASSERT_TRUE(detail::decode_tag_run_vector(bytes.data(), words, internal.data(), offset, got));
    for (std::size_t i = 0; i < words; ++i) {
      ASSERT_EQ(internal[i].channel, portable[i].channel) << i;
      ASSERT_EQ(internal[i].time, portable[i].time_ps) << i;
    }
  }
}

TEST(TagFile, WordsOnDiskAndRandomRoundTripWithUnwrap) {
  TempDir dir;
  const std::string path = dir.file("words.tags");
  write_file(path, {{0, -1}, {1, P}, {3, 5}, {2, 2 * P + 7}, {3, -P - 2}});
  const std::string bytes = read_bytes(path);
  const std::string payload = bytes.substr(bytes.size() - 5 * 8);
  const auto word = [&](int i) { return detail::load_be64(reinterpret_cast<const std::uint8_t*>(payload.data()) + 8 * i); };
  EXPECT_EQ(word(0), static_cast<std::uint64_t>(P - 1));
  EXPECT_EQ(word(1), std::uint64_t{1} << 61);
  EXPECT_EQ(word(2), (std::uint64_t{3} << 61) | 5);
  EXPECT_EQ(word(3), (std::uint64_t{2} << 61) | 7);
  EXPECT_EQ(word(4), (std::uint64_t{3} << 61) | static_cast<std::uint64_t>(P - 2));
  EXPECT_EQ(static_cast<unsigned char>(payload[0]), 0x00);  // most significant byte first
  EXPECT_EQ(static_cast<unsigned char>(payload[15 - 7]), 0x20);

  const std::vector<tt_tag> tags = random_tags(200'000, 11);
  write_file(path, tags);
  const std::vector<tt_tag> expected = unwrapped(tags);
  EXPECT_EQ(read_file(path, 777), expected);
  EXPECT_EQ(read_file(path, 1 << 20), expected);

  // Rewind starts the unwrapping afresh.
  tt_tag_file_reader* reader = nullptr;
  ASSERT_EQ(tt_tag_file_reader_open(&reader, path.c_str()), TT_OK);
  std::vector<tt_tag> first(5000);
  size_t count = 0;
  ASSERT_EQ(tt_tag_file_reader_read(reader, first.data(), first.size(), &count), TT_OK);
  ASSERT_EQ(tt_tag_file_reader_rewind(reader), TT_OK);
  EXPECT_EQ(read_all(reader), expected);
  EXPECT_EQ(tt_tag_file_reader_rewind(nullptr), TT_ERR_INVALID_ARGUMENT);
  tt_tag_file_reader_free(reader);
}

TEST(TagFile, HeaderIsAStreamFileHeaderWithIdentity) {
  TempDir dir;
  const std::string path = dir.file("id.tags");
  const std::string long_port(200, 'p');
  tt_tag_file_writer_options options{nullptr, "ZT4", "SN42", long_port.c_str()};
  tt_tag_file_writer* writer = open_writer(path, &options);
  tt_tag_file_writer_free(writer);

  tt_stream_file_reader* stream = nullptr;
  ASSERT_EQ(tt_stream_file_reader_open(&stream, path.c_str()), TT_OK);
  tt_stream_file_info stream_info;
  ASSERT_EQ(tt_stream_file_reader_info(stream, &stream_info), TT_OK);
  EXPECT_EQ(stream_info.stream_format, 0u);
  EXPECT_EQ(stream_info.mode, 1u);
  EXPECT_EQ(stream_info.stream_transport, 1u);
  EXPECT_EQ(stream_info.channel_mask, 15);
  EXPECT_EQ(stream_info.delta_bits, 16);
  EXPECT_EQ(stream_info.quantum_ps, 8);
  EXPECT_STREQ(stream_info.raw64_tag_format, "ps");
  tt_stream_file_reader_free(stream);

  tt_tag_file_reader* reader = nullptr;
  ASSERT_EQ(tt_tag_file_reader_open(&reader, path.c_str()), TT_OK);
  tt_tag_file_info info;
  std::memset(&info, 0x55, sizeof info);
  ASSERT_EQ(tt_tag_file_reader_info(reader, &info), TT_OK);
  EXPECT_STREQ(info.application, "zolt_timing");
  EXPECT_STREQ(info.device_product, "ZT4");
  EXPECT_STREQ(info.device_serial, "SN42");
  EXPECT_EQ(std::string(info.device_port), long_port.substr(0, 127));
  EXPECT_EQ(std::strlen(info.created_utc), 27u);
  EXPECT_EQ(tt_tag_file_reader_info(reader, nullptr), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_tag_file_reader_info(nullptr, &info), TT_ERR_INVALID_ARGUMENT);
  tt_tag_file_reader_free(reader);

  const std::string long_application(40, 'a');
  options = {long_application.c_str(), nullptr, nullptr, nullptr};
  tt_tag_file_writer_free(open_writer(path, &options));
  ASSERT_EQ(tt_tag_file_reader_open(&reader, path.c_str()), TT_OK);
  ASSERT_EQ(tt_tag_file_reader_info(reader, &info), TT_OK);
  EXPECT_EQ(std::string(info.application), long_application.substr(0, 31));
  EXPECT_STREQ(info.device_product, "");
  tt_tag_file_reader_free(reader);

  // Only NULL keeps the default application; an empty text is kept as given.
  options = {"", nullptr, nullptr, nullptr};
  tt_tag_file_writer_free(open_writer(path, &options));
  ASSERT_EQ(tt_tag_file_reader_open(&reader, path.c_str()), TT_OK);
  ASSERT_EQ(tt_tag_file_reader_info(reader, &info), TT_OK);
  EXPECT_STREQ(info.application, "");
  tt_tag_file_reader_free(reader);
}

TEST(TagFileWriter, RefusalsAndTheirTexts) {
  TempDir dir;
  const std::string path = dir.file("w.tags");
  tt_tag_file_writer* writer = open_writer(path);
  const std::uint64_t empty_size = read_bytes(path).size();  // header not flushed yet: 0 or the header
  const tt_tag bad[] = {{0, 1}, {1, 2}, {2, 3}, {4, 4}};
  size_t written = 99;
  EXPECT_EQ(tt_tag_file_writer_write(writer, bad, 4, &written), TT_ERR_INVALID_ARGUMENT);
  EXPECT_STREQ(tt_tag_file_writer_last_error(writer), "tag input is out of range");
  EXPECT_EQ(written, 0u);
  EXPECT_EQ(tt_tag_file_writer_tag_count(writer), 0u);

  EXPECT_EQ(tt_tag_file_writer_write(writer, bad, 0, &written), TT_OK);  // clears the text
  EXPECT_STREQ(tt_tag_file_writer_last_error(writer), "");
  EXPECT_EQ(tt_tag_file_writer_write(writer, nullptr, 0, nullptr), TT_OK);
  EXPECT_EQ(tt_tag_file_writer_write(writer, nullptr, 1, &written), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_tag_file_writer_write(nullptr, bad, 1, &written), TT_ERR_INVALID_ARGUMENT);

  for (const std::int64_t size : {1, 7}) {
    EXPECT_EQ(tt_tag_file_writer_set_max_file_size(writer, size), TT_ERR_INVALID_ARGUMENT);
    EXPECT_STREQ(tt_tag_file_writer_last_error(writer), "max file size must be zero or at least one tag");
  }
  for (const std::int64_t size : {std::int64_t{0}, std::int64_t{8}, std::int64_t{-1}, std::int64_t{INT64_MAX}}) EXPECT_EQ(tt_tag_file_writer_set_max_file_size(writer, size), TT_OK);
  EXPECT_EQ(tt_tag_file_writer_set_max_file_size(nullptr, 8), TT_ERR_INVALID_ARGUMENT);

  // A bad input far into a call larger than one chunk, or inside its first
  // chunk while parts roll over tag by tag: still nothing is written.
  std::vector<tt_tag> large(1'100'000, tt_tag{2, 10});
  large.back().channel = 7;
  EXPECT_EQ(tt_tag_file_writer_write(writer, large.data(), large.size(), &written), TT_ERR_INVALID_ARGUMENT);
  large.back().channel = 0;
  large[500].channel = 5;
  ASSERT_EQ(tt_tag_file_writer_set_max_file_size(writer, 8), TT_OK);
  EXPECT_EQ(tt_tag_file_writer_write(writer, large.data(), 1000, &written), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(written, 0u);
  EXPECT_EQ(tt_tag_file_writer_tag_count(writer), 0u);
  EXPECT_EQ(tt_tag_file_writer_file_index(writer), 0u);

  ASSERT_EQ(tt_tag_file_writer_close(writer), TT_OK);
  EXPECT_GE(read_bytes(path).size(), empty_size);
  // Channel check first, then the closed state; an empty write still succeeds.
  EXPECT_EQ(tt_tag_file_writer_write(writer, bad, 4, &written), TT_ERR_INVALID_ARGUMENT);
  EXPECT_STREQ(tt_tag_file_writer_last_error(writer), "tag input is out of range");
  EXPECT_EQ(tt_tag_file_writer_write(writer, bad, 3, &written), TT_ERR_INVALID_STATE);
  EXPECT_STREQ(tt_tag_file_writer_last_error(writer), "tag file writer is closed");
  EXPECT_EQ(tt_tag_file_writer_write(writer, bad, 0, &written), TT_OK);
  tt_tag_file_writer_free(writer);
  EXPECT_TRUE(read_file(path).empty());  // nothing of the refused writes reached the file

  EXPECT_EQ(tt_tag_file_writer_open(nullptr, path.c_str()), TT_ERR_INVALID_ARGUMENT);
  writer = reinterpret_cast<tt_tag_file_writer*>(&written);
  EXPECT_EQ(tt_tag_file_writer_open(&writer, dir.file("none/x.tags").c_str()), TT_ERR_IO);
  EXPECT_EQ(writer, nullptr);
  EXPECT_EQ(tt_tag_file_writer_file_index(nullptr), 0u);
  EXPECT_EQ(tt_tag_file_writer_tag_count(nullptr), 0u);
  EXPECT_STREQ(tt_tag_file_writer_current_path(nullptr), "");
  EXPECT_STREQ(tt_tag_file_writer_last_error(nullptr), "");
  EXPECT_EQ(tt_tag_file_writer_close(nullptr), TT_ERR_INVALID_ARGUMENT);
  tt_tag_file_writer_free(nullptr);

  // A failing file system stops the write with the stream file's text.
  ASSERT_EQ(tt_tag_file_writer_open(&writer, "/dev/full"), TT_OK);
  const std::vector<tt_tag> many(300'000, tt_tag{1, 5});
  EXPECT_EQ(tt_tag_file_writer_write(writer, many.data(), many.size(), &written), TT_ERR_IO);
  EXPECT_EQ(written, 0u);
  EXPECT_EQ(tt_tag_file_writer_tag_count(writer), 0u);
  EXPECT_STREQ(tt_tag_file_writer_last_error(writer), "StreamFileWriter: payload write failed");
  tt_tag_file_writer_free(writer);
}

// Writes tags in uneven calls with a size limit and checks every part: its
// name, its tag count and that together they hold every tag once, in order.
void check_rollover(std::int64_t max_size, std::size_t total, std::size_t header_bytes) {
  SCOPED_TRACE("max file size " + std::to_string(max_size));
  TempDir dir;
  const std::string base = dir.file("run.tags");
  tt_tag_file_writer* writer = open_writer(base);
  ASSERT_EQ(tt_tag_file_writer_set_max_file_size(writer, max_size), TT_OK);
  std::vector<tt_tag> tags(total);
  for (std::size_t i = 0; i < total; ++i) tags[i] = {static_cast<std::uint32_t>(i % 4), static_cast<std::int64_t>(i * 1000)};
  std::size_t done = 0;
  for (std::size_t call = 1; done < total; ++call) {
    const std::size_t count = std::min(total - done, call * call);
    size_t written = 0;
    ASSERT_EQ(tt_tag_file_writer_write(writer, tags.data() + done, count, &written), TT_OK);
    ASSERT_EQ(written, count);
    done += count;
  }
  const std::size_t per_part =
      max_size <= 0 ? total : std::max<std::size_t>(1, (static_cast<std::size_t>(max_size) - std::min<std::size_t>(header_bytes, max_size)) / 8);
  const std::size_t parts = (total + per_part - 1) / per_part;
  EXPECT_EQ(tt_tag_file_writer_tag_count(writer), total);
  EXPECT_EQ(tt_tag_file_writer_file_index(writer), parts - 1);
  EXPECT_EQ(tt_tag_file_writer_current_path(writer), detail::tag_file_part_path(base, parts - 1));
  tt_tag_file_writer_free(writer);

  std::vector<tt_tag> joined;
  for (std::size_t part = 0; part < parts; ++part) {
    const std::string path = detail::tag_file_part_path(base, part);
    const std::vector<tt_tag> in_part = read_file(path);
    EXPECT_EQ(in_part.size(), std::min(per_part, total - part * per_part)) << path;
    if (max_size > static_cast<std::int64_t>(header_bytes + 8)) {
      EXPECT_LE(read_bytes(path).size(), static_cast<std::size_t>(max_size)) << path;
    }
    joined.insert(joined.end(), in_part.begin(), in_part.end());
  }
  EXPECT_FALSE(std::filesystem::exists(detail::tag_file_part_path(base, parts)));
  EXPECT_EQ(joined, tags);
}

TEST(TagFileWriter, RolloverAtManySizesLosesAndDuplicatesNothing) {
  TempDir dir;
  tt_tag_file_writer_free(open_writer(dir.file("h.tags")));
  const std::size_t header_bytes = read_bytes(dir.file("h.tags")).size();
  ASSERT_GT(header_bytes, 12u);

  check_rollover(8, 40, header_bytes);  // one tag per part, always
  // Limits below, at and around whole tags past the header; about 30 parts
  // each (one tag per part up to 15 bytes past the header).
  const std::pair<std::int64_t, std::size_t> cases[] = {{-100, 30}, {0, 30},  {7, 30},   {8, 31},   {9, 29},
                                                        {15, 30},   {16, 61}, {17, 59},  {80, 301}, {83, 299},
                                                        {8000, 29'999}};
  for (const auto& [extra, total] : cases) {
    check_rollover(static_cast<std::int64_t>(header_bytes) + extra, total, header_bytes);
  }
  check_rollover(0, 3000, header_bytes);   // no limit
  check_rollover(-5, 3000, header_bytes);  // negative: no limit either
  // A part that ends inside a write of more than one chunk.
  check_rollover(static_cast<std::int64_t>(header_bytes) + 8 * 700'000, 1'500'000, header_bytes);
}

// What read_time_range must return: from the first tag at or after start,
// tags in [start, end) until the first tag at or after end or capacity.
std::vector<tt_tag> brute_time_range(const std::vector<tt_tag>& tags, std::int64_t start, std::int64_t end,
                                     std::size_t capacity, std::size_t& stop) {
  std::vector<tt_tag> result;
  std::size_t i = 0;
  while (i < tags.size() && tags[i].time_ps < start) ++i;
  for (; i < tags.size() && result.size() < capacity; ++i) {
    if (tags[i].time_ps >= end) break;
    if (tags[i].time_ps >= start) result.push_back(tags[i]);
  }
  stop = i;
  return result;
}

TEST(TagFileReader, SeeksAndRangesMatchABruteForceFilter) {
  TempDir dir;
  const std::string path = dir.file("r.tags");
  // Globally almost sorted: each input lags a little, so a time range sees
  // tags before its start after the first one inside it.
  std::mt19937 random(5);
  std::vector<tt_tag> tags(60'000);
  for (std::size_t i = 0; i < tags.size(); ++i) {
    const auto channel = static_cast<std::uint32_t>(random() % 4);
    tags[i] = {channel, 100'000 + static_cast<std::int64_t>(i) * 100 - channel * 250 + static_cast<std::int64_t>(random() % 50)};
  }
  write_file(path, tags);
  const std::vector<tt_tag> expected = unwrapped(tags);  // all within the first period
  ASSERT_EQ(expected, tags);

  tt_tag_file_reader* reader = nullptr;
  ASSERT_EQ(tt_tag_file_reader_open(&reader, path.c_str()), TT_OK);
  std::vector<tt_tag> out(70'000);
  size_t count = 0;

  for (const std::uint64_t index : {0ull, 1ull, 16383ull, 16384ull, 16385ull, 59'999ull, 60'000ull, 1'000'000ull}) {
    ASSERT_EQ(tt_tag_file_reader_seek_tag(reader, index), TT_OK);
    ASSERT_EQ(tt_tag_file_reader_read(reader, out.data(), 3, &count), TT_OK);
    const std::size_t want = std::min<std::size_t>(3, tags.size() - std::min<std::size_t>(index, tags.size()));
    ASSERT_EQ(count, want) << index;
    for (std::size_t k = 0; k < want; ++k) EXPECT_EQ(out[k], tags[index + k]) << index;
  }

  for (const auto& [first, end, capacity] :
       {std::tuple{0ull, 10ull, 100u}, std::tuple{100ull, 20'000ull, 5000u}, std::tuple{59'990ull, 70'000ull, 100u},
        std::tuple{70'000ull, 80'000ull, 10u}, std::tuple{7ull, 7ull, 10u}}) {
    ASSERT_EQ(tt_tag_file_reader_read_tag_range(reader, first, end, out.data(), capacity, &count), TT_OK);
    const std::size_t begin = std::min<std::size_t>(first, tags.size());
    const std::size_t stop = std::min<std::size_t>({end, tags.size(), begin + capacity});
    ASSERT_EQ(count, stop - begin) << first;
    EXPECT_TRUE(std::equal(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(count), tags.begin() + static_cast<std::ptrdiff_t>(begin)));
  }

  for (const std::int64_t time : {INT64_MIN, std::int64_t{-1}, std::int64_t{0}, std::int64_t{1'234'567}, std::int64_t{5'999'000}}) {
    ASSERT_EQ(tt_tag_file_reader_seek_time(reader, time), TT_OK);
    ASSERT_EQ(tt_tag_file_reader_read(reader, out.data(), 20'000, &count), TT_OK);
    const auto first = std::find_if(tags.begin(), tags.end(), [time](const tt_tag& t) { return t.time_ps >= time; });
    const auto available = static_cast<std::size_t>(tags.end() - first);
    ASSERT_EQ(count, std::min<std::size_t>(20'000, available)) << time;
    EXPECT_TRUE(std::equal(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(count), first)) << time;
  }
  ASSERT_EQ(tt_tag_file_reader_seek_time(reader, INT64_MAX), TT_OK);
  ASSERT_EQ(tt_tag_file_reader_read(reader, out.data(), out.size(), &count), TT_OK);
  EXPECT_EQ(count, 0u);

  for (const auto& [start, end, capacity] :
       {std::tuple{std::int64_t{0}, std::int64_t{1000}, 100u}, std::tuple{std::int64_t{100'000}, std::int64_t{2'500'000}, 70'000u},
        std::tuple{std::int64_t{100'000}, std::int64_t{2'500'000}, 3000u}, std::tuple{std::int64_t{-5000}, std::int64_t{INT64_MAX}, 70'000u},
        std::tuple{std::int64_t{5'990'000}, std::int64_t{7'000'000}, 50u}, std::tuple{std::int64_t{8'000'000}, std::int64_t{9'000'000}, 50u}}) {
    SCOPED_TRACE(std::to_string(start) + ".." + std::to_string(end) + " cap " + std::to_string(capacity));
    std::size_t stop = 0;
    const std::vector<tt_tag> want = brute_time_range(tags, start, end, capacity, stop);
    ASSERT_EQ(tt_tag_file_reader_read_time_range(reader, start, end, out.data(), capacity, &count), TT_OK);
    ASSERT_EQ(count, want.size());
    EXPECT_TRUE(std::equal(want.begin(), want.end(), out.begin()));
    // Reading on continues in file order from where the range stopped
    // (capacity-limited ranges stop inside the batch; the rest is checked
    // only for ranges ended by their end time).
    if (stop < tags.size() && tags[stop].time_ps >= end) {
      ASSERT_EQ(tt_tag_file_reader_read(reader, out.data(), 30'000, &count), TT_OK);
      const std::size_t rest = std::min<std::size_t>(30'000, tags.size() - stop);
      ASSERT_EQ(count, rest);
      EXPECT_TRUE(std::equal(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(rest), tags.begin() + static_cast<std::ptrdiff_t>(stop)));
    }
  }

  // An empty time range does not move the reader.
  ASSERT_EQ(tt_tag_file_reader_seek_tag(reader, 500), TT_OK);
  ASSERT_EQ(tt_tag_file_reader_read_time_range(reader, 7, 7, out.data(), 10, &count), TT_OK);
  EXPECT_EQ(count, 0u);
  ASSERT_EQ(tt_tag_file_reader_read(reader, out.data(), 1, &count), TT_OK);
  EXPECT_EQ(out[0], tags[500]);

  // Argument faults leave the count cleared where it can be, and the text alone.
  count = 9;
  EXPECT_EQ(tt_tag_file_reader_read_tag_range(reader, 5, 4, out.data(), 10, &count), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_tag_file_reader_read_time_range(reader, 5, 4, out.data(), 10, &count), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_tag_file_reader_read(reader, out.data(), 0, &count), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_tag_file_reader_read(reader, nullptr, 1, &count), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_tag_file_reader_read(reader, out.data(), 1, nullptr), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_tag_file_reader_read(nullptr, out.data(), 1, &count), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_tag_file_reader_read_time_range(reader, 0, 1, out.data(), 0, &count), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_tag_file_reader_seek_tag(nullptr, 1), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_tag_file_reader_seek_time(nullptr, 1), TT_ERR_INVALID_ARGUMENT);
  EXPECT_STREQ(tt_tag_file_reader_last_error(reader), "");
  tt_tag_file_reader_free(reader);
  tt_tag_file_reader_free(nullptr);
  EXPECT_STREQ(tt_tag_file_reader_last_error(nullptr), "");
}

TEST(TagFileReader, StrayBytesAreSkippedByteByByte) {
  TempDir dir;
  const std::string path = dir.file("s.tags");
  std::vector<tt_tag> tags(200'000);
  for (std::size_t i = 0; i < tags.size(); ++i) tags[i] = {static_cast<std::uint32_t>(i % 4), static_cast<std::int64_t>(i) * 7};
  write_file(path, tags);
  std::string bytes = read_bytes(path);
  const std::size_t payload = bytes.size() - tags.size() * 8;
  // Damage: stray bytes between words (one right before the decoder's 1 MiB
  // block boundary), a word with reserved bits set, and a torn word at the end.
  bytes.insert(payload + (1 << 20) - 8, 1, '\xa5');
  bytes.insert(payload + 16, "\x80\x81\x82", 3);
  bytes.replace(payload + 8 * 100 + 3, 8, std::string(8, '\xff'));
  bytes += std::string("\x20\x00\x00", 3);
  write_bytes(path, bytes);

  std::vector<tt_tag> want = tags;
  want.erase(want.begin() + 100);
  EXPECT_EQ(read_file(path, 4096), want);

  tt_tag_file_reader* reader = nullptr;
  ASSERT_EQ(tt_tag_file_reader_open(&reader, path.c_str()), TT_OK);
  ASSERT_EQ(tt_tag_file_reader_seek_tag(reader, 150'000), TT_OK);
  tt_tag tag{};
  size_t count = 0;
  ASSERT_EQ(tt_tag_file_reader_read(reader, &tag, 1, &count), TT_OK);
  EXPECT_EQ(tag, want[150'000]);
  tt_tag_file_reader_free(reader);

  EXPECT_EQ(tt_tag_file_reader_open(&reader, dir.file("absent.tags").c_str()), TT_ERR_IO);
  EXPECT_EQ(reader, nullptr);
  EXPECT_EQ(tt_tag_file_reader_open(nullptr, path.c_str()), TT_ERR_INVALID_ARGUMENT);
}

}  // namespace
}  // namespace zolt::timing
