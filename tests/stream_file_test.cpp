#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "api/error.hpp"
#include "files/stream_file_reader.hpp"
#include "files/stream_file_writer.hpp"
#include "temp_dir.hpp"
#include "zolt_timing.h"

namespace zolt::timing {
namespace {

using testing::read_bytes;
using testing::stream_file_bytes;
using testing::TempDir;
using testing::write_bytes;

struct Thrown {
  tt_status status;
  std::string message;
};

template <class Body>
Thrown thrown_by(Body&& body) {
  try {
    body();
  } catch (const Error& error) {
    return {error.status(), error.what()};
  }
  return {TT_OK, "nothing thrown"};
}

#define EXPECT_THROWS_ERROR(body, want_status, want_message) \
  do {                                                       \
    const Thrown thrown = thrown_by([&] { body; });          \
    EXPECT_EQ(thrown.status, want_status);                   \
    EXPECT_EQ(thrown.message, want_message);                 \
  } while (0)

std::string payload_of(tt_stream_file_reader* reader, std::size_t piece) {
  std::string payload;
  std::vector<char> buffer(piece);
  for (;;) {
    size_t count = 99;
    EXPECT_EQ(tt_stream_file_reader_read_payload(reader, buffer.data(), buffer.size(), &count), TT_OK);
    if (count == 0) return payload;
    payload.append(buffer.data(), count);
  }
}

TEST(StreamFileWriter, ByteExactLayoutWithOptions) {
  TempDir dir;
  const std::string path = dir.file("capture.zt");
  tt_stream_file_options options{};
  options.stream_format = TT_STREAM_FORMAT_DELTA32;
  options.mode = 0;
  options.stream_transport = 0;
  options.channel_mask = 0x35;  // high bits dropped
  options.tdl_index = 3;
  options.delta_bits = 12;
  options.quantum_ps = 4;
  tt_stream_file_writer* writer = nullptr;
  ASSERT_EQ(tt_stream_file_writer_open(&writer, path.c_str(), &options), TT_OK);

  const std::string first("\x00\x01\xff\x80", 4);
  const std::string second(5000, '\x5a');
  size_t written = 99;
  ASSERT_EQ(tt_stream_file_writer_write(writer, first.data(), first.size(), &written), TT_OK);
  EXPECT_EQ(written, first.size());
  ASSERT_EQ(tt_stream_file_writer_write(writer, second.data(), second.size(), nullptr), TT_OK);
  ASSERT_EQ(tt_stream_file_writer_write(writer, nullptr, 0, &written), TT_OK);
  EXPECT_EQ(written, 0u);
  EXPECT_EQ(tt_stream_file_writer_payload_bytes(writer), first.size() + second.size());
  ASSERT_EQ(tt_stream_file_writer_close(writer), TT_OK);
  ASSERT_EQ(tt_stream_file_writer_close(writer), TT_OK);  // idempotent
  tt_stream_file_writer_free(writer);

  const std::string bytes = read_bytes(path);
  ASSERT_GT(bytes.size(), 12u);
  EXPECT_EQ(bytes.substr(0, 8), "ZOTIME1\n");
  const auto* length_le = reinterpret_cast<const unsigned char*>(bytes.data() + 8);
  const std::size_t length = length_le[0] | length_le[1] << 8 | length_le[2] << 16 | std::size_t{length_le[3]} << 24;
  ASSERT_EQ(bytes.size(), 12 + length + first.size() + second.size());
  const std::string json = bytes.substr(12, length);
  const std::string stamp_prefix = "{\"file_type\":\"zolt_timing_raw_stream_capture\",\"schema_version\":1,\"created_utc\":\"";
  ASSERT_EQ(json.substr(0, stamp_prefix.size()), stamp_prefix);
  EXPECT_EQ(json.substr(stamp_prefix.size() + 27),
            "\",\"application\":\"\",\"device_product\":\"\",\"device_serial\":\"\",\"device_port\":\"\","
            "\"stream_format\":\"delta32\",\"mode\":\"internal\",\"stream_transport\":\"uart\","
            "\"raw64_tag_format\":\"raw_cf\",\"channel_mask\":5,\"tdl_index\":3,"
            "\"packed_delta_config\":{\"delta_bits\":12,\"quantum_ps\":4}}");
  EXPECT_EQ(bytes.substr(12 + length), first + second);
}

TEST(StreamFileWriter, OptionDefaultsAndEnumChecks) {
  TempDir dir;
  const std::string path = dir.file("o.zt");
  const auto info_for = [&](const tt_stream_file_options* options) {
    tt_stream_file_writer* writer = nullptr;
    EXPECT_EQ(tt_stream_file_writer_open(&writer, path.c_str(), options), TT_OK);
    tt_stream_file_writer_free(writer);  // frees an open writer: closes it
    tt_stream_file_reader* reader = nullptr;
    tt_stream_file_info info;
    std::memset(&info, 0xAB, sizeof info);
    EXPECT_EQ(tt_stream_file_reader_open(&reader, path.c_str()), TT_OK);
    EXPECT_EQ(tt_stream_file_reader_info(reader, &info), TT_OK);
    tt_stream_file_reader_free(reader);
    return info;
  };

  const tt_stream_file_info defaults = info_for(nullptr);
  EXPECT_EQ(defaults.stream_format, 2u);
  EXPECT_EQ(defaults.mode, 1u);
  EXPECT_EQ(defaults.stream_transport, 1u);
  EXPECT_EQ(defaults.channel_mask, 15);
  EXPECT_EQ(defaults.tdl_index, 0);
  EXPECT_EQ(defaults.delta_bits, 16);
  EXPECT_EQ(defaults.quantum_ps, 8);
  EXPECT_STREQ(defaults.raw64_tag_format, "ps");
  EXPECT_EQ(std::strlen(defaults.created_utc), 27u);

  tt_stream_file_options zeros{};
  const tt_stream_file_info zeroed = info_for(&zeros);
  EXPECT_EQ(zeroed.stream_format, 0u);
  EXPECT_EQ(zeroed.mode, 0u);
  EXPECT_EQ(zeroed.stream_transport, 0u);
  EXPECT_EQ(zeroed.channel_mask, 15);
  EXPECT_EQ(zeroed.delta_bits, 16);
  EXPECT_EQ(zeroed.quantum_ps, 8);
  EXPECT_STREQ(zeroed.raw64_tag_format, "raw_cf");

  tt_stream_file_options external{};
  external.mode = 1;
  external.raw64_tag_format = "";
  EXPECT_STREQ(info_for(&external).raw64_tag_format, "ps");
  external.raw64_tag_format = "raw_cf_and_then_some_more";  // kept whole in the file, cut in the info
  const tt_stream_file_info cut = info_for(&external);
  EXPECT_STREQ(cut.raw64_tag_format, "raw_cf_and_then");
  tt_stream_file_reader* reader = nullptr;
  ASSERT_EQ(tt_stream_file_reader_open(&reader, path.c_str()), TT_OK);
  EXPECT_NE(std::string(tt_stream_file_reader_header_json(reader)).find("\"raw64_tag_format\":\"raw_cf_and_then_some_more\""),
            std::string::npos);
  EXPECT_EQ(cut.payload_offset, 12 + std::strlen(tt_stream_file_reader_header_json(reader)));
  tt_stream_file_reader_free(reader);

  for (const auto& [format, mode, transport] : {std::tuple{3u, 0u, 0u}, std::tuple{0u, 2u, 0u}, std::tuple{0u, 0u, 2u}}) {
    tt_stream_file_options bad{};
    bad.stream_format = format;
    bad.mode = mode;
    bad.stream_transport = transport;
    tt_stream_file_writer* writer = reinterpret_cast<tt_stream_file_writer*>(&bad);
    EXPECT_EQ(tt_stream_file_writer_open(&writer, dir.file("bad.zt").c_str(), &bad), TT_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(writer, nullptr);
  }
  // The class reports the text that the failed open loses with its handle.
  EXPECT_EQ(tt_stream_file_writer_open(nullptr, path.c_str(), nullptr), TT_ERR_INVALID_ARGUMENT);
  tt_stream_file_writer* writer = nullptr;
  EXPECT_EQ(tt_stream_file_writer_open(&writer, nullptr, nullptr), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_stream_file_writer_open(&writer, dir.file("no/such/dir.zt").c_str(), nullptr), TT_ERR_IO);
  EXPECT_EQ(writer, nullptr);
}

TEST(StreamFileWriter, FailuresAndTheirTexts) {
  TempDir dir;
  StreamFileWriter writer;
  EXPECT_THROWS_ERROR(writer.write("x", 1), TT_ERR_INVALID_STATE, "StreamFileWriter: not open");
  EXPECT_THROWS_ERROR(writer.open(dir.file("missing/x.zt"), StreamFileHeader{}), TT_ERR_IO,
                      "StreamFileWriter: failed to write header");

  writer.open(dir.file("ok.zt"), StreamFileHeader{});
  EXPECT_THROWS_ERROR(writer.write(nullptr, 3), TT_ERR_INVALID_ARGUMENT, "StreamFileWriter: null data");
  const std::uint64_t header_bytes = writer.file_bytes();
  writer.write("abc", 3);
  EXPECT_EQ(writer.payload_bytes(), 3u);
  EXPECT_EQ(writer.file_bytes(), header_bytes + 3);
  writer.close();
  EXPECT_THROWS_ERROR(writer.write("x", 1), TT_ERR_INVALID_STATE, "StreamFileWriter: not open");

  // A full device: a write larger than the buffer reaches it and fails; the
  // counters stay put and the writer refuses from then on.
  writer.open("/dev/full", StreamFileHeader{});
  const std::vector<char> big(3 * StreamFileWriter::kBufferBytes, 'z');
  EXPECT_THROWS_ERROR(writer.write(big.data(), big.size()), TT_ERR_IO, "StreamFileWriter: payload write failed");
  EXPECT_EQ(writer.payload_bytes(), 0u);
  EXPECT_THROWS_ERROR(writer.write("x", 1), TT_ERR_INVALID_STATE, "StreamFileWriter: not open");

  // The same through the exported functions, with the handle's text.
  tt_stream_file_writer* handle = nullptr;
  ASSERT_EQ(tt_stream_file_writer_open(&handle, "/dev/full", nullptr), TT_OK);
  size_t written = 7;
  EXPECT_EQ(tt_stream_file_writer_write(handle, big.data(), big.size(), &written), TT_ERR_IO);
  EXPECT_EQ(written, 0u);
  EXPECT_STREQ(tt_stream_file_writer_last_error(handle), "StreamFileWriter: payload write failed");
  EXPECT_EQ(tt_stream_file_writer_write(handle, nullptr, 1, &written), TT_ERR_INVALID_ARGUMENT);
  EXPECT_STREQ(tt_stream_file_writer_last_error(handle), "StreamFileWriter: payload write failed");
  EXPECT_EQ(tt_stream_file_writer_close(handle), TT_OK);
  EXPECT_STREQ(tt_stream_file_writer_last_error(handle), "");
  EXPECT_EQ(tt_stream_file_writer_write(handle, "x", 1, &written), TT_ERR_INVALID_STATE);
  EXPECT_STREQ(tt_stream_file_writer_last_error(handle), "StreamFileWriter: not open");
  tt_stream_file_writer_free(handle);

  EXPECT_EQ(tt_stream_file_writer_write(nullptr, "x", 1, &written), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_stream_file_writer_payload_bytes(nullptr), 0u);
  EXPECT_EQ(tt_stream_file_writer_close(nullptr), TT_ERR_INVALID_ARGUMENT);
  EXPECT_STREQ(tt_stream_file_writer_last_error(nullptr), "");
  tt_stream_file_writer_free(nullptr);
}

TEST(StreamFileReader, OpenFailuresWithExactTexts) {
  TempDir dir;
  const std::string path = dir.file("bad.zt");
  StreamFileReader reader;
  EXPECT_THROWS_ERROR(reader.open(dir.file("absent.zt")), TT_ERR_IO,
                      "StreamFileReader: cannot open " + dir.file("absent.zt"));
  const std::pair<std::string, Thrown> cases[] = {
      {"", {TT_ERR_IO, "StreamFileReader: truncated magic"}},
      {"ZOTIME1", {TT_ERR_IO, "StreamFileReader: truncated magic"}},
      {"ZOTIME2\n\0\0\0\0", {TT_ERR_PROTOCOL, "StreamFileReader: not an Zolt timing stream file"}},
      {"zotime1\n\0\0\0\0", {TT_ERR_PROTOCOL, "StreamFileReader: not an Zolt timing stream file"}},
      {"ZOTIME1\n", {TT_ERR_IO, "stream file: truncated header length"}},
      {"ZOTIME1\n\x05\0\0", {TT_ERR_IO, "stream file: truncated header length"}},
      {stream_file_bytes("{}").substr(0, 13), {TT_ERR_IO, "StreamFileReader: truncated JSON header"}},
      // A damaged length far beyond the file is a truncation, not a 4 GiB allocation.
      {std::string("TTSTRM1\n\xff\xff\xff\xff{}", 14), {TT_ERR_IO, "StreamFileReader: truncated JSON header"}},
  };
  for (const auto& [bytes, want] : cases) {
    write_bytes(path, bytes);
    const Thrown got = thrown_by([&] { reader.open(path); });
    EXPECT_EQ(got.status, want.status) << bytes;
    EXPECT_EQ(got.message, want.message) << bytes;
    tt_stream_file_reader* handle = reinterpret_cast<tt_stream_file_reader*>(&reader);
    EXPECT_EQ(tt_stream_file_reader_open(&handle, path.c_str()), want.status);
    EXPECT_EQ(handle, nullptr);
  }
  EXPECT_THROWS_ERROR(reader.read_payload(nullptr, 0), TT_ERR_INVALID_STATE, "StreamFileReader: not open");
  EXPECT_THROWS_ERROR(reader.rewind_payload(), TT_ERR_INVALID_STATE, "StreamFileReader: not open");
  tt_tag tag{};
  EXPECT_THROWS_ERROR(reader.decode_next_tags(&tag, 1), TT_ERR_INVALID_STATE, "StreamFileReader: not open");
}

TEST(StreamFileReader, ToleratedHeadersOldMagicAndZeroLength) {
  TempDir dir;
  const std::string path = dir.file("t.zt");
  tt_stream_file_info info;

  write_bytes(path, stream_file_bytes("", "PAYLOAD"));
  tt_stream_file_reader* reader = nullptr;
  ASSERT_EQ(tt_stream_file_reader_open(&reader, path.c_str()), TT_OK);
  ASSERT_EQ(tt_stream_file_reader_info(reader, &info), TT_OK);
  EXPECT_EQ(info.stream_format, 2u);
  EXPECT_EQ(info.mode, 1u);
  EXPECT_EQ(info.stream_transport, 1u);
  EXPECT_EQ(info.channel_mask, 15);
  EXPECT_EQ(info.delta_bits, 16);
  EXPECT_EQ(info.quantum_ps, 8);
  EXPECT_STREQ(info.raw64_tag_format, "ps");
  EXPECT_STREQ(info.created_utc, "");
  EXPECT_EQ(info.payload_offset, 12u);
  EXPECT_STREQ(tt_stream_file_reader_header_json(reader), "");
  EXPECT_EQ(payload_of(reader, 3), "PAYLOAD");
  tt_stream_file_reader_free(reader);

  const std::string json =
      R"({"stream_format":"Delta32","mode":"INTERNAL","stream_transport":"usb_async","raw64_tag_format":"",)"
      R"("created_utc":"2024-05-01T12:00:03.004512Z and a long tail","channel_mask":255,"tdl_index":300})";
  write_bytes(path, stream_file_bytes(json, "xyz", "TTSTRM1\n"));
  ASSERT_EQ(tt_stream_file_reader_open(&reader, path.c_str()), TT_OK);
  ASSERT_EQ(tt_stream_file_reader_info(reader, &info), TT_OK);
  EXPECT_EQ(info.stream_format, 1u);
  EXPECT_EQ(info.mode, 0u);
  EXPECT_EQ(info.stream_transport, 2u);
  EXPECT_STREQ(info.raw64_tag_format, "raw_cf");
  EXPECT_STREQ(info.created_utc, "2024-05-01T12:00:03.004512Z and");  // 31 bytes
  EXPECT_EQ(info.channel_mask, 15);
  EXPECT_EQ(info.tdl_index, 44);
  EXPECT_EQ(info.payload_offset, 12 + json.size());
  EXPECT_EQ(tt_stream_file_reader_header_json(reader), json);
  EXPECT_EQ(payload_of(reader, 1000), "xyz");
  tt_stream_file_reader_free(reader);

  EXPECT_EQ(tt_stream_file_reader_info(nullptr, &info), TT_ERR_INVALID_ARGUMENT);
  EXPECT_STREQ(tt_stream_file_reader_header_json(nullptr), "");
  EXPECT_STREQ(tt_stream_file_reader_last_error(nullptr), "");
  tt_stream_file_reader_free(nullptr);
}

TEST(StreamFileReader, PayloadReadsEndRewindAndArgumentChecks) {
  TempDir dir;
  const std::string path = dir.file("p.zt");
  std::string payload;
  for (int i = 0; i < 300000; ++i) payload += static_cast<char>(i * 7 + (i >> 8));
  write_bytes(path, stream_file_bytes("{\"application\":\"p\"}", payload));

  tt_stream_file_reader* reader = nullptr;
  ASSERT_EQ(tt_stream_file_reader_open(&reader, path.c_str()), TT_OK);
  EXPECT_EQ(payload_of(reader, 4096), payload);
  char byte = 0;
  size_t count = 5;
  for (int again = 0; again < 3; ++again) {  // the end stays the end, without an error
    EXPECT_EQ(tt_stream_file_reader_read_payload(reader, &byte, 1, &count), TT_OK);
    EXPECT_EQ(count, 0u);
  }
  ASSERT_EQ(tt_stream_file_reader_rewind(reader), TT_OK);
  EXPECT_EQ(payload_of(reader, 1 << 20), payload);
  ASSERT_EQ(tt_stream_file_reader_rewind(reader), TT_OK);
  ASSERT_EQ(tt_stream_file_reader_read_payload(reader, &byte, 1, &count), TT_OK);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(byte, payload[0]);

  count = 5;
  EXPECT_EQ(tt_stream_file_reader_read_payload(reader, nullptr, 0, &count), TT_OK);
  EXPECT_EQ(count, 0u);
  count = 5;
  EXPECT_EQ(tt_stream_file_reader_read_payload(reader, nullptr, 1, &count), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(count, 0u);
  count = 5;
  EXPECT_EQ(tt_stream_file_reader_read_payload(nullptr, &byte, 1, &count), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(tt_stream_file_reader_read_payload(reader, &byte, 1, nullptr), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_stream_file_reader_rewind(nullptr), TT_ERR_INVALID_ARGUMENT);
  EXPECT_STREQ(tt_stream_file_reader_last_error(reader), "");
  tt_stream_file_reader_free(reader);

  // An empty payload reads as 0 bytes, any number of times.
  write_bytes(path, stream_file_bytes("{}"));
  ASSERT_EQ(tt_stream_file_reader_open(&reader, path.c_str()), TT_OK);
  for (int again = 0; again < 3; ++again) {
    count = 5;
    EXPECT_EQ(tt_stream_file_reader_read_payload(reader, &byte, 1, &count), TT_OK);
    EXPECT_EQ(count, 0u);
  }
  tt_stream_file_reader_free(reader);
}

TEST(StreamFileReader, DecodesTagWordPayloads) {
  TempDir dir;
  const std::string path = dir.file("d.zt");
  std::vector<tt_tag> tags(8);
  StreamFileReader reader;
  // Other encodings go through the stream decoder: zeros hold no sync word
  // (delta32) and no calibration word (raw64 by the internal clock).
  write_bytes(path, stream_file_bytes(R"({"stream_format":"delta32"})", std::string(16, '\0')));
  reader.open(path);
  EXPECT_FALSE(reader.holds_tag_words());
  EXPECT_EQ(reader.decode_next_tags(tags.data(), 4), 0u);
  write_bytes(path, stream_file_bytes(R"({"stream_format":"raw64","mode":"internal","raw64_tag_format":""})",
                                      std::string(16, '\0')));
  reader.open(path);
  EXPECT_FALSE(reader.holds_tag_words());
  EXPECT_EQ(reader.decode_next_tags(tags.data(), 4), 0u);

  // Two words: input 2 at P-1, then input 2 at 5 ps, which unwraps past P.
  const std::string words("\x40\x00\x0d\x04\xff\xff\xff\xff" "\x40\x00\x00\x00\x00\x00\x00\x05", 16);
  write_bytes(path, stream_file_bytes(R"({"stream_format":"raw64","raw64_tag_format":"ps"})", words));
  reader.open(path);
  std::size_t count = 0;
  reader.decode_next_tags(tags.data(), 1, count);
  ASSERT_EQ(count, 1u);
  reader.decode_next_tags(tags.data(), 5, count);  // appends after the first
  ASSERT_EQ(count, 2u);
  EXPECT_EQ(tags[0].channel, 2u);
  EXPECT_EQ(tags[0].time_ps, kCounterWrapPs - 1);
  EXPECT_EQ(tags[1].time_ps, kCounterWrapPs + 5);
  EXPECT_EQ(reader.decoded_tag_count(), 2u);
  EXPECT_EQ(reader.decode_next_tags(tags.data(), 5), 0u);
  reader.rewind_payload();
  EXPECT_EQ(reader.decoded_tag_count(), 0u);
  ASSERT_EQ(reader.decode_next_tags(tags.data(), 1), 1u);
  EXPECT_EQ(tags[0].time_ps, kCounterWrapPs - 1);
}

}  // namespace
}  // namespace zolt::timing
