#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "files/json_header_codec.hpp"

namespace zolt::timing {
namespace {

using detail::json_escape;
using detail::json_find_string;
using detail::json_find_uint;
using detail::stream_header_from_json;
using detail::stream_header_to_json;

void expect_default_header(const StreamFileHeader& header) {
  EXPECT_EQ(header.stream_format, StreamFormat::packed_delta);
  EXPECT_EQ(header.mode, TimestampMode::external);
  EXPECT_EQ(header.stream_transport, StreamTransport::usb);
  EXPECT_EQ(header.channel_mask, 15);
  EXPECT_EQ(header.tdl_index, 0);
  EXPECT_EQ(header.delta_bits, 16);
  EXPECT_EQ(header.quantum_ps, 8);
  EXPECT_EQ(header.raw64_tag_format, "ps");
  EXPECT_EQ(header.created_utc, "");
  EXPECT_EQ(header.application, "");
  EXPECT_EQ(header.device_product, "");
  EXPECT_EQ(header.device_serial, "");
  EXPECT_EQ(header.device_port, "");
}

TEST(JsonEscape, NamedEscapesLossyControlBytesAndHighBytesKept) {
  EXPECT_EQ(json_escape(std::string("a\tb\nc\rd\"e\\f", 11)), "a\\tb\\nc\\rd\\\"e\\\\f");
  EXPECT_EQ(json_escape(std::string("\x01\x1f\x00|", 4)), "???|");
  EXPECT_EQ(json_escape("\x7f\xc3\xa9 /"), "\x7f\xc3\xa9 /");
  EXPECT_EQ(json_escape(""), "");
}

TEST(HeaderToJson, FixedKeyOrderNoWhitespaceAndValueMapping) {
  StreamFileHeader header;
  header.stream_format = StreamFormat::delta32;
  header.mode = TimestampMode::internal;
  header.stream_transport = StreamTransport::usb_async;
  header.channel_mask = 0xF5;  // only the low four bits are written
  header.tdl_index = 4;
  header.delta_bits = 12;
  header.quantum_ps = 65535;
  header.raw64_tag_format = "";  // internal mode: raw_cf
  header.created_utc = "2024-05-01T12:00:03.004512Z";
  header.application = "cap \"A\"";
  header.device_product = "ZT4";
  header.device_serial = "SN\\1";
  header.device_port = "/dev/ttyUSB0";
  EXPECT_EQ(stream_header_to_json(header),
            "{\"file_type\":\"zolt_timing_raw_stream_capture\",\"schema_version\":1,"
            "\"created_utc\":\"2024-05-01T12:00:03.004512Z\",\"application\":\"cap \\\"A\\\"\","
            "\"device_product\":\"ZT4\",\"device_serial\":\"SN\\\\1\",\"device_port\":\"/dev/ttyUSB0\","
            "\"stream_format\":\"delta32\",\"mode\":\"internal\",\"stream_transport\":\"usb_async\","
            "\"raw64_tag_format\":\"raw_cf\",\"channel_mask\":5,\"tdl_index\":4,"
            "\"packed_delta_config\":{\"delta_bits\":12,\"quantum_ps\":65535}}");

  // Out-of-range enum numbers fall back to the first text of their table.
  header.stream_format = static_cast<StreamFormat>(7);
  header.mode = static_cast<TimestampMode>(9);
  header.stream_transport = static_cast<StreamTransport>(3);
  header.raw64_tag_format = "";
  const std::string json = stream_header_to_json(header);
  EXPECT_NE(json.find("\"stream_format\":\"raw64\",\"mode\":\"external\",\"stream_transport\":\"uart\","
                      "\"raw64_tag_format\":\"ps\""),
            std::string::npos)
      << json;
  const StreamFileHeader back = stream_header_from_json(json);
  EXPECT_EQ(back.stream_format, StreamFormat::raw64);
  EXPECT_EQ(back.mode, TimestampMode::external);
  EXPECT_EQ(back.stream_transport, StreamTransport::uart);
}

TEST(HeaderToJson, EmptyCreationTimeIsStampedWithMicroseconds) {
  const std::time_t before = std::time(nullptr);
  const StreamFileHeader back = stream_header_from_json(stream_header_to_json(StreamFileHeader{}));
  const std::time_t after = std::time(nullptr);
  // Shape 2024-05-01T12:00:03.004512Z: digits everywhere but the separators.
  const std::string shape = "dddd-dd-ddTdd:dd:dd.ddddddZ";
  ASSERT_EQ(back.created_utc.size(), shape.size()) << back.created_utc;
  for (std::size_t i = 0; i < shape.size(); ++i) {
    const char got = back.created_utc[i];
    EXPECT_TRUE(shape[i] == 'd' ? (got >= '0' && got <= '9') : got == shape[i]) << back.created_utc;
  }
  std::tm parts{};
  ASSERT_TRUE(strptime(back.created_utc.c_str(), "%Y-%m-%dT%H:%M:%S", &parts));
  const std::time_t stamped = timegm(&parts);
  EXPECT_GE(stamped, before);
  EXPECT_LE(stamped, after);
}

TEST(HeaderRoundTrip, EveryFieldComesBack) {
  StreamFileHeader header;
  header.stream_format = StreamFormat::raw64;
  header.mode = TimestampMode::internal;
  header.stream_transport = StreamTransport::uart;
  header.channel_mask = 0xFA;
  header.tdl_index = 255;
  header.delta_bits = 255;
  header.quantum_ps = 1234;
  header.raw64_tag_format = "ps";
  header.created_utc = "2023-01-02T03:04:05.000006Z";
  header.application = "tab\there, newline\nthere, cr\r, quote\", backslash\\, ctl\x01, utf8 \xc3\xa9";
  header.device_product = "ZOLT TDC";
  header.device_serial = "A1B2";
  header.device_port = "usb-fifo:FT1234";

  const StreamFileHeader back = stream_header_from_json(stream_header_to_json(header));
  EXPECT_EQ(back.stream_format, header.stream_format);
  EXPECT_EQ(back.mode, header.mode);
  EXPECT_EQ(back.stream_transport, header.stream_transport);
  EXPECT_EQ(back.channel_mask, 0x0A);
  EXPECT_EQ(back.tdl_index, 255);
  EXPECT_EQ(back.delta_bits, 255);
  EXPECT_EQ(back.quantum_ps, 1234);
  EXPECT_EQ(back.raw64_tag_format, "ps");
  EXPECT_EQ(back.created_utc, header.created_utc);
  EXPECT_EQ(back.application, "tab\there, newline\nthere, cr\r, quote\", backslash\\, ctl?, utf8 \xc3\xa9");
  EXPECT_EQ(back.device_product, header.device_product);
  EXPECT_EQ(back.device_serial, header.device_serial);
  EXPECT_EQ(back.device_port, header.device_port);

  for (const auto format : {StreamFormat::raw64, StreamFormat::delta32, StreamFormat::packed_delta}) {
    for (const auto transport : {StreamTransport::uart, StreamTransport::usb, StreamTransport::usb_async}) {
      header.stream_format = format;
      header.stream_transport = transport;
      const StreamFileHeader again = stream_header_from_json(stream_header_to_json(header));
      EXPECT_EQ(again.stream_format, format);
      EXPECT_EQ(again.stream_transport, transport);
    }
  }
}

TEST(HeaderFromJson, ToleratesMissingUnknownAndOddlyCasedContent) {
  expect_default_header(stream_header_from_json(""));
  expect_default_header(stream_header_from_json("{}"));
  expect_default_header(stream_header_from_json("not json at all \"mode"));

  // Keys are case-sensitive, values are not.
  EXPECT_EQ(stream_header_from_json(R"({"STREAM_FORMAT":"delta32"})").stream_format, StreamFormat::packed_delta);
  EXPECT_EQ(stream_header_from_json(R"({"stream_format":"DELTA32"})").stream_format, StreamFormat::delta32);
  EXPECT_EQ(stream_header_from_json(R"({"stream_format":"PackedDelta"})").stream_format, StreamFormat::packed_delta);
  EXPECT_EQ(stream_header_from_json(R"({"stream_format":"packed-delta"})").stream_format, StreamFormat::raw64);
  EXPECT_EQ(stream_header_from_json(R"({"stream_format":""})").stream_format, StreamFormat::raw64);
  EXPECT_EQ(stream_header_from_json(R"({"mode":"INTERNAL"})").mode, TimestampMode::internal);
  EXPECT_EQ(stream_header_from_json(R"({"mode":"internal "})").mode, TimestampMode::external);
  EXPECT_EQ(stream_header_from_json(R"({"stream_transport":"USB"})").stream_transport, StreamTransport::usb);
  for (const char* async : {"usb_async", "USB-Async", "usbasync"}) {
    EXPECT_EQ(stream_header_from_json(std::string(R"({"stream_transport":")") + async + "\"}").stream_transport,
              StreamTransport::usb_async)
        << async;
  }
  EXPECT_EQ(stream_header_from_json(R"({"stream_transport":"pcie"})").stream_transport, StreamTransport::uart);

  // Verbatim strings are not lower-cased; an empty tag format follows the mode.
  EXPECT_EQ(stream_header_from_json(R"({"raw64_tag_format":"PS"})").raw64_tag_format, "PS");
  EXPECT_EQ(stream_header_from_json(R"({"mode":"internal","raw64_tag_format":""})").raw64_tag_format, "raw_cf");
  EXPECT_EQ(stream_header_from_json(R"({"mode":"external","raw64_tag_format":""})").raw64_tag_format, "ps");
  EXPECT_EQ(stream_header_from_json(R"({"mode":"internal"})").raw64_tag_format, "ps");  // absent: default stays

  // Numbers are truncated to the field widths; a sign is not a digit.
  const StreamFileHeader numbers = stream_header_from_json(
      R"({"channel_mask":255,"tdl_index":300,"delta_bits":260,"quantum_ps":-8})");
  EXPECT_EQ(numbers.channel_mask, 15);
  EXPECT_EQ(numbers.tdl_index, 44);
  EXPECT_EQ(numbers.delta_bits, 4);
  EXPECT_EQ(numbers.quantum_ps, 8);
  EXPECT_EQ(stream_header_from_json(R"({"quantum_ps":65537})").quantum_ps, 1);
  // delta_bits and quantum_ps are found anywhere, not only in their object.
  EXPECT_EQ(stream_header_from_json(R"({"delta_bits":6,"packed_delta_config":{}})").delta_bits, 6);
}

TEST(HeaderFromJson, FirstMatchAnywhereWinsEvenInsideAnotherValue) {
  // "mode" first appears as the serial's value; the search then runs on to
  // the next colon and quote, which belong to "application".
  const StreamFileHeader header =
      stream_header_from_json(R"({"device_serial":"mode","application":"internal","mode":"external"})");
  EXPECT_EQ(header.mode, TimestampMode::internal);
  EXPECT_EQ(header.device_serial, "mode");
}

TEST(JsonFindString, QuirksAndEndsOfText) {
  EXPECT_EQ(json_find_string(R"({"a":"x"})", "a"), "x");
  // After a number the next quote is the following key's.
  EXPECT_EQ(json_find_string(R"({"channel_mask":3,"application":"a"})", "channel_mask"), "application");
  EXPECT_EQ(json_find_string(R"({"k" : "v"})", "k"), "v");
  // Escapes: named ones, self-standing ones, and \u kept as plain text.
  EXPECT_EQ(json_find_string(R"({"k":"\r\t\n\"\\\/\u0041"})", "k"), "\r\t\n\"\\/u0041");

