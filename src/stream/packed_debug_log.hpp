#pragma once

// The packed-delta decoder's diagnostic log: why records were dropped and
// where the decoder locked. Off unless ZOLT_PACKED_DEBUG is set (to anything);
// at most kMaxLines lines per decoder so a bad stream cannot flood stderr.

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <cstdint>
#include <functional>
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
    Line text;
    (text.append(pieces), ...);
    emit(std::string_view(text.data, text.size));
  }

 private:
  // A fixed buffer: the longest line is well under its size, and nothing is
  // allocated per line.
  struct Line {
    char data[256];
    std::size_t size = 0;

    void append(std::string_view piece) {
      const std::size_t n = std::min(piece.size(), sizeof data - size);
      std::memcpy(data + size, piece.data(), n);
      size += n;
    }
    void append(const char* piece) { append(std::string_view(piece)); }
    void append(Hex number) { append_number(number.value, 16); }
    template <class Int, std::enable_if_t<std::is_integral_v<Int>, int> = 0>
    void append(Int number) {
      append_number(number, 10);
    }
    template <class Int>
    void append_number(Int number, int base) {
      char digits[24];
      const auto result = std::to_chars(digits, digits + sizeof digits, number, base);
      append(std::string_view(digits, static_cast<std::size_t>(result.ptr - digits)));
    }
  };

  void emit(std::string_view text);

  Sink sink_;
  bool enabled_ = false;
  int lines_ = 0;
};

}  // namespace zolt::timing
