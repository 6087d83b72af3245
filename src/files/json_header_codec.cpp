#include "files/json_header_codec.hpp"

#include <cctype>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace zolt::timing::detail {
namespace {

constexpr std::size_t npos = std::string_view::npos;

// Creation stamp, e.g. 2024-05-01T12:00:03.004512Z.
std::string utc_now_with_microseconds() {
  const auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
  const std::int64_t nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(since_epoch).count();
  const std::time_t seconds = static_cast<std::time_t>(nanoseconds / 1'000'000'000);
  const long microseconds = static_cast<long>((nanoseconds % 1'000'000'000) / 1000);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char date[32] = {};
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
  char fraction[16] = {};
  std::snprintf(fraction, sizeof fraction, ".%06ldZ", microseconds);
  return std::string(date) + fraction;
}

const char* stream_format_text(StreamFormat format) {
  switch (format) {
    case StreamFormat::delta32: return "delta32";
    case StreamFormat::packed_delta: return "packed_delta";
    default: return "raw64";
  }
}

const char* transport_text(StreamTransport transport) {
  switch (transport) {
    case StreamTransport::usb: return "usb";
    case StreamTransport::usb_async: return "usb_async";
    default: return "uart";
  }
}

std::string lower_case(std::string text) {
  for (char& byte : text) byte = static_cast<char>(std::tolower(static_cast<unsigned char>(byte)));
  return text;
}

StreamFormat stream_format_from_text(const std::string& text) {
  if (text == "delta32") return StreamFormat::delta32;
  if (text == "packed_delta" || text == "packeddelta") return StreamFormat::packed_delta;
  return StreamFormat::raw64;
}

StreamTransport transport_from_text(const std::string& text) {
  if (text == "usb") return StreamTransport::usb;
  if (text == "usb_async" || text == "usb-async" || text == "usbasync") return StreamTransport::usb_async;
  return StreamTransport::uart;
}

const char* raw64_tag_format_for(TimestampMode mode) {
  return mode == TimestampMode::internal ? "raw_cf" : "ps";
}

// Position just past the first "key" in text, or npos.
std::size_t after_needle(std::string_view text, std::string_view key) {
  std::string needle;
  needle.reserve(key.size() + 2);
  needle.append(1, '"').append(key).append(1, '"');
  if (text.size() < needle.size()) return npos;
  const std::size_t found = text.find(needle);
  return found == npos ? npos : found + needle.size();
}

class JsonObjectWriter {
 public:
  void string_member(const char* key, std::string_view value) {
    begin_member(key);
    text_ += '"';
    text_ += json_escape(value);
    text_ += '"';
  }
  void number_member(const char* key, std::uint64_t value) {
    begin_member(key);
    text_ += std::to_string(value);
  }
  void open_object(const char* key) {
    begin_member(key);
    text_ += '{';
    first_ = true;
  }
  std::string finish_nested_and_outer() { return std::move(text_) + "}}"; }

 private:
  void begin_member(const char* key) {
    if (!first_) text_ += ',';
    first_ = false;
    text_ += '"';
    text_ += key;
    text_ += "\":";
  }
  std::string text_ = "{";
  bool first_ = true;
};

}  // namespace

std::string json_escape(std::string_view text) {
  std::string escaped;
  escaped.reserve(text.size() + 8);
  for (const char byte : text) {
    switch (byte) {
      case '\t': escaped += "\\t"; break;
      case '\n': escaped += "\\n"; break;
      case '\r': escaped += "\\r"; break;
      case '"': escaped += "\\\""; break;
      case '\\': escaped += "\\\\"; break;
      default:
        // Other control bytes are replaced, not \u-escaped: lossy on purpose.
        escaped += static_cast<unsigned char>(byte) < 0x20 ? '?' : byte;
    }
  }
  return escaped;
}

std::string stream_header_to_json(StreamFileHeader header) {
  if (header.created_utc.empty()) header.created_utc = utc_now_with_microseconds();
  if (header.raw64_tag_format.empty()) header.raw64_tag_format = raw64_tag_format_for(header.mode);

  JsonObjectWriter json;
  json.string_member("file_type", "zolt_timing_raw_stream_capture");
  json.number_member("schema_version", 1);
  json.string_member("created_utc", header.created_utc);
  json.string_member("application", header.application);
  json.string_member("device_product", header.device_product);
  json.string_member("device_serial", header.device_serial);
  json.string_member("device_port", header.device_port);
  json.string_member("stream_format", stream_format_text(header.stream_format));
  json.string_member("mode", header.mode == TimestampMode::internal ? "internal" : "external");
  json.string_member("stream_transport", transport_text(header.stream_transport));
  json.string_member("raw64_tag_format", header.raw64_tag_format);
  json.number_member("channel_mask", header.channel_mask & 15u);
  json.number_member("tdl_index", header.tdl_index);
  json.open_object("packed_delta_config");
  json.number_member("delta_bits", header.delta_bits);
  json.number_member("quantum_ps", header.quantum_ps);
  return json.finish_nested_and_outer();
}

std::optional<std::string> json_find_string(std::string_view text, std::string_view key) {
  const std::size_t after_key = after_needle(text, key);
  if (after_key == npos) return std::nullopt;
  const std::size_t colon = text.find(':', after_key);
  if (colon == npos || colon + 1 >= text.size()) return std::nullopt;
  // Whatever lies between the colon and the next quote is skipped, so a
  // numeric value yields the following key's name. Kept as files expect it.
  const std::size_t open_quote = text.find('"', colon + 1);
  if (open_quote == npos || open_quote + 1 >= text.size()) return std::nullopt;

  std::string value;
  for (std::size_t i = open_quote + 1; i < text.size(); ++i) {
    const char byte = text[i];
    if (byte == '"') return value;
    if (byte != '\\') {
      value += byte;
      continue;
    }
    if (++i >= text.size()) return std::nullopt;
    switch (text[i]) {
      case 'r': value += '\r'; break;
      case 't': value += '\t'; break;
      case 'n': value += '\n'; break;
      default: value += text[i];  // \" \\ \/ and also the u of \uXXXX
    }
  }
  return std::nullopt;  // no closing quote
}

std::optional<std::uint64_t> json_find_uint(std::string_view text, std::string_view key) {
  const std::size_t after_key = after_needle(text, key);
  if (after_key == npos || after_key >= text.size()) return std::nullopt;
  const std::size_t colon = text.find(':', after_key);
  if (colon == npos || colon + 1 >= text.size()) return std::nullopt;
  std::size_t i = colon + 1;
  while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
  if (i >= text.size()) return std::nullopt;

  std::uint64_t value = 0;
  const std::size_t first_digit = i;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    value = value * 10 + static_cast<std::uint64_t>(text[i] - '0');  // wraps silently
  }
  if (i == first_digit) return std::nullopt;
  return value;
}

StreamFileHeader stream_header_from_json(std::string_view text) {
  StreamFileHeader header;
  if (auto value = json_find_string(text, "stream_format")) {
    header.stream_format = stream_format_from_text(lower_case(*value));
  }
  if (auto value = json_find_string(text, "mode")) {
    header.mode = lower_case(*value) == "internal" ? TimestampMode::internal : TimestampMode::external;
  }
  if (auto value = json_find_string(text, "stream_transport")) {
    header.stream_transport = transport_from_text(lower_case(*value));
  }

  const std::pair<const char*, std::string*> verbatim[] = {
      {"raw64_tag_format", &header.raw64_tag_format}, {"created_utc", &header.created_utc},
      {"application", &header.application},           {"device_product", &header.device_product},
      {"device_serial", &header.device_serial},       {"device_port", &header.device_port},
  };
  for (const auto& [key, field] : verbatim) {
    if (auto value = json_find_string(text, key)) *field = std::move(*value);
  }

  // Truncated to the field widths; delta_bits and quantum_ps are searched in
  // the whole text, not only inside packed_delta_config.
  if (auto value = json_find_uint(text, "channel_mask")) header.channel_mask = static_cast<std::uint8_t>(*value & 15u);
  if (auto value = json_find_uint(text, "tdl_index")) header.tdl_index = static_cast<std::uint8_t>(*value);
  if (auto value = json_find_uint(text, "delta_bits")) header.delta_bits = static_cast<std::uint8_t>(*value);
  if (auto value = json_find_uint(text, "quantum_ps")) header.quantum_ps = static_cast<std::uint16_t>(*value);

  if (header.raw64_tag_format.empty()) header.raw64_tag_format = raw64_tag_format_for(header.mode);
  return header;
}

}  // namespace zolt::timing::detail
