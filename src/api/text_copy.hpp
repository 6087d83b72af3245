#pragma once

#include <cstddef>
#include <cstring>
#include <string>

namespace zolt::timing::detail {

// Copies text into a fixed char array of a public record, cut to fit and
// always NUL-terminated.
template <std::size_t N>
void copy_cut(char (&field)[N], const std::string& text) {
  static_assert(N > 0);
  const std::size_t length = text.size() < N - 1 ? text.size() : N - 1;
  std::memcpy(field, text.data(), length);
  field[length] = '\0';
}

}  // namespace zolt::timing::detail
