#pragma once

// The packed-delta decoder's diagnostic log: why records were dropped and
// where the decoder locked. Off unless ZOLT_PACKED_DEBUG is set (to anything);
// at most kMaxLines lines per decoder so a bad stream cannot flood stderr.

#include <charconv>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

namespace zolt::timing {

// A number to be written in hexadecimal (lower case, no prefix).
struct Hex {
  std::uint64_t value;
};

class PackedDebugLog {
 public:
  static constexpr int kMaxLines = 200;
  // Receives each line without the "packed-decoder: " prefix or newline.
  using Sink = std::function<void(std::string_view)>;

  // Logs to standard error when ZOLT_PACKED_DEBUG is set.
  PackedDebugLog();
  // Logs every line to `sink` regardless of the environment.
  explicit PackedDebugLog(Sink sink);

  bool enabled() const noexcept { return enabled_ && lines_ < kMaxLines; }

  // Writes the pieces one after another as one line. Callers check enabled()
  // first so that a quiet decoder does no formatting at all.
  template <class... Pieces>
  void line(const Pieces&... pieces) {
    if (!enabled()) return;
    std::string text;
    (append(text, pieces), ...);
    emit(text);
  }

 private:
  static void append(std::string& text, std::string_view piece) { text.append(piece); }
  static void append(std::string& text, const char* piece) { text.append(piece); }
  static void append(std::string& text, Hex number) { append_number(text, number.value, 16); }
  template <class Int, std::enable_if_t<std::is_integral_v<Int>, int> = 0>
  static void append(std::string& text, Int number) {
    append_number(text, number, 10);
  }
  template <class Int>
  static void append_number(std::string& text, Int number, int base) {
    char digits[24];
    const auto result = std::to_chars(digits, digits + sizeof digits, number, base);
    text.append(digits, result.ptr);
  }

  void emit(const std::string& text);

  Sink sink_;
  bool enabled_ = false;
  int lines_ = 0;
};

}  // namespace zolt::timing
