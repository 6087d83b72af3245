#pragma once

// The JSON header of stream files. This is deliberately not a general JSON
// parser: the writer emits a fixed key order with no white space, and the
// reader finds each known key by plain substring search. Files written by
// other tools rely on exactly this behaviour, quirks included (first match
// wins even inside another value, a number's value search runs on to the
// next quote, long digit runs wrap silently, control bytes become "?").

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "files/stream_file_header.hpp"

namespace zolt::timing::detail {

// Escapes text for placement between double quotes: \t \n \r \" \\; any other
// byte below 0x20 becomes "?"; everything else is copied unchanged.
std::string json_escape(std::string_view text);

// One-line JSON object in the fixed key order. An empty created_utc is
// stamped with the current UTC time (microseconds); an empty
// raw64_tag_format becomes "raw_cf" in internal mode, else "ps".
std::string stream_header_to_json(StreamFileHeader header);

// The string value after the first occurrence of "key" anywhere in text,
// unescaped; nothing when it cannot be read.
std::optional<std::string> json_find_string(std::string_view text, std::string_view key);

// The decimal value after the first occurrence of "key"; wraps modulo 2^64
// on overflow; nothing when no digit follows.
std::optional<std::uint64_t> json_find_uint(std::string_view text, std::string_view key);

// Parses a header text; missing or unreadable keys keep their defaults.
StreamFileHeader stream_header_from_json(std::string_view text);

}  // namespace zolt::timing::detail