  EXPECT_EQ(json_find_string("", "k"), std::nullopt);
  EXPECT_EQ(json_find_string("\"k", "k"), std::nullopt);          // shorter than the needle
  EXPECT_EQ(json_find_string("{\"other\":\"v\"}", "k"), std::nullopt);
  EXPECT_EQ(json_find_string("{\"k\" \"v\"}", "k"), std::nullopt);  // no colon
  EXPECT_EQ(json_find_string("{\"k\":", "k"), std::nullopt);       // colon is the last byte
  EXPECT_EQ(json_find_string("{\"k\":1}", "k"), std::nullopt);     // no quote after it
  EXPECT_EQ(json_find_string("{\"k\":\"", "k"), std::nullopt);     // quote is the last byte
  EXPECT_EQ(json_find_string("{\"k\":\"abc", "k"), std::nullopt);  // unterminated
  EXPECT_EQ(json_find_string("{\"k\":\"ab\\", "k"), std::nullopt); // backslash at the end
  EXPECT_EQ(json_find_string(std::string_view("{\"k\":\"v\"}", 7), "k"), std::nullopt);  // view ends early
}

TEST(JsonFindUint, DigitsWhitespaceWrapAndEndsOfText) {
  EXPECT_EQ(json_find_uint(R"({"n":42})", "n"), 42u);
  EXPECT_EQ(json_find_uint("{\"n\": \t\n 7,", "n"), 7u);
  EXPECT_EQ(json_find_uint("{\"n\":12", "n"), 12u);  // the end of text ends the number
  EXPECT_EQ(json_find_uint(R"({"n":007x})", "n"), 7u);
  EXPECT_EQ(json_find_uint(R"({"n":18446744073709551615})", "n"), UINT64_MAX);
  // Long digit runs wrap silently modulo 2^64.
  EXPECT_EQ(json_find_uint(R"({"n":20000000000000000000})", "n"), 1553255926290448384u);

  EXPECT_EQ(json_find_uint(R"({"n":-1})", "n"), std::nullopt);
  EXPECT_EQ(json_find_uint(R"({"n":"5"})", "n"), std::nullopt);
  EXPECT_EQ(json_find_uint("{\"n\"", "n"), std::nullopt);
  EXPECT_EQ(json_find_uint("{\"n\"   ", "n"), std::nullopt);  // no colon
  EXPECT_EQ(json_find_uint("{\"n\":", "n"), std::nullopt);
  EXPECT_EQ(json_find_uint("{\"n\":   ", "n"), std::nullopt);
  EXPECT_EQ(json_find_uint("", "n"), std::nullopt);
}

}  // namespace
}  // namespace zolt::timing
